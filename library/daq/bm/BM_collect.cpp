// A server block enters its event.
#include "BM.h"

#include <algorithm>
#include <utility>

#include "block_form.h"
#include "bm_core.h"
#include "event_id.h"
#include "evutl.h"
#include "names.h"
#include "pool_block.h"
#include "text_later.h"

using namespace zrk4::impl;

bool BM::ev_update(ZRK4_EVTYPE evtype, int id, int bnum)
{
    const text_later texts;
    return without_exceptions(true, [&] {
        return bm_core::in_form(*this,
                                [&](auto form) { return bm_core::collect<decltype(form)>(*this, evtype, id, bnum); });
    });
}

bool BM::ev_update(ZRK4_EVTYPE evtype, int id, int bnum, int slot)
{
    const text_later texts;
    return without_exceptions(true, [&] {
        return bm_core::in_form(
            *this, [&](auto form) { return bm_core::collect_into<decltype(form)>(*this, evtype, id, bnum, slot); });
    });
}

namespace {

int as_int(uint32_t value) { return static_cast<int>(value); }

// The block is taken all the same: these are warnings.
void warn_of_missing_key(int smode, ZRK4_EVTYPE evtype, char* block, int64_t room)
{
    const block_view head = view_block(block);
    const bool no_time = head.time.timeup == 0;
    if (!no_time && !(smode == BM_SYNCH_EVID && head.mpulse == 0)) return;
    const int seconds = as_int(head.time.timeup);
    const int microseconds = as_int(head.time.timelow);
    if (is_2024(block)) {
        say("!!!!!!!! ev_update(): time stamp %d:%d_%ld   Event type: %d SB: %.255s chans: %d", seconds, microseconds,
            static_cast<long>(head.mpulse), evtype, head.server, head.nchan);
    } else {
        say("!!!!!!!! ev_update(): time stamp %d:%d_%d   Event type: %d SB: %.255s chans: %d", seconds, microseconds,
            static_cast<int>(head.mpulse), evtype, head.server, head.nchan);
    }
    text_later::write_now();
    // The listing trusts the block's length: one that is longer than its buffer would be read past the segment.
    if (head.ltotal > room) return;
    (is_2024(block) ? dump_event_subheader_2024 : dump_event_subheader_2010)(0, block);
    std::fflush(stdout);
}

void say_block(const char* block)
{
    const block_view head = view_block(block);
    const int seconds = as_int(head.time.timeup);
    const int microseconds = as_int(head.time.timelow);
    if (is_2024(block)) {
        say("Time %d:%d_%ld", seconds, microseconds, static_cast<long>(head.mpulse));
        say("ltotal: %ld server: %.255s  mask: 0x%X status: %d  nchan: %d", static_cast<long>(head.ltotal), head.server,
            static_cast<unsigned>(head.tmask), head.status, head.nchan);
    } else {
        say("Time %d:%d_%d", seconds, microseconds, static_cast<int>(head.mpulse));
        say("ltotal: %d server: %.255s  mask: 0x%X status: %d  nchan: %d", static_cast<int>(head.ltotal), head.server,
            static_cast<unsigned>(head.tmask), head.status, head.nchan);
    }
}

// The newline at the end is part of the text: an empty line follows in the log.
template <class Head> void say_slot(const Head& head)
{
    const char* type = event_name_itoa(head.evtype);
    const int seconds = as_int(head.time.timeup);
    const int microseconds = as_int(head.time.timelow);
    if constexpr (sizeof head.eventid == sizeof(int64_t)) {
        say("EV.SLOT type:%s  %d:%d_%ld  evsize:%ld tmask: 0x%x  blocks:%d  filled:%d\n", type, seconds, microseconds,
            static_cast<long>(head.eventid), static_cast<long>(head.evsize), static_cast<unsigned>(head.tmask),
            head.nsblocks, head.sbfilled);
    } else {
        say("EV.SLOT type:%s  %d:%d_%d  evsize:%d tmask: 0x%x  blocks:%d  filled:%d\n", type, seconds, microseconds,
            head.eventid, head.evsize, static_cast<unsigned>(head.tmask), head.nsblocks, head.sbfilled);
    }
}

} // namespace

