// Server blocks of both generations, with anything wrong in them, through everything that walks them.
#include <algorithm>
#include <memory>

#include <sanitizer/asan_interface.h>

#include "evutl.h"
#include "reader_event.h"
#include "sb_view.h"
#include "target.h"
#include "walkers.h"

namespace fuzz {
namespace {

struct host {
    BM bm;
    data_partitions data{bm, guard::all_buffers};
};
host* here = nullptr;

void read_all_of(const zrk4::sb_sub& sub)
{
    unsigned sum = static_cast<unsigned>(sub.type()) ^ static_cast<unsigned>(sub.error());
    sum += static_cast<unsigned>(sub.name().size());
    expect_readable(sub.data(), sub.bytes());
    for (size_t i = 0; i <= sub.count<zrk4_dict_data_block_2010>(); ++i) {
        const auto* r = sub.record<zrk4_dict_data_block_2010>(i);
        if (r != nullptr) sum += static_cast<unsigned>(r->dict_ch_idx);
    }
    sum += sub.value<uint32_t>(sub.count<uint32_t>());
    volatile unsigned read = sum;
    (void)read;
}

bool may_dump(const zrk4::sb_view& block, size_t room)
{
    return block && block.head().ltotal <= static_cast<int64_t>(room);
}

// The listing knows no length but the block's own: it gets a block that does not lie about it, and may read no more.
void list(char* at, const zrk4::sb_view& block, size_t room, int level)
{
    if (!may_dump(block, room)) return;
    const auto end = static_cast<size_t>(std::max(block.head().ltotal, block.head().head_size));
    char* const behind = at + std::min(end, room);
    const auto rest = static_cast<size_t>(at + room - behind);
    ASAN_POISON_MEMORY_REGION(behind, rest);
    if (block.head().head_size == sizeof(zrk4_serv_block_head_2024)) {
        dump_event_subheader_2024(level, at);
    } else {
        dump_event_subheader_2010(level, at);
    }
    ASAN_UNPOISON_MEMORY_REGION(behind, rest);
}

// In a sound block everybody finds the same sub-block.
void compare(const zrk4::sb_view& block, const walked_event& event, const std::string& channel)
{
    if (!block.sound() || channel.empty()) return;
    const auto wanted = [&](const zrk4::sb_sub& sub) { return sub.name() == channel; };
    const auto at = std::find_if(block.begin(), block.end(), wanted);
    const char* expected = at == block.end() ? nullptr : at->data() - sizeof(zrk4_serv_block_subhead_2010);
    expect(find_in_any(event, channel) == expected, "the view and the search find the same channel");
}

} // namespace

void prepare() { here = new host; }

void run(input& in)
{
    const uint8_t shape = in.byte();
    const int evtype = (shape & 0x80) != 0 ? in.number() : ZRK4_EV_NORMAL;
    reader_event event(in, here->data, evtype, 1 + (shape & 1));
    const walked_event walked{here->bm, &event.slot_2010, &event.slot_2024, event.entries()};
    walk(in, walked);
    slot_of_either other(event.slot_2010);
    check_bad_sb_data(other.get(), event.entries(), &here->bm);
    const int level = in.number();
    for (size_t i = 0; i < event.blocks(); ++i) {
        const auto& entry = event.entries()[i];
        const zrk4::sb_view block = zrk4::sb_of(here->bm, entry);
        expect(block.server().size() <= 256, "a name");
        for (const zrk4::sb_sub& sub : block) read_all_of(sub);
        if (block)
            list(here->bm.get_buffer_address(entry.bnum, entry.shmid), block,
                 static_cast<size_t>(here->bm.find_by_id(entry.shmid)->getBufferLength()), level);
        if (event.blocks() == 1 && evtype == ZRK4_EV_NORMAL) compare(block, walked, in.name());
    }
}

} // namespace fuzz
