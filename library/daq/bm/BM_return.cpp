// The way back: a finished slot with all its buffers, or one block early.
#include "BM.h"

#include <cstring>

#include <sys/sem.h>

#include "block_form.h"
#include "bm_core.h"
#include "event_key.h"
#include "pool_block.h"
#include "text_later.h"

using namespace zrk4::impl;

std::atomic<int> zrk4::impl::free_flag{0};

bool BM::free_ev_slot(int bnum)
{
    const text_later texts;
    return bm_core::in_form(*this, [&](auto form) { return bm_core::free_slot<decltype(form)>(*this, bnum, nullptr); });
}

template <class Form> bool bm_core::free_slot(BM& bm, int slot_number, const slot_identity* meant)
{
    if (!is_slot(bm.ev_buf, slot_number) || !event_slot<Form>(*bm.ev_buf, slot_number)) {
        say("free_ev_slot(): Failed to find event slot: %d", slot_number);
        return true;
    }
    slot_lock control(*bm.ev_buf, 0);
    // Two clients that finish together both come here; by then the slot may hold the next event already.
    const event_slot<Form> slot(*bm.ev_buf, slot_number);
    if (meant != nullptr && !(slot.identity() == *meant)) return false;
    // Where a block is still missing, somebody who comes late with it may be at its entry, under the slot's lock.
    slot_lock lock;
    if (meant != nullptr && word_unlocked(&slot.head().sbfilled) < word_unlocked(&slot.head().nsblocks))
        lock = slot_lock::try_for_a_while(*bm.ev_buf, slot_number);
    const bool failed = free_slot_locked<Form>(bm, slot_number, control);
    control.unlock();
    return failed;
}

template <class Form> bool bm_core::free_slot_locked(BM& bm, int slot_number, const slot_lock& /*event partition 0*/)
{
    const event_table<Form> table(*bm.ev_buf);
    if (!table.has(slot_number) || table.of(slot_number).status == EVT_C_FREE) return false;
    const event_slot<Form> slot(*bm.ev_buf, slot_number);
    bool failed = false;
    for (int i = 0; i < slot.filled(); ++i) failed = return_block<Form>(bm, slot, i) || failed;
    C_shm_buffer& events = *bm.ev_buf;
    table.of(slot_number).status = EVT_C_FREE;
    try {
        if (events.return_buffer(slot_number)) {
            say("free_ev_slot(): failed to free event slot: %d ", slot_number);
            return true;
        }
    } catch (const SysError&) {
        // An empty event that somebody will free, and not a slot that nobody knows of.
        if (is_handed_out(events, slot_number)) table.of(slot_number).status = EVT_C_USED;
        throw;
    }
    return failed;
}

namespace {

// "ttoal" stands so in every log.
template <class Form> void say_cleaning(int i, int shmid, int bnum, const char* at, const typename Form::head& head)
{
    if (is_2024(at) != Form::wide) {
        say("CLEANING[%d]  corrupted data(no details)", i);
        return;
    }
    const block_view block = view_block(at);
    const int seconds = static_cast<int>(block.time.timeup);
    const int microseconds = static_cast<int>(block.time.timelow);
    const auto mask = static_cast<unsigned>(block.tmask);
    if constexpr (Form::wide) {
        say("CLEANING[%d]  %d:%d_%ld  SHMID: %d  SLOT: %d filled:ttoal %d:%d", i, seconds, microseconds,
            static_cast<long>(block.mpulse), shmid, bnum, head.sbfilled, head.nsblocks);
        say("ltotal: %ld server: %.255s  mask: 0x%X status: %d  nchan: %d", static_cast<long>(block.ltotal),
            block.server, mask, block.status, block.nchan);
    } else {
        say("CLEANING[%d]  %d:%d_%d  SHMID: %d  SLOT: %d filled:ttoal %d:%d", i, seconds, microseconds,
            static_cast<int>(block.mpulse), shmid, bnum, head.sbfilled, head.nsblocks);
        say("ltotal: %d server: %.255s  mask: 0x%X status: %d  nchan: %d", static_cast<int>(block.ltotal), block.server,
            mask, block.status, block.nchan);
    }
}

bool can_still_go_back(BM& bm, int bnum, int shmid)
{
    const C_shm_buffer* part = bm.find_by_id(shmid);
    return part != nullptr && semctl(control_of(*part).gbl_semid, gbl_empty, GETVAL) >= 0 && is_handed_out(*part, bnum);
}

} // namespace

// Of a buffer that a slot names; any process may have written that. The first buffer of a slot partition is nobody's to
// give back: free, it would be handed out as a slot, or as room for data.
bool bm_core::is_control_record(const BM& bm, int bnum, int shmid)
{
    return bnum == 0 && (shmid == bm.evid || shmid == bm.clid);
}

// The entry becomes a hole before its buffer goes back: killed in between, a process loses one buffer to the repair,
// while the other order would have it returned a second time, perhaps from its next owner. The segment id stays until
// the buffer is back and tells whose buffer was on its way. Before the address is asked for: that can throw, and would
// throw again, every time somebody tries to free the slot.
template <class Form> bool bm_core::return_block(BM& bm, const event_slot<Form>& slot, int i)
{
    zrk4_client_sblock_data& entry = slot.entries()[i];
    const int shmid = entry.shmid;
    const int bnum = entry.bnum;
    if (shmid == 0 || bnum < 0) return false;
    entry.bnum = -1;
    bool failed = false;
    const block_place block = place_of(bm, bnum, shmid);
    if (block.at != nullptr && free_flag != 0 && has_readable_head(*block.part, block.at))
        say_cleaning<Form>(i, shmid, bnum, block.at, slot.head());
    try {
        if (block.at != nullptr && (is_control_record(bm, bnum, shmid) || block.part->return_buffer(bnum))) {
            say("free_ev_slot(): failed to free id: %d bnum: %d", shmid, bnum);
            failed = true;
        }
    } catch (const SysError&) {
        // Refused this once: whoever frees the slot next gives it back. Not where the partition's locks are gone.
        if (can_still_go_back(bm, bnum, shmid)) entry.bnum = bnum;
        throw;
    }
    entry.shmid = 0;
    return failed;
}

