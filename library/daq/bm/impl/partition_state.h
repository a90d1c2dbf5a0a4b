/// @file
/// What a partition's own words say of it, without its locks.
#ifndef ZRK4_IMPL_PARTITION_STATE_H
#define ZRK4_IMPL_PARTITION_STATE_H

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

/// Calls `visit(n)` for every slot that is held, in ascending order. Of the others no more than the descriptor is looked
/// at. The kernel's count of free slots would tell when all have been met, but to answer it locks every semaphore of the
/// set, and that costs many times the rest of the walk.
template <class Visit> void for_each_held_slot(const C_shm_buffer& part, Visit visit)
{
    for (int n = 1, count = part.getBufferCount(); n < count; ++n) {
        if (is_handed_out(part, n)) visit(n);
    }
}

} // namespace zrk4::impl

#endif
