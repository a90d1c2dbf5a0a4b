// Event slots against their control entries, and the control records themselves.
#include <unistd.h>

#include "check_run.h"
#include "queue_look.h"

namespace zrk4::impl {
namespace {

std::string words_of(const seen_event& e)
{
    if (e.status == EVT_C_USED && !e.handed_out)
        return worded("event slot %d is in the free queue, its control entry is used", e.slot);
    if (e.status == EVT_C_FREE && e.handed_out)
        return worded("event slot %d is handed out, its control entry is free", e.slot);
    if (e.status != EVT_C_USED && e.status != EVT_C_FREE)
        return worded("the control entry of event slot %d has status %d", e.slot, e.status);
    return "";
}

// Takes a buffer out of the free queue as an allocator does: counted first.
bool take_out(const raw_partition& part, int i, raw_lock::patience patience)
{
    const bool counted = change_count(part, gbl_empty, -1);
    const raw_lock gate(part, gbl_gate, patience);
    if (!gate || !part.descriptors()[i].queued()) {
        if (counted) change_count(part, gbl_empty, 1);
        return false;
    }
    part.control().free.remove(part.descriptors(), i);
    return true;
}

// A used entry keeps its slot: what it lists must not be handed out anew, and the monitor ends it. Exact, because taking
// and freeing of event slots hold lock 0.
template <class Form> bool mend(check_run& run, const seen_event& e)
{
    const raw_partition& part = *run.events;
    const raw_lock control(part, lock_of_slot(0), run.request.patience);
    const event_table<Form> table(part);
    typename Form::entry& entry = table.of(e.slot);
    if (!control || entry.status != e.status || part.handed_out(e.slot) != e.handed_out) return false;
    if (e.status == EVT_C_USED) return take_out(part, e.slot, run.request.patience);
    if (e.status == EVT_C_FREE) return give_back(part, e.slot, run.request.patience, [] { return true; });
    entry.status = e.handed_out ? EVT_C_USED : EVT_C_FREE;
    return true;
}

} // namespace

void check_event_slots(check_run& run)
{
    const raw_partition& part = *run.events;
    for (const seen_event& e : run.listing.events()) {
        std::string text = words_of(e);
        // A slot that serves as a data buffer, by mistake of its writer, is not an event's.
        if (text.empty() || run.listing.lists(part.shmid(), e.slot)) continue;
        const bool mended = run.request.repair && in_records(run.request.records_2024,
                                                             [&](auto form) { return mend<decltype(form)>(run, e); });
        run.found(6, part.name(), e.slot, part.owner(e.slot), std::move(text), mended);
    }
}

namespace {

/// A master takes buffer 0 right after it has made the partition: only where it stays in the queue has it died.
class control_record_watch : public watched {
  public:
    control_record_watch(check_run& run, const raw_partition& part) : run_(run), part_(part) {}
    void look() override { queued_ = queued_ && !part_.handed_out(0); }
    bool still(const event_listing& /*listing*/) override { return queued_; }
    void settle(const event_listing& /*listing*/) override
    {
        const bool mended = run_.request.repair && take_out(part_, 0, run_.request.patience);
        run_.found(10, part_.name(), 0, 0, "buffer 0, the control record, is in the free queue", mended);
    }

  private:
    check_run& run_;
    const raw_partition& part_;
    bool queued_ = true;
};

} // namespace

std::unique_ptr<watched> watch_control_record(check_run& run, const raw_partition& part)
{
    return std::make_unique<control_record_watch>(run, part);
}

} // namespace zrk4::impl
