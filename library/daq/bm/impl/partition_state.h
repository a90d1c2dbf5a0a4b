/// @file
/// What a partition's own words say of it, without its locks.
#ifndef ZRK4_IMPL_PARTITION_STATE_H
#define ZRK4_IMPL_PARTITION_STATE_H

#include <limits>

#include <sys/sem.h>

#include "C_shm_buffer.h"
#include "unlocked.h"

namespace zrk4::impl {

/// Control block of a partition to which `part` has access.
inline const C_shm_global& control_of(const C_shm_buffer& part)
{
    return *(reinterpret_cast<const C_shm_global*>(part.get_bufptr()) - 1);
}

inline bool has_buffer_locks(const C_shm_buffer& part) { return part.valid() != 0 && control_of(part).sems != 0; }

/// Whether buffer `i` is out of the queues. REQUIRES: the partition has a buffer of this number.
inline bool is_handed_out(const C_shm_buffer& part, int i)
{
    return (word_unlocked(&part.get_bufptr()[i].status) & BUF_QUEUED) == 0;
}

/// Process that took buffer `i` last.
inline pid_t owner_of(const C_shm_buffer& part, int i) { return word_unlocked(&part.get_bufptr()[i].owner_pid); }

/// Never less than the number of buffers that are out: the count moves before the queue when one is taken, and after it
/// when one returns.
inline int handed_out(const C_shm_buffer& part)
{
    const int free_now = semctl(control_of(part).gbl_semid, gbl_empty, GETVAL);
    return free_now < 0 ? std::numeric_limits<int>::max() : part.getBufferCount() - free_now;
}

/// Calls `visit(n)` for every slot that is held, in ascending order. `visit` answers whether the slot is held still.
/// The walk ends once it has met as many as are out, so that its cost follows the clients and not the room for them.
/// REQUIRES: nobody else gives slots back meanwhile, or the last ones may not be met.
template <class Visit> void for_each_held_slot(const C_shm_buffer& part, Visit visit)
{
    // So few are looked at sooner than the kernel is asked for their number.
    constexpr int JUST_LOOK = 64;
    const int count = part.getBufferCount();
    const int ask_from = count > 4 * JUST_LOOK ? JUST_LOOK : count;
    int expected = 0;
    int met = count > 0 && is_handed_out(part, 0) ? 1 : 0;
    for (int n = 1; n < count; ++n) {
        // The number is asked for again once it is reached: a slot that was taken since, in front of the walk, has been
        // met in the place of one behind it.
        if (n >= ask_from && met >= expected) expected = handed_out(part);
        if (n >= ask_from && met >= expected) return;
        if (is_handed_out(part, n) && visit(n)) ++met;
    }
}

} // namespace zrk4::impl

#endif