template <class Form> bool bm_core::collect(BM& bm, ZRK4_EVTYPE evtype, int id, int bnum)
{
    if (id < 1 || !is_event_type(evtype) || bnum < 0) {
        say("ev_update(): invalid parameter(s) evtype: %d id: %d bnum: %d", evtype, id, bnum);
        return true;
    }
    const block_place place = block_in_pool(bm, bnum, id);
    const new_block block{evtype, id, bnum, place.at, head_readers_of(bm, evtype)};
    if (block.at == nullptr) {
        say("ev_update(): failed to get the buffer address bnum:%d id:%d", bnum, id);
        return true;
    }
    warn_of_missing_key(bm.smode, evtype, block.at, place.room());
    // Between the search and the slot's own lock the event can end (a stalled writer, the monitor) and the slot become
    // another one's: then the search is made again, and after three rounds the slot is taken as it is.
    constexpr int ROUNDS = 3;
    for (int round = 0;; ++round) {
        found_event<Form> found =
            without_exceptions(found_event<Form>(), [&] { return find_slot<Form>(bm, evtype, block.at, block.read); });
        if (found.slot < 0) {
            say("ev_update(): failed to find the event slot");
            return true;
        }
        const event_slot<Form> slot(*bm.ev_buf, found.slot);
        write_unlocked(&slot.head().lupdate, time_now());
        const found_event<Form>* const expected = round < ROUNDS ? &found : nullptr;
        const entered result = enter<Form>(bm, block, found.slot, std::move(found.made), expected);
        if (result != entered::slot_moved) return result != entered::yes;
    }
}

namespace {

// Compared with the entry as the search left it, never with the block: another writer may have raised the id since.
template <class Form> bool still_this_event(const event_table<Form>& table, const found_event<Form>& found)
{
    const typename Form::entry now = read_unlocked(&table.of(found.slot));
    return now.status == EVT_C_USED && now.evtype == found.entry.evtype && same_time(now.key, found.entry.key) &&
           same_event_id(now.eventid, found.entry.eventid);
}

} // namespace

template <class Form> bool bm_core::collect_into(BM& bm, ZRK4_EVTYPE evtype, int id, int bnum, int slot_number)
{
    if (id < 1 || !is_event_type(evtype) || bnum < 0 || !is_slot(bm.ev_buf, slot_number)) {
        say("ev_update(): invalid parameter(s) evtype: %d id: %d bnum: %d slot: %d", evtype, id, bnum, slot_number);
        return true;
    }
    const new_block block{evtype, id, bnum, block_in_pool(bm, bnum, id).at, head_readers_of(bm, evtype)};
    if (block.at == nullptr) {
        say("ev_update(): failed to get the buffer address");
        return true;
    }
    return enter<Form>(bm, block, slot_number, {}, nullptr) != entered::yes;
}

template <class Form>
entered bm_core::enter(BM& bm, const new_block& block, int slot_number, slot_lock lock,
                       const found_event<Form>* expected)
{
    C_shm_buffer& events = *bm.ev_buf;
    event_slot<Form> slot(events, slot_number);
    if (!slot) {
        say("ev_update(): Failed to find address for event slot: %d", slot_number);
        return entered::refused;
    }
    if (!lock) lock = slot_lock(events, slot_number);
    if (expected != nullptr && !still_this_event(event_table<Form>(events), *expected)) return entered::slot_moved;
    slot.refresh();
    if (!enter_locked<Form>(bm, block, slot, slot_number)) return entered::refused;
    if (own_writer_slot(bm, block.evtype) < 0) return entered::yes;
    // The block is in the event, and its buffer the event's, whatever becomes of the notification.
    return without_exceptions(entered::yes, [&] {
        // The lock is kept from the entry to the look at the clients: given back and taken again it would cost two
        // calls.
        const look_result look = look_at_clients<Form>(bm, slot_number, slot, lock);
        lock.unlock();
        end_look<Form>(bm, slot_number, look);
        return entered::yes;
    });
}

