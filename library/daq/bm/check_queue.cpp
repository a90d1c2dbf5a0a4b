// The queues of a partition, the flags that go with them, and the count of free buffers.
#include <algorithm>
#include <cstring>

#include "check_run.h"

namespace zrk4::impl {
namespace {

/// One queue, walked as far as it is sound.
struct queue_walk {
    std::vector<int> reached;
    std::string flaw; ///< why the walk ended early, or "" at a proper end
    int flaw_at = -1; ///< buffer whose link is wrong, -1 when it is the head
};

enum : uint8_t { IN_NONE, IN_FREE, IN_FULL };

queue_walk walk(const C_shm_BufferQ& queue, const C_shm_buf* bufs, const char* name, uint8_t tag,
                std::vector<uint8_t>& seen)
{
    const int nbuf = static_cast<int>(seen.size());
    queue_walk result;
    int before = -1;
    for (int i = queue.head; i >= 0; i = bufs[i].link) {
        const std::string where =
            before < 0 ? worded("the %s queue begins at", name) : worded("the %s queue leads from %d to", name, before);
        if (i >= nbuf) {
            result.flaw = where + worded(" buffer %d, which does not exist", i);
        } else if (seen[static_cast<size_t>(i)] == tag) {
            result.flaw = where + worded(" buffer %d a second time", i);
        } else if (seen[static_cast<size_t>(i)] != IN_NONE) {
            result.flaw = where + worded(" buffer %d, which is in the other queue", i);
        }
        result.flaw_at = before;
        if (!result.flaw.empty()) return result;
        seen[static_cast<size_t>(i)] = tag;
        result.reached.push_back(i);
        before = i;
    }
    // The tail of an empty queue is not read by anybody.
    if (before >= 0 && queue.tail != before) {
        result.flaw = worded("the %s queue ends at buffer %d, its tail is %d", name, before, queue.tail);
        result.flaw_at = before;
    }
    return result;
}

struct flaw {
    int invariant;
    int number;
    int64_t owner;
    std::string text;
};

/// Both queues and all flags of a table of descriptors, the living one or a copy.
class queue_look {
  public:
    queue_look(C_shm_global& control, int nbuf)
        : control_(control), bufs_(reinterpret_cast<C_shm_buf*>(&control + 1)), seen_(static_cast<size_t>(nbuf))
    {
        free_ = walk(control.free, bufs_, "free", IN_FREE, seen_);
        full_ = walk(control.full, bufs_, "full", IN_FULL, seen_);
    }

    int free_length() const { return static_cast<int>(free_.reached.size()); }

    std::vector<flaw> flaws() const
    {
        std::vector<flaw> all;
        for (const queue_walk* w : {&free_, &full_}) {
            if (!w->flaw.empty()) all.push_back({1, w->flaw_at, 0, w->flaw});
        }
        for (int i = 0; i < count(); ++i) {
            const uint8_t in = seen_[static_cast<size_t>(i)];
            const C_shm_buf& buf = bufs_[i];
            if (buf.queued() == (in != IN_NONE)) continue;
            const char* text = in == IN_NONE   ? "buffer %d is flagged queued and in no queue"
                               : in == IN_FREE ? "buffer %d is in the free queue and not flagged queued"
                                               : "buffer %d is in the full queue and not flagged queued";
            all.push_back({2, i, buf.owner_pid, worded(text, i)});
        }
        return all;
    }

    /// Keeps the sound part, flags what is in it, and appends what is flagged and was not reached.
    void mend()
    {
        keep_sound_part(control_.free, free_);
        keep_sound_part(control_.full, full_);
        for (int i = 0; i < count(); ++i) {
            if (seen_[static_cast<size_t>(i)] != IN_NONE) {
                bufs_[i].status |= BUF_QUEUED;
            } else if (bufs_[i].queued()) {
                append_free(control_, bufs_, i);
            }
        }
    }

  private:
    int count() const { return static_cast<int>(seen_.size()); }

    void keep_sound_part(C_shm_BufferQ& queue, const queue_walk& w) const
    {
        if (w.flaw.empty()) return;
        if (w.reached.empty()) {
            queue.init();
            return;
        }
        queue.tail = w.reached.back();
        bufs_[w.reached.back()].link = -1;
    }

    C_shm_global& control_;
    C_shm_buf* bufs_;
    std::vector<uint8_t> seen_;
    queue_walk free_, full_;
};

/// A copy of control block and descriptors, taken under the gate together with the count of free buffers.
class table_copy {
  public:
    explicit table_copy(const raw_partition& part)
        : part_(part), bytes_(part.segment().at(), part.segment().at() + part.table_size())
    {
    }
    bool take(raw_lock::patience patience)
    {
        const raw_lock gate(part_, gbl_gate, patience);
        if (!gate) return false;
        copy_unlocked(bytes_.data(), part_.segment().at(), bytes_.size());
        counted_ = part_.value(gbl_empty);
        return true;
    }
    queue_look look() { return {*reinterpret_cast<C_shm_global*>(bytes_.data()), part_.getBufferCount()}; }
    int counted() const { return counted_; }

  private:
    const raw_partition& part_;
    std::vector<char> bytes_; // read once unlocked: under the gate no page is missing any more
    int counted_ = 0;
};

} // namespace

void check_queues(check_run& run, const raw_partition& part)
{
    table_copy table(part);
    if (!table.take(run.request.patience)) return run.busy(part, gbl_gate);
    std::vector<flaw> flaws = table.look().flaws();
    if (flaws.empty()) return;
    bool mended = false;
    if (run.request.repair) {
        const raw_lock gate(part, gbl_gate, run.request.patience);
        if (gate) {
            queue_look now(part.control(), part.getBufferCount());
            flaws = now.flaws();
            now.mend();
            mended = true;
        }
    }
    for (flaw& f : flaws) run.found(f.invariant, part.name(), f.number, f.owner, std::move(f.text), mended);
}

namespace {

/// The count moves before the queue when a buffer is taken and after it when one returns: only what every look of the
/// observation shows is lost.
class count_watch : public watched {
  public:
    count_watch(check_run& run, const raw_partition& part) : run_(run), part_(part), table_(part) {}

    void look() override
    {
        if (!table_.take(run_.request.patience)) {
            settled_ = true;
            return run_.busy(part_, gbl_gate);
        }
        const queue_look now = table_.look();
        queued_ = now.free_length();
        const int lost = queued_ - table_.counted();
        const bool same_side = first_ || (lost > 0) == (lost_ > 0);
        if (table_.counted() < 0 || lost == 0 || !same_side || !now.flaws().empty()) {
            settled_ = true; // what moves is not lost, and the length of a broken queue tells nothing
        } else if (first_ || std::abs(lost) < std::abs(lost_)) {
            lost_ = lost;
        }
        first_ = false;
    }

    bool still(const event_listing& /*listing*/) override { return !settled_; }

    void settle(const event_listing& /*listing*/) override
    {
        if (settled_) return;
        const std::string text =
            worded("the count of free buffers is %d, the free queue has %d", queued_ - lost_, queued_);
        const bool repaired = run_.request.repair && change_count(part_, gbl_empty, lost_);
        run_.found(3, part_.name(), -1, 0, text, repaired);
    }

  private:
    check_run& run_;
    const raw_partition& part_;
    table_copy table_;
    bool first_ = true;
    bool settled_ = false;
    int queued_ = 0;
    int lost_ = 0; // smallest difference seen; negative: counted and not there
};

} // namespace

std::unique_ptr<watched> watch_count(check_run& run, const raw_partition& part)
{
    return std::make_unique<count_watch>(run, part);
}

} // namespace zrk4::impl
