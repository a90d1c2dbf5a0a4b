// The owners of a data partition's buffers: who is out without an event, and whether somebody may still use him.
#include <map>
#include <set>

#include "block_form.h"
#include "check_run.h"
#include "names.h"
#include "pool_block.h"
#include "process_life.h"
#include "queue_look.h"

namespace zrk4::impl {
namespace {

/// Whether a buffer holds the block that a mark was left for: its server's name, and its event's time or id.
bool may_be_of(const raw_partition& part, int bnum, const return_mark& mark)
{
    const char* at = part.buffer_addr(bnum);
    if (at == nullptr || part.getBufferLength() < static_cast<int>(sizeof(uint64_t))) return false;
    const size_t head = is_2024(at) ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
    if (static_cast<size_t>(part.getBufferLength()) < head) return false;
    const block_view block = view_block(at);
    return name_view(block.server).substr(0, NAME_SIZE - 1) == mark.name &&
           (same_time(block.time, mark.event.time) || block.mpulse == mark.eventid);
}

/// Buffers that are out and in no event, by number, with their owners.
using loose_buffers = std::map<int, pid_t>;

class buffer_watch : public watched {
  public:
    buffer_watch(check_run& run, const raw_partition& part) : run_(run), part_(part), table_(part) {}

    // Only what was out before the event slots were read, and with the same owner as at every look, can be loose. A broken
    // queue says nothing of who is out.
    void look() override
    {
        if (!table_.take(run_.request.patience)) {
            readable_ = false;
            return run_.busy(part_, gbl_gate);
        }
        readable_ = table_.queues().flaws().empty();
        loose_buffers now;
        for (int i = 0; i < part_.getBufferCount(); ++i) {
            const C_shm_buf& buf = table_.descriptor(i);
            const pid_t owner = buf.owner_pid;
            const auto before = loose_.find(i);
            const bool as_before = before != loose_.end() && before->second == owner;
            if (!buf.queued() && (first_ || as_before)) now.emplace(i, owner);
        }
        loose_ = std::move(now);
        ask_for_owners();
    }

    bool still(const event_listing& listing) override
    {
        if (!run_.listing_trusted || !readable_) return false;
        std::erase_if(loose_, [&](const auto& b) { return listing.lists(part_.shmid(), b.first); });
        keep_marks_of(listing);
        first_ = false;
        if (loose_.empty()) {
            // Every buffer is accounted for: the marks speak of some that are back.
            if (run_.request.repair) clear_marks();
            return false;
        }
        return run_.request.list_held || !marks_.empty() ||
               std::any_of(loose_.begin(), loose_.end(), [&](const auto& b) { return is_gone(b.second); });
    }

    void settle(const event_listing& listing) override
    {
        // A slot that was read without its lock may have hidden an entry in the middle of being moved.
        if (!listing.whole()) return;
        loose_buffers held;
        for (const auto& [bnum, owner] : loose_) {
            if (is_gone(owner)) {
                settle_lost(bnum, owner);
            } else {
                held.emplace(bnum, owner);
            }
        }
        settle_held(held);
    }

  private:
    // Before the event slots are read: who lives now may still enter his buffer, and be gone when it is asked for.
    void ask_for_owners()
    {
        segment_users users(part_.shmid());
        gone_.clear();
        for (const auto& [bnum, owner] : loose_) {
            if (!users.can_hold(owner)) gone_.insert(owner);
        }
    }
    bool is_gone(pid_t owner) const { return gone_.count(owner) != 0; }

    // A mark that comes while we look belongs to a buffer that we did not see leave its event.
    void keep_marks_of(const event_listing& listing)
    {
        std::vector<return_mark> now;
        for (const return_mark& mark : listing.marks()) {
            const auto same = [&](const return_mark& m) {
                return m.slot == mark.slot && m.index == mark.index && m.event == mark.event;
            };
            const bool known = first_ || std::any_of(marks_.begin(), marks_.end(), same);
            if (mark.shmid == part_.shmid() && known) now.push_back(mark);
        }
        marks_ = std::move(now);
    }

    // Asked again with the gate in hand: a process that left may have come back.
    second_look look_again(int bnum, pid_t owner, bool must_be_gone) const
    {
        const auto stands = [&] {
            return part_.owner(bnum) == owner && (!must_be_gone || !segment_users(part_.shmid()).can_hold(owner));
        };
        if (run_.request.repair)
            return give_back(part_, bnum, run_.request.patience, stands) ? second_look::mended : second_look::moved;
        const raw_lock gate(part_, gbl_gate, run_.request.patience);
        return gate && part_.handed_out(bnum) && stands() ? second_look::stands : second_look::moved;
    }

    void settle_lost(int bnum, pid_t owner)
    {
        const std::string text =
            worded("buffer %d was taken by process %d, which is gone, and is in no event", bnum, owner);
        run_.confirmed(look_again(bnum, owner, true), 4, part_.name(), bnum, owner, text);
    }

    // A mark says that one buffer was on its way back when a process died. As many marks as buffers that fit them, and no
    // other buffer out: then these are the ones.
    void settle_held(const loose_buffers& held)
    {
        loose_buffers fitting;
        for (const return_mark& mark : marks_) {
            for (const auto& b : held) {
                if (may_be_of(part_, b.first, mark)) fitting.insert(b);
            }
        }
        const bool certain = !marks_.empty() && held.size() == marks_.size() && fitting.size() == marks_.size();
        for (const auto& [bnum, owner] : held) {
            if (certain) {
                settle_returning(bnum, owner);
            } else if (!marks_.empty() && (fitting.empty() || fitting.count(bnum) != 0)) {
                undecidable(bnum, owner, "or was on its way back when another process died");
            } else if (run_.request.list_held) {
                undecidable(bnum, owner, "and was in no event for the whole observation");
            }
        }
        if (run_.request.repair && (certain || held.empty())) clear_marks();
    }

    void settle_returning(int bnum, pid_t owner)
    {
        const std::string text = worded("buffer %d was on its way back when a process died", bnum);
        run_.confirmed(look_again(bnum, owner, false), 4, part_.name(), bnum, owner, text);
    }

    void undecidable(int bnum, pid_t owner, const char* why)
    {
        run_.found(4, part_.name(), bnum, owner, worded("buffer %d is held by process %d, %s", bnum, owner, why), false)
            .verdict = bm_verdict::undecidable;
    }

    void clear_marks() const
    {
        in_records(run_.request.records_2024, [&](auto form) {
            for (const return_mark& mark : marks_) clear_mark<decltype(form)>(mark);
        });
    }

    template <class Form> void clear_mark(const return_mark& mark) const
    {
        const event_locks locks(*run_.events, mark.slot, run_.request.patience);
        const event_slot<Form> slot(*run_.events, mark.slot);
        if (!locks || !slot || !(slot.identity() == mark.event) || mark.index >= slot.filled()) return;
        zrk4_client_sblock_data& entry = slot.entries()[mark.index];
        if (entry.shmid == mark.shmid && entry.bnum == -1) entry.shmid = 0;
    }

    check_run& run_;
    const raw_partition& part_;
    table_copy table_;
    bool first_ = true;
    bool readable_ = true;
    loose_buffers loose_;
    std::set<pid_t> gone_; // owners of loose ones
    std::vector<return_mark> marks_;
};

} // namespace

std::unique_ptr<watched> watch_buffers(check_run& run, const raw_partition& part)
{
    return std::make_unique<buffer_watch>(run, part);
}

} // namespace zrk4::impl
