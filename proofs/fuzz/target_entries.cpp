// Event slots in the slot partition with anything in their heads and entries, through what reader programs call.
#include <cstring>

#include "bm_util.h"
#include "event_slot.h"
#include "guarded.h"
#include "reader_event.h"
#include "sb_view.h"
#include "small_host.h"
#include "target.h"
#include "walkers.h"

namespace fuzz {
namespace {

using zrk4::impl::event_slot;
using zrk4::impl::slots_2010;
using zrk4::impl::slots_2024;

struct host {
    small_host bm;
    data_partitions data{bm, guard::end};
    host() { set_guard(*bm.ev_buf, guard::end); }
};
host* here = nullptr;

// Numbers that exist, that do not, and those of the slot partitions themselves.
void fill(input& in, zrk4_client_sblock_data& entry)
{
    const uint8_t kind = in.byte();
    in.name(entry.name);
    if ((kind & 3) != 0) {
        const auto place = here->data.one(in);
        entry.shmid = place.id;
        entry.bnum = (kind & 12) == 12 ? in.number() : place.bnum;
        return;
    }
    entry.shmid = in.number();
    entry.bnum = in.number();
}

template <class Head> const std::string& slot_bytes(input& in)
{
    static std::string bytes; // keeps its room
    bytes.clear();
    const uint8_t shape = in.byte();
    const int count = shape & 7;
    Head head{};
    if constexpr (sizeof(Head) == sizeof(zrk4_event_slot_head_2024)) {
        head.pattern = (shape & 8) != 0 ? in.take<uint64_t>() : EV_SLOT_PATTERN_2024;
    }
    head.evtype = static_cast<ZRK4_EVTYPE>((shape & 16) != 0 ? in.number() : ZRK4_EV_NORMAL);
    head.nclients = (shape & 32) != 0 ? in.number() : 0;
    head.sbfilled = (shape & 64) != 0 ? in.number() : count;
    append(bytes, head);
    bytes.append(in.byte() & 31, '\1');
    for (int n = 0; n < count; ++n) {
        zrk4_client_sblock_data entry{};
        fill(in, entry);
        append(bytes, entry);
    }
    return bytes;
}

// Entries may name any of the blocks; the others are zero.
void put_block(input& in)
{
    const auto place = here->data.one(in);
    const std::string& bytes = server_block(in, place.bytes);
    std::memset(place.at, 0, place.bytes);
    std::memcpy(place.at, bytes.data(), bytes.size());
}

// No other slot lies behind it.
template <class Form> void put_slot(input& in)
{
    char* const at = here->bm.ev_buf.load()->buffer_addr(small_host::EVENT_SLOTS);
    const auto room = static_cast<size_t>(here->bm.ev_buf.load()->getBufferLength());
    std::memset(at, in.flag() ? 0xFF : 0, room);
    const std::string& bytes = slot_bytes<typename Form::head>(in);
    std::memcpy(at, bytes.data(), std::min(room, bytes.size()));
}

// As the reader thread calls its handler.
template <class Form> walked_event as_given(const event_slot<Form>& slot)
{
    zrk4_event_slot_head* narrow = nullptr;
    if constexpr (!Form::wide) narrow = reinterpret_cast<zrk4_event_slot_head*>(slot.address());
    return {here->bm, narrow, reinterpret_cast<zrk4_event_slot_head_2024*>(slot.address()), slot.entries()};
}

void view_all(const walked_event& event, int32_t filled)
{
    for (int32_t i = 0; i < filled; ++i) {
        for (const zrk4::sb_sub& sub : zrk4::sb_of(event.bm, event.entries[i])) expect(sub.bytes() < 5000, "a length");
    }
}

template <class Form> void read_slot(input& in)
{
    put_block(in);
    put_block(in);
    put_slot<Form>(in);
    const event_slot<Form> slot(*here->bm.ev_buf, small_host::EVENT_SLOTS);
    const walked_event event = as_given<Form>(slot);
    walk(in, event);
    view_all(event, slot.filled());
    const std::string channel = in.name();
    float value = 0;
    if (Form::wide) {
        get_slow_channel_data(event.slot_2024, event.entries, channel.c_str(), &event.bm, nullptr, nullptr, &value);
    } else {
        get_slow_channel_data_2010(event.slot_2010, event.entries, channel.c_str(), &event.bm, nullptr, &value);
    }
    clean_local_copies();
}

} // namespace

void prepare() { here = new host; }

void run(input& in)
{
    const bool wide = in.flag();
    if (wide) {
        read_slot<slots_2024>(in);
    } else {
        read_slot<slots_2010>(in);
    }
}

} // namespace fuzz
