// Events that wait for ever: a client of theirs is gone, and a live one has come into its slot.
#include "check_run.h"
#include "client_slot.h"
#include "process_life.h"
#include "queue_look.h"

namespace zrk4::impl {
namespace {

/// A client block in which somebody seems to be at work.
struct stale_client {
    int event_slot;
    slot_identity event;
    int index;
    int client_slot;
    pid_t pid; ///< of the slot's present owner
    std::string why;

    bool same_block(const stale_client& other) const
    {
        return event_slot == other.event_slot && event == other.event && index == other.index &&
               client_slot == other.client_slot;
    }
};

/// Ends the wait for a client that is gone; an event that waits for nobody else is ended as by its last reader.
template <class Form> class event_mender {
  public:
    event_mender(check_run& run, const stale_client& stale) : run_(run), stale_(stale) {}

    bool mend()
    {
        if (!set_done()) return false;
        if (finished_) end_event();
        return true;
    }

  private:
    bool set_done()
    {
        const event_locks locks(*run_.events, stale_.event_slot, run_.request.patience);
        const event_slot<Form> slot(*run_.events, stale_.event_slot);
        if (!locks || !still_there(slot) || stale_.index >= slot.nclients()) return false;
        zrk4_client_block& block = slot.clients()[stale_.index];
        if (block.snum != stale_.client_slot || block.status != CLI_S_PROC) return false;
        block.status = CLI_S_DONE;
        finished_ = std::all_of(slot.clients(), slot.clients() + slot.nclients(),
                                [](const auto& c) { return c.status == CLI_S_DONE; });
        return true;
    }

    bool still_there(const event_slot<Form>& slot) const
    {
        return slot && event_table<Form>(*run_.events).used(stale_.event_slot) && slot.identity() == stale_.event;
    }

    // One block in one hold of the locks. Whoever comes in between finds a finished event, and ends the rest of it.
    void end_event()
    {
        for (int i = 0; return_block(i); ++i) {}
        const raw_lock control(*run_.events, lock_of_slot(0), run_.request.patience);
        const event_slot<Form> slot(*run_.events, stale_.event_slot);
        if (!control || !still_there(slot)) return;
        event_table<Form>(*run_.events).of(stale_.event_slot).status = EVT_C_FREE;
        give_back(*run_.events, stale_.event_slot, run_.request.patience, [] { return true; });
    }

    /// @return whether there was an entry `i`.
    bool return_block(int i)
    {
        const raw_lock control(*run_.events, lock_of_slot(0), run_.request.patience);
        const event_slot<Form> slot(*run_.events, stale_.event_slot);
        if (!control || !still_there(slot) || i >= slot.filled()) return false;
        zrk4_client_sblock_data& entry = slot.entries()[i];
        const int shmid = entry.shmid;
        const int bnum = entry.bnum;
        if (is_hole(entry) || bnum < 0) return true;
        entry.bnum = -1; // a hole before its buffer goes, as everywhere
        for (const raw_partition* part : run_.data) {
            if (part->shmid() == shmid && bnum < part->getBufferCount())
                give_back(*part, bnum, run_.request.patience, [] { return true; });
        }
        entry.shmid = 0;
        return true;
    }

    check_run& run_;
    const stale_client& stale_;
    bool finished_ = false;
};

/// A block in the state of work names a slot whose present owner cannot be the one that works: the monitor takes him for
/// it and keeps the event. A slot that is free, or a client that was only told, the monitor deals with.
class stale_watch : public watched {
  public:
    explicit stale_watch(check_run& run) : run_(run) {}

    void look() override {}

    bool still(const event_listing& listing) override
    {
        std::vector<stale_client> now;
        for (const seen_event& e : listing.events()) {
            for (int i = 0; i < static_cast<int>(e.clients.size()); ++i) add_if_stale(e, i, now);
        }
        stale_ = std::move(now);
        first_ = false;
        return !stale_.empty();
    }

    void settle(const event_listing& /*listing*/) override
    {
        for (const stale_client& stale : stale_) {
            const bool mended = run_.request.repair && in_records(run_.request.records_2024, [&](auto form) {
                                    return event_mender<decltype(form)>(run_, stale).mend();
                                });
            const std::string text = worded("event slot %d waits for client slot %d, %s", stale.event_slot,
                                            stale.client_slot, stale.why.c_str());
            run_.found(4, run_.events->name(), stale.event_slot, stale.pid, text, mended);
        }
    }

  private:
    void add_if_stale(const seen_event& e, int i, std::vector<stale_client>& now) const
    {
        const zrk4_client_block& block = e.clients[static_cast<size_t>(i)];
        const int snum = block.snum;
        if (block.status != CLI_S_PROC || snum < 1 || snum >= run_.clients->getBufferCount()) return;
        const client_slot client(*run_.clients, snum);
        if (!client || !run_.clients->handed_out(snum)) return;
        const zrk4_client_slot_head head = client.head_now();
        if (head.cltype != CLI_T_READER && head.cltype != CLI_T_WRITER) return; // being subscribed
        stale_client found{e.slot, e.identity, i, snum, head.pid, ""};
        if (static_cast<int32_t>(head.evtype) != e.evtype) {
            found.why = "which has a client of another event type";
        } else if (began_after(head.pid, e.identity.start)) {
            found.why = worded("whose process %d began after the event", head.pid);
        } else {
            return;
        }
        const auto same = [&](const stale_client& s) { return s.same_block(found); };
        if (first_ || std::any_of(stale_.begin(), stale_.end(), same)) now.push_back(found);
    }

    check_run& run_;
    bool first_ = true;
    std::vector<stale_client> stale_;
};

} // namespace

std::unique_ptr<watched> watch_stale_clients(check_run& run) { return std::make_unique<stale_watch>(run); }

} // namespace zrk4::impl