template <class Form>
bool bm_core::enter_locked(BM& bm, const new_block& block, event_slot<Form>& slot, int slot_number)
{
    const char* server = view_block(block.at).server;
    zrk4_client_sblock_data* const end = slot.entries() + slot.filled();
    auto* const twin = std::find_if(slot.entries(), end, [&](const auto& e) { return same_name(e.name, server); });
    if (twin != end) {
        refuse_duplicate(bm, block, *twin);
        return false;
    }
    typename Form::head& head = slot.head();
    if (head.sbfilled >= head.nsblocks || !slot.fits(event_slot<Form>::ENTRY)) {
        say("ev_update(): Nummber of SB blocks collected(%d) == expected (%d), current will be dropped:", head.sbfilled,
            head.nsblocks);
        say_block(block.at);
        say_slot(head);
        return false;
    }
    if (!add_entry<Form>(bm, block, slot, slot_number) || !add_totals<Form>(block, slot)) return false;
    write_unlocked(&head.lupdate, time_now());
    return true;
}

// The count of channels is read from the incoming block once more, not from the one in the slot, so the new block is
// normally found not to be better. Required so: a reader may be at work on the one in the slot.
void bm_core::refuse_duplicate(BM& bm, const new_block& block, zrk4_client_sblock_data& entry)
{
    const int id = block.id;
    const int bnum = block.bnum;
    const block_view incoming = view_block(block.at);
    say("ev_update(): SB duplication %.255s", incoming.server);
    const int channels = view_block(block.at).nchan;
    say("ev_update(): SB duplication in ev slot channels:%d  new channels; %d shmid: %d (%d)", channels, incoming.nchan,
        entry.shmid, id);
    const auto give_back = [&](int shmid, int number) {
        return without_exceptions(false, [&] {
            return bm.get_buffer_address(number, shmid, true) != nullptr && !bm.return_buffer_in_pool(number, shmid);
        });
    };
    if (incoming.nchan <= channels) {
        if (give_back(id, bnum)) {
            say("ev_update(): BM FREED (NEW) id: %d bnum: %d", id, bnum);
        } else {
            say("ev_update(): failed to free id: %d bnum: %d", id, bnum);
        }
        return;
    }
    say("ev_update(): SB duplication new SB is better ... substituting");
    if (entry.shmid == id && entry.bnum == bnum) return;
    const int old_id = entry.shmid;
    const int old_bnum = entry.bnum;
    if (give_back(old_id, old_bnum)) {
        say("ev_update(): BM FREED (OLD) id: %d bnum: %d", old_id, old_bnum);
    } else {
        say("ev_update(): failed to free id: %d bnum: %d", old_id, old_bnum);
    }
    entry.shmid = id;
    entry.bnum = bnum;
}

namespace {

// Asked at every entry. Nine reports of an event with too many blocks are enough for a process, of whatever form.
bool may_report()
{
    static std::atomic<int> left{10};
    return left > 0 && --left > 0;
}

} // namespace

template <class Form> bool bm_core::add_entry(BM& bm, const new_block& block, event_slot<Form>& slot, int slot_number)
{
    if (block.read.name == nullptr) {
        say("No function to find the name !!!");
        return false;
    }
    const char* name = block.read.name(block.at);
    zrk4_client_sblock_data& entry = slot.entries()[slot.filled()];
    store_name(entry.name, name == nullptr ? std::string_view() : name_view(name));
    entry.shmid = block.id;
    entry.bnum = block.bnum;
    typename Form::head& head = slot.head();
    head.sbfilled += 1;
    slot.refresh();
    if (may_report() && head.sbfilled > head.nsblocks) print_out_event(&bm, &head, bm.ev_buf, slot_number, false);
    return true;
}

// What was written before a missing reader is met stays: the block is in the event.
template <class Form> bool bm_core::add_totals(const new_block& block, event_slot<Form>& slot)
{
    char* at = block.at;
    typename Form::head& head = slot.head();
    const head_readers& read = block.read;
    if (read.length == nullptr) {
        say("No function to find the length !!!");
        return false;
    }
    Form::add_size(head, read.length(at));
    if (read.trigger == nullptr) {
        say("No function to find the trigger mask !!!");
        return false;
    }
    head.tmask |= read.trigger(at);
    if (read.status == nullptr) {
        say("No function to find the status !!!");
        return false;
    }
    head.status |= read.status(at);
    if (read.id == nullptr) {
        say("No function to find the event Id !!!");
        return false;
    }
    Form::add_event_id(head, read.id(at));
    return true;
}
