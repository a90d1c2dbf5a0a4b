// The queues of a partition, the flags that go with them, and the count of free buffers.
#include <cstdlib>

#include "check_run.h"
#include "queue_look.h"

namespace zrk4::impl {

void check_queues(check_run& run, const raw_partition& part)
{
    table_copy table(part);
    if (!table.take(run.request.patience)) return run.busy(part, gbl_gate);
    std::vector<queue_flaw> flaws = table.queues().flaws();
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
    for (queue_flaw& f : flaws) run.found(f.invariant, part.name(), f.number, f.owner, std::move(f.text), mended);
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
        const queue_look now = table_.queues();
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
