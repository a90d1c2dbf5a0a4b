// A new event: which clients take part, how many blocks it expects, and what is known to be missing from the start.
#include "BM.h"

#include <csignal>
#include <optional>
#include <string>
#include <unordered_set>

#include "bm_core.h"
#include "client_slot.h"
#include "partition_state.h"
#include "text_later.h"
#include "zero_fill.h"

using namespace zrk4::impl;

bool BM::init_ev_slot(ZRK4_EVTYPE evtype, int bnum, char* evhd)
{
    const text_later texts;
    return without_exceptions(true, [&] {
        const head_readers read = bm_core::head_readers_of(*this, evtype);
        return bm_core::in_form(*this, [&](auto form) {
            return bm_core::fill_event_slot<decltype(form)>(*this, evtype, bnum, evhd, read);
        });
    });
}

namespace {

// Another process may have left any number: it must not overflow.
int32_t wrapped_sum(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

struct block_facts {
    time_stamp key;
    int trigger;
    int status;
    int64_t id;
};

// Names that the writers of one event type list, for the question which wanted name nobody will deliver.
class listed_names {
  public:
    void add(const name_list& names)
    {
        lists_.push_back(names);
        total_ += names.count;
    }
    bool contains(const char* name)
    {
        if (total_ <= COMPARE_EACH) {
            for (const name_list& list : lists_) {
                if (list.contains(name)) return true;
            }
            return false;
        }
        if (index_.empty()) {
            for (const name_list& list : lists_) list.add_to(index_);
        }
        return index_.count(name_view(name)) != 0;
    }

  private:
    static constexpr int COMPARE_EACH = 32;
    std::vector<name_list> lists_;
    std::unordered_set<std::string_view> index_;
    int total_ = 0;
};

} // namespace

/// Fills a slot from its head on: all client blocks first, because the entries begin directly behind the last one.
template <class Form> class bm_core::event_filler {
  public:
    event_filler(BM& bm, ZRK4_EVTYPE evtype, event_slot<Form>& slot, int trigger)
        : bm_(bm), clients_(*bm.cl_buf), evtype_(evtype), slot_(slot), trigger_(trigger), now_(slot.head().start)
    {
    }

    /// @return true when the slot has not room for all.
    bool add_clients()
    {
        // Kept over the walk: no client of the event is thrown out or leaves beside it.
        slot_lock control(clients_, 0);
        of_this_type_.reserve(USUAL);
        for_each_held_slot(clients_, [&](int c) {
            if (client_now(c).evtype == evtype_) of_this_type_.push_back(c);
        });
        for (const int c : of_this_type_) visit(c);
        control.unlock();
        return no_room_;
    }

    bool add_placeholders()
    {
        for (const int writer : timed_) add_timed(writer);
        for (const std::string& name : missed_) add_missed(name);
        return no_room_;
    }

  private:
    static constexpr size_t USUAL = 32; // clients; more cost further allocations
    static constexpr zrk4_client_slot_head NOBODY{0, {}, 0, ZRK4_EV_EVMAX, CLI_T_INVAL};

    // A slot that is free by now, or not this type's any more, is nobody's.
    zrk4_client_slot_head client_now(int c) const
    {
        const client_slot client(clients_, c);
        if (!client || !is_handed_out(clients_, c)) return NOBODY;
        return client.head_now();
    }

    void visit(int c)
    {
        const zrk4_client_slot_head head = client_now(c);
        if (head.evtype != evtype_ || no_room_) return;
        const client_slot client(clients_, c);
        if (head.pid != bm_.mpid && direct::kill(head.pid, 0) != 0) {
            kick_out(c, head.pid);
        } else if (head.cltype == CLI_T_WRITER) {
            add_writer(c, client, head);
        } else if (head.cltype == CLI_T_READER) {
            visit_reader(c, client, head);
        }
    }

    // The dead reader's port is not ours to close: by now it may even be this process's own.
    void kick_out(int c, pid_t pid)
    {
        say("init_ev_slot(): %d  will be kicked out", pid);
        listed_.reset();
        free_client_unless_locked(bm_, c);
    }

    // Our own writer is at work already: it creates the event.
    void add_writer(int c, const client_slot& client, const zrk4_client_slot_head& head)
    {
        if (!add_client(c, head.pid == bm_.mpid ? CLI_S_PROC : CLI_S_WAIT)) return;
        slot_.head().nsblocks = wrapped_sum(slot_.head().nsblocks, word_unlocked(&client.writer().nsblocks));
    }

    void visit_reader(int c, const client_slot& client, const zrk4_client_slot_head& head)
    {
        const zrk4_client wants = read_unlocked(&client.reader().client);
        if (!admits(wants, head.atime)) {
            remember_own_writer_of(c, head.pid);
            return;
        }
        client.renew(now_);
        if (!add_client(c, CLI_S_WAIT)) return;
        const name_list names = client.reader_names();
        for (int k = 0; k < names.count; ++k) remember_if_missed(names.at(k));
    }

    bool admits(const zrk4_client& wants, time_stamp since)
    {
        time_stamp ratio = wants.time_ratio;
        return (wants.tmask & trigger_) != 0 || (ratio.timeup == 0 && ratio.timelow == 0) ||
               bm_.time_expired(&now_, &since, &ratio);
    }

    // A process that reads and writes this type and does not see this event cannot be waited for as a writer either.
    void remember_own_writer_of(int reader, pid_t pid)
    {
        for (const int c : of_this_type_) {
            const zrk4_client_slot_head head = client_now(c);
            if (c == reader || head.pid != pid || head.cltype != CLI_T_WRITER || head.evtype != evtype_) continue;
            timed_.push_back(c);
            return;
        }
    }

    void remember_if_missed(const char* name)
    {
        if (!listed_) collect_listed();
        if (listed_->contains(name)) return;
        std::string missing(name_view(name));
        if (missed_seen_.insert(missing).second) missed_.push_back(std::move(missing));
    }

    void collect_listed()
    {
        listed_.emplace();
        for (const int c : of_this_type_) {
            const zrk4_client_slot_head head = client_now(c);
            if (head.cltype == CLI_T_WRITER && head.evtype == evtype_ && head.pid != 0)
                listed_->add(client_slot(clients_, c).writer_names());
        }
    }

    bool add_client(int c, BUF_MNG_CLI_STATUS status)
    {
        no_room_ = no_room_ || !slot_.fits(event_slot<Form>::CLIENT);
        if (no_room_) return false;
        slot_.clients()[slot_.nclients()] = {c, status};
        slot_.head().nclients += 1;
        slot_.refresh();
        return true;
    }

    bool add_hole(std::string_view name)
    {
        no_room_ = no_room_ || !slot_.fits(event_slot<Form>::ENTRY);
        if (no_room_) return false;
        zrk4_client_sblock_data& entry = slot_.entries()[slot_.filled()];
        store_name(entry.name, name);
        entry.shmid = 0;
        entry.bnum = -1;
        slot_.head().sbfilled += 1;
        slot_.refresh();
        return true;
    }

    void add_timed(int writer)
    {
        if (zrk4_client_block* block = slot_.client(writer)) block->status = CLI_S_DONE;
        const client_slot client(clients_, writer);
        if (!client) return;
        client.count_event();
        const name_list names = client.writer_names();
        for (int k = 0; k < names.count; ++k) {
            if (!add_hole(name_view(names.at(k)))) return;
            if (bm_.timed_blocks_debug <= 0) continue;
            say("Timed blocks !!! %.255s", names.at(k));
            --bm_.timed_blocks_debug;
        }
    }

    void add_missed(const std::string& name)
    {
        if (!add_hole(name)) return;
        slot_.head().nsblocks += 1;
        if (bm_.missed_blocks_debug <= 0) return;
        say("Missed blocks !!! %.255s", name.c_str());
        --bm_.missed_blocks_debug;
    }

    BM& bm_;
    C_shm_buffer& clients_;
    ZRK4_EVTYPE evtype_;
    event_slot<Form>& slot_;
    int trigger_;
    time_stamp now_;
    std::vector<int> of_this_type_;      // client slots, ascending
    std::optional<listed_names> listed_; // collected with the first wanted name, again after a writer was thrown out
    std::vector<int> timed_;
    std::vector<std::string> missed_;
    std::unordered_set<std::string> missed_seen_;
    bool no_room_ = false;
};

template <class Form>
bool bm_core::fill_event_slot(BM& bm, ZRK4_EVTYPE evtype, int number, char* block, const head_readers& read)
{
    if (block == nullptr || !is_event_type(evtype) || number < 1) {
        const auto first_word = block == nullptr ? 0U : static_cast<unsigned>(word_unlocked(block));
        say("init_ev_slot(): invalid parameter(s) evtype:%d bnum:%d evhd:%u", evtype, number, first_word);
        return true;
    }
    if (!attached(bm) || own_writer_slot(bm, evtype) < 0) {
        say("init_ev_slot(): no write registration found for event type: %d", evtype);
        return true;
    }
    event_slot<Form> slot(*bm.ev_buf, number);
    if (!slot) {
        say("init_ev_slot(): failed to get the buffer address for event slot: %d", number);
        return true;
    }
    if (read.key == nullptr || read.trigger == nullptr || read.status == nullptr || read.id == nullptr) return true;
    const time_stamp* key = read.key(block);
    if (key == nullptr) return true;
    const block_facts facts{*key, read.trigger(block), read.status(block), read.id(block)};
    clear_event_slot<Form>(bm, slot, number);
    if (facts.key.timeup == 0)
        say("!!!!!!!! init_ev_slot(): time stamp is: %d:%d", 0, static_cast<int>(facts.key.timelow));
    if (bm.smode == BM_SYNCH_EVID && facts.id == 0)
        say("!!!!!!!! init_ev_slot(): eventId: %ld", static_cast<long>(facts.id));
    typename Form::head& head = slot.head();
    Form::mark(head);
    head.time = facts.key;
    Form::set_event_id(head, facts.id);
    head.evtype = evtype;
    head.tmask = facts.trigger;
    head.status = facts.status;
    head.start = time_now();
    event_filler<Form> filler(bm, evtype, slot, facts.trigger);
    if (filler.add_clients() || filler.add_placeholders()) return true;
    // Last: somebody who still looks at the event that was in this slot must not take the half of this one for it.
    store_released(&head.pid, static_cast<pid_t>(bm.mpid));
    return false;
}

// Clearing a whole slot for every event would cost more than all the rest of the event. What the last event wrote is
// what its head shows; only where that cannot be trusted, and the first time, the whole length is cleared.
template <class Form> void bm_core::clear_event_slot(BM& bm, event_slot<Form>& slot, int number)
{
    constexpr int64_t BEHIND = event_slot<Form>::ENTRY;
    constexpr int64_t LAST = 64;
    const typename Form::head& old = slot.head();
    const bool first_time = bm.own->cleared_whole[static_cast<size_t>(number)].exchange(1) == 0;
    const int64_t used = slot.used();
    const bool as_stored = old.nclients == slot.nclients() && old.sbfilled == slot.filled();
    const bool known = !first_time && Form::sound(old) && as_stored && used + BEHIND + LAST <= slot.room() &&
                       all_zero(slot.address() + used, BEHIND) && all_zero(slot.address() + slot.room() - LAST, LAST);
    zero_fill(slot.address(), static_cast<size_t>(known ? used : slot.room()));
    slot.refresh();
}

template bool bm_core::fill_event_slot<slots_2010>(BM&, ZRK4_EVTYPE, int, char*, const head_readers&);
template bool bm_core::fill_event_slot<slots_2024>(BM&, ZRK4_EVTYPE, int, char*, const head_readers&);
