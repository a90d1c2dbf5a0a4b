#include "queue_look.h"

#include "unlocked.h"
#include "worded.h"

namespace zrk4::impl {

queue_look::queue_look(C_shm_global& control, int nbuf)
    : control_(control), bufs_(reinterpret_cast<C_shm_buf*>(&control + 1)), seen_(static_cast<size_t>(nbuf), IN_NONE)
{
    free_ = walk_through(control.free, "free", IN_FREE);
    full_ = walk_through(control.full, "full", IN_FULL);
}

queue_look::walk queue_look::walk_through(const C_shm_BufferQ& queue, const char* name, where tag)
{
    walk result;
    int before = -1;
    for (int i = queue.head; i >= 0; i = bufs_[i].link) {
        result.flaw = flaw_of(i, before, name, tag);
        result.flaw_at = before;
        if (!result.flaw.empty()) return result;
        seen_[static_cast<size_t>(i)] = tag;
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

std::string queue_look::flaw_of(int i, int before, const char* name, where tag) const
{
    const bool exists = i < count();
    if (exists && seen_[static_cast<size_t>(i)] == IN_NONE) return "";
    const std::string way =
        before < 0 ? worded("the %s queue begins at", name) : worded("the %s queue leads from %d to", name, before);
    if (!exists) return way + worded(" buffer %d, which does not exist", i);
    return way + worded(seen_[static_cast<size_t>(i)] == tag ? " buffer %d a second time"
                                                             : " buffer %d, which is in the other queue",
                        i);
}

std::vector<queue_flaw> queue_look::flaws() const
{
    std::vector<queue_flaw> all;
    for (const walk* w : {&free_, &full_}) {
        if (!w->flaw.empty()) all.push_back({1, w->flaw_at, 0, w->flaw});
    }
    for (int i = 0; i < count(); ++i) {
        const where in = seen_[static_cast<size_t>(i)];
        const C_shm_buf& buf = bufs_[i];
        if (buf.queued() == (in != IN_NONE)) continue;
        all.push_back({2, i, buf.owner_pid,
                       in == IN_NONE ? worded("buffer %d is flagged queued and in no queue", i)
                                     : worded("buffer %d is in the %s queue and not flagged queued", i,
                                              in == IN_FREE ? "free" : "full")});
    }
    return all;
}

void queue_look::mend()
{
    keep_sound_part(control_.free, free_);
    keep_sound_part(control_.full, full_);
    for (int i = 0; i < count(); ++i) {
        if (in_a_queue(i)) {
            bufs_[i].status |= BUF_QUEUED;
        } else if (bufs_[i].queued()) {
            append_free(control_, bufs_, i);
        }
    }
}

void queue_look::keep_sound_part(C_shm_BufferQ& queue, const walk& w) const
{
    if (w.flaw.empty()) return;
    if (w.reached.empty()) {
        queue.init();
        return;
    }
    queue.tail = w.reached.back();
    bufs_[w.reached.back()].link = -1;
}

table_copy::table_copy(const raw_partition& part)
    : part_(part), bytes_(part.segment().at(), part.segment().at() + part.table_size())
{
}

bool table_copy::take(raw_lock::patience patience)
{
    const raw_lock gate(part_, gbl_gate, patience);
    if (!gate) return false;
    copy_words(reinterpret_cast<shared_word*>(bytes_.data()),
               reinterpret_cast<const volatile shared_word*>(part_.segment().at()), bytes_.size());
    counted_ = part_.value(gbl_empty);
    return true;
}

} // namespace zrk4::impl
