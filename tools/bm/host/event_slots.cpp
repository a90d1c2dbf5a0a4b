#include "host/event_slots.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include <fmt/format.h>

#include "cli/failure.h"
#include "host/clock.h"
#include "host/in_parts.h"
#include "host/names.h"
#include "host/records_shown.h"
#include "slot_form.h"

namespace bm {
namespace {

constexpr int LOOKS = 8;

template <class Form> class slots_look {
  public:
    using head_t = typename Form::head;
    using entry_t = typename Form::entry;

    slots_look(const partition& part, const read_only_segment& mapped, depth how)
        : part_(part), mapped_(mapped), how_(how)
    {
        find_table();
    }

    struct seen_events {
        std::vector<event> all, past;
    };
    seen_events take(int first, int last) const
    {
        seen_events seen;
        seen.all.reserve(static_cast<size_t>(std::clamp(last - first, 0, part_.out())));
        for (int slot = first; slot < last; ++slot) {
            part_.read_ahead(slot, mapped_);
            const bool out = !part_.descriptor(slot).queued();
            const entry_t now = entry(slot);
            if (out || now.status == EVT_C_USED) {
                seen.all.push_back(look_at(slot, out));
            } else if (how_ != depth::whole && now.key.timeup != 0) { // it was in use once: its page is there
                seen.past.push_back(look_at(slot, out));
            }
        }
        return seen;
    }

  private:
    // The table may be made for more slots than buffer 0 has room for.
    void find_table()
    {
        table_ = part_.offset(0);
        const int room = part_.length() / static_cast<int>(sizeof(entry_t));
        covered_ = table_ ? std::max(0, std::min(part_.buffers() - 1, room)) : 0;
    }
    entry_t entry(int slot) const
    {
        entry_t now{};
        now.status = EVT_C_INVALID;
        if (slot <= covered_) mapped_.copy(*table_ + sizeof now * (static_cast<uint64_t>(slot) - 1), now);
        return now;
    }

    event look_at(int slot, bool out) const
    {
        event one;
        const std::optional<uint64_t> at = part_.offset(slot);
        head_t head{};
        for (int look = 0; look < LOOKS; ++look) {
            if (!at || part_.length() < static_cast<int>(sizeof head) || !mapped_.copy(*at, head)) {
                one.sound = false;
                break;
            }
            const int32_t before = entry(slot).status;
            one = event_of(*at, head);
            head_t after{};
            mapped_.copy(*at, after);
            one.control_status = entry(slot).status;
            one.torn = std::memcmp(&head, &after, sizeof head) != 0 || before != one.control_status;
            if (!one.torn) break;
        }
        one.slot = slot;
        one.handed_out = out;
        return one;
    }

    event event_of(uint64_t at, const head_t& head) const
    {
        event one;
        one.key = head.time;
        one.id = head.eventid;
        one.type = static_cast<int32_t>(head.evtype);
        one.mask = head.tmask;
        one.status = head.status;
        one.start = micros(head.start);
        one.update = micros(head.lupdate);
        one.pid = head.pid;
        one.bytes = head.evsize;
        one.expected = head.nsblocks;
        one.filled_said = head.sbfilled;
        one.clients_said = head.nclients;
        one.sound = Form::sound(head);
        read_body(one, at + sizeof head, part_.length() - static_cast<int>(sizeof head));
        return one;
    }

    // A count that the slot has no room for is cut to what it has.
    void read_body(event& one, uint64_t at, int room) const
    {
        constexpr int CLIENT = sizeof(zrk4_client_block), ENTRY = sizeof(zrk4_client_sblock_data);
        if (how_ == depth::heads && idle_seconds(one, now_) < STILL_S) return;
        const int clients = std::clamp(one.clients_said, 0, room / CLIENT);
        one.clients.resize(static_cast<size_t>(clients));
        if (clients > 0) mapped_.copy(at, one.clients.data(), one.clients.size() * CLIENT);
        at += one.clients.size() * CLIENT;
        if (how_ != depth::whole) return;
        const int entries = std::clamp(one.filled_said, 0, (room - clients * CLIENT) / ENTRY);
        one.entries.resize(static_cast<size_t>(entries));
        for (event_entry& entry : one.entries) {
            struct BM_PACKED {
                int32_t shmid, bnum;
            } place{};
            entry.name = name_at(mapped_, at);
            mapped_.copy(at + CLI_NAME_SIZE, place);
            entry.shmid = place.shmid;
            entry.bnum = place.bnum;
            at += ENTRY;
        }
    }

    const partition& part_;
    const read_only_segment& mapped_;
    depth how_;
    const int64_t now_ = micros_now();
    std::optional<uint64_t> table_; // where it begins
    int covered_ = 0;               // slots 1 to covered_ have an entry
};

const char* word_of(records form) { return form == records::of_2024 ? "2024" : "2010"; }

} // namespace

std::string event::key_text() const { return fmt::format("{}:{:06}", +key.timeup, +key.timelow); }

double idle_seconds(const event& one, int64_t now) { return seconds_between(std::max(one.start, one.update), now); }

event_slots::event_slots(const partition& part, const read_only_segment& mapped, std::optional<records> form, depth how)
    : slots_(std::max(0, part.buffers() - 1))
{
    const std::optional<records> shown = shown_records(part, mapped);
    if (form && shown && *form != *shown) {
        throw failure(exit_status::failed,
                      fmt::format("the event slots of \"{}\" are of another generation", part.name))
            .seen(fmt::format("records of {}", word_of(*shown)))
            .needed(fmt::format("records of {}, as --records says", word_of(*form)))
            .help(fmt::format("the same command with --records {}", word_of(*shown)));
    }
    if (!form) form = shown ? shown : likely_records(part, mapped);
    form_ = form.value_or(records::of_2010);
    if (form_ == records::of_2024) {
        read<zrk4::impl::slots_2024>(part, mapped, how);
    } else {
        read<zrk4::impl::slots_2010>(part, mapped, how);
    }
}

template <class Form> void event_slots::read(const partition& part, const read_only_segment& mapped, depth how)
{
    const slots_look<Form> look(part, mapped, how);
    using seen_events = typename slots_look<Form>::seen_events;
    std::vector<seen_events> parts;
    if (how == depth::whole) {
        parts = in_parts<seen_events>(1, part.buffers(), [&](int first, int last) { return look.take(first, last); });
    } else { // too little to divide
        parts.push_back(look.take(1, part.buffers()));
    }
    for (seen_events& each : parts) {
        std::move(each.all.begin(), each.all.end(), std::back_inserter(all_));
        std::move(each.past.begin(), each.past.end(), std::back_inserter(past_));
    }
}

const event* event_slots::at(int slot) const
{
    const auto found = std::lower_bound(all_.begin(), all_.end(), slot,
                                        [](const event& one, int wanted) { return one.slot < wanted; });
    return found != all_.end() && found->slot == slot ? &*found : nullptr;
}

} // namespace bm
