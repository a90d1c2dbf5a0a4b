// The event slot of a server block: found by its key or id, or taken from the free ones.
#include "BM.h"

#include "bm_core.h"
#include "event_id.h"
#include "event_key.h"
#include "text_later.h"

using namespace zrk4::impl;

int BM::find_ev_slot(ZRK4_EVTYPE evtype, char* evhd)
{
    const text_later texts;
    return without_exceptions(-1, [&] {
        const head_readers read = bm_core::head_readers_of(*this, evtype);
        return bm_core::in_form(
            *this, [&](auto form) { return bm_core::find_slot<decltype(form)>(*this, evtype, evhd, read).slot; });
    });
}

namespace {

constexpr int ATTEMPTS = 10001;

} // namespace

template <class Form>
found_event<Form> bm_core::find_slot(BM& bm, ZRK4_EVTYPE evtype, char* block, const head_readers& read)
{
    if (read.key == nullptr || read.id == nullptr || block == nullptr || !attached(bm)) return {};
    const time_stamp* key_at = read.key(block);
    if (key_at == nullptr) return {};
    const time_stamp key = *key_at;
    const int64_t id = read.id(block);
    C_shm_buffer& events = *bm.ev_buf;
    // Event partition 0, in it client partition 0 (a new event looks at the clients); never the reverse.
    slot_lock control(events, 0);
    const event_table<Form> table(events);
    if (bm.smode != BM_SYNCH_TIME && bm.smode != BM_SYNCH_EVID) {
        say("BM::find_ev_slot() invalid smode: %d", bm.smode);
        return {};
    }
    found_event<Form> found;
    found.slot = matching_slot<Form>(bm, table, evtype, key, id);
    if (found.slot < 0) found.slot = take_event_slot<Form>(bm, table, evtype, key, id, block, read, found.made);
    if (found.slot < 0) return {};
    found.entry = table.of(found.slot);
    control.unlock();
    return found;
}

template <class Form>
int bm_core::matching_slot(BM& bm, const event_table<Form>& table, ZRK4_EVTYPE evtype, time_stamp key, int64_t id)
{
    const key_range keys(key, bm.time_mask);
    for (int slot = table.next_used(1); slot > 0; slot = table.next_used(slot + 1)) {
        typename Form::entry& entry = table.of(slot);
        if (entry.evtype != evtype) continue;
        if (bm.smode == BM_SYNCH_TIME) {
            if (!keys.contains(entry.key)) continue;
        } else {
            if (!same_event_id(entry.eventid, id)) continue;
            if (entry.eventid < id) Form::raise_event_id(entry, id);
        }
        return slot;
    }
    return -1;
}

// A slot whose control entry would not lie in buffer 0 cannot be found again, and its entry would be written over
// another event's data: it stays out of the queue. So does buffer 0 itself, should a master have died before taking it.
int bm_core::free_event_slot(C_shm_buffer& events, int usable)
{
    for (int failed = 0; failed < ATTEMPTS;) {
        char* taken = events.get_buffer(BM_NO_WAIT, /*multi=*/true);
        if (taken == nullptr) {
            ++failed;
            continue;
        }
        const int slot = events.buffer_id(taken);
        if (slot >= 1 && slot <= usable) return slot;
    }
    say("find_ev_slot(): failed to allocate an event slot");
    return -1;
}

// Made under the slot's lock: somebody who is late with the event that was in this slot may have it, and what he writes
// for that one would be taken for this one's, or cleared with the old.
template <class Form>
int bm_core::take_event_slot(BM& bm, const event_table<Form>& table, ZRK4_EVTYPE evtype, time_stamp key, int64_t id,
                             char* block, const head_readers& read, slot_lock& made)
{
    C_shm_buffer& events = *bm.ev_buf;
    const int slot = free_event_slot(events, table.slots());
    if (slot < 0) return -1;
    made = slot_lock::try_for_a_while(events, slot);
    typename Form::entry& entry = table.of(slot);
    entry.key = key;
    entry.evtype = evtype;
    Form::set_event_id(entry, id);
    store_released(&entry.status, EVT_C_USED);
    const auto free_again = [&] {
        entry.status = EVT_C_FREE;
        events.return_buffer(slot);
    };
    try {
        if (!fill_event_slot<Form>(bm, evtype, slot, block, read)) return slot;
    } catch (...) {
        // The client partition is gone, or a head reader has thrown: nobody would ever end this half of an event.
        free_again();
        throw;
    }
    free_again();
    return -1;
}

template found_event<slots_2010> bm_core::find_slot<slots_2010>(BM&, ZRK4_EVTYPE, char*, const head_readers&);
template found_event<slots_2024> bm_core::find_slot<slots_2024>(BM&, ZRK4_EVTYPE, char*, const head_readers&);