bool BM::return_buffer_in_pool_ext(ZRK4_EVTYPE evtype, int bnum, int id)
{
    const text_later texts;
    if (id < 1 || !is_event_type(evtype) || bnum < 0) {
        say("return_buffer_in_pool_ext(): invalid parameter(s) evtype: %d id: %d bnum: %d", evtype, id, bnum);
        return true;
    }
    char* block = block_in_pool(*this, bnum, id).at;
    if (block == nullptr) {
        say("return_buffer_in_pool_ext(): failed to get the buffer address");
        return true;
    }
    const auto get_key = reader_of(get_key_f, evtype);
    const auto get_id = reader_of(get_evid_f, evtype);
    const time_stamp* key = get_key != nullptr ? get_key(block) : nullptr;
    if (key == nullptr || get_id == nullptr) return true;
    const time_stamp block_key = *key;
    const int64_t block_id = get_id(block);
    bm_core::in_form(*this, [&](auto form) {
        using Form = decltype(form);
        const int slot = bm_core::slot_for_return<Form>(*this, evtype, block_key, block_id);
        if (slot > 0) bm_core::take_out_entry<Form>(*this, slot, bnum, id);
    });
    return bm_core::is_control_record(*this, bnum, id) || return_buffer_in_pool(bnum, id);
}

namespace {

// An odd stored id meets exactly the largest 31-bit id: required so, however unusual.
enum class id_match { none, same, wrapped };
id_match match_for_return(int64_t stored, int64_t id)
{
    if (stored == id) return id_match::same;
    const bool odd_and_largest = (stored & 1) != 0 && id == LOW_31_BITS;
    return odd_and_largest || stored == (id & LOW_31_BITS) ? id_match::wrapped : id_match::none;
}

} // namespace

template <class Form> int bm_core::slot_for_return(BM& bm, ZRK4_EVTYPE evtype, time_stamp key, int64_t id)
{
    if (bm.ev_buf == nullptr) return -1;
    slot_lock control(*bm.ev_buf, 0);
    if (bm.smode != BM_SYNCH_TIME && bm.smode != BM_SYNCH_EVID) {
        say("return_buffer_in_pool_ext(): invalid smode: %d", bm.smode);
        return -1;
    }
    const event_table<Form> table(*bm.ev_buf);
    const key_range keys(key, bm.time_mask);
    for (int slot = table.next_used(1); slot > 0; slot = table.next_used(slot + 1)) {
        typename Form::entry& entry = table.of(slot);
        if (entry.evtype != evtype) continue;
        if (bm.smode == BM_SYNCH_TIME) {
            if (!keys.contains(entry.key)) continue;
        } else {
            const id_match match = match_for_return(entry.eventid, id);
            if (match == id_match::none) continue;
            if (match == id_match::wrapped && entry.eventid < id) Form::set_event_id(entry, id);
        }
        control.unlock();
        return slot;
    }
    control.unlock();
    return -1;
}

template <class Form> void bm_core::take_out_entry(BM& bm, int slot_number, int bnum, int id)
{
    C_shm_buffer& events = *bm.ev_buf;
    slot_identity event;
    {
        slot_lock lock(events, slot_number);
        event_slot<Form> slot(events, slot_number);
        if (!slot) {
            say("return_buffer_in_pool_ext(): Failed to find event slot: %d ", bnum); // the buffer's number: deliberate
            return;
        }
        zrk4_client_sblock_data* const first = slot.entries();
        zrk4_client_sblock_data* const end = first + slot.filled();
        auto* const at = std::find_if(first, end, [&](const auto& e) { return e.shmid == id && e.bnum == bnum; });
        if (at == end) return;
        std::memmove(at, at + 1, static_cast<size_t>(end - at - 1) * sizeof *at);
        slot.head().sbfilled -= 1;
        // Behind the last entry every byte of a slot is zero: the next event's clearing relies on it.
        std::memset(end - 1, 0, sizeof *end);
        if (slot.head().sbfilled > 0) return;
        event = slot.identity();
    }
    end_emptied_slot<Form>(bm, slot_number, event);
}

// Ended under lock 0, as everywhere else. The slot was let go to take it in the right order, so it is looked at again.
template <class Form> void bm_core::end_emptied_slot(BM& bm, int slot_number, const slot_identity& event)
{
    C_shm_buffer& events = *bm.ev_buf;
    slot_lock control(events, 0);
    slot_lock lock(events, slot_number);
    const event_slot<Form> slot(events, slot_number);
    const event_table<Form> table(events);
    if (!(slot.identity() == event) || !table.has(slot_number) || !table.used(slot_number) || slot.head().sbfilled != 0)
        return;
    table.of(slot_number).status = EVT_C_FREE;
    if (events.return_buffer(slot_number))
        say("return_buffer_in_pool_ext(): failed to free event slot: %d ", slot_number);
}

template bool bm_core::free_slot<slots_2010>(BM&, int, const slot_identity*);
template bool bm_core::free_slot<slots_2024>(BM&, int, const slot_identity*);
template bool bm_core::free_slot_locked<slots_2010>(BM&, int, const slot_lock&);
template bool bm_core::free_slot_locked<slots_2024>(BM&, int, const slot_lock&);
