/// @file
/// What a partition's own words say of it, without its locks.
#ifndef ZRK4_IMPL_PARTITION_STATE_H
#define ZRK4_IMPL_PARTITION_STATE_H

#include <algorithm>
#include <cstddef>
#include <utility>

#include "C_shm_buffer.h"
#include "unlocked.h"

namespace zrk4::impl {

/// Control block of a partition to which `part` has access.
inline const C_shm_global& control_of(const C_shm_buffer& part)
{
    return *(reinterpret_cast<const C_shm_global*>(part.get_bufptr()) - 1);
}

inline bool has_buffer_locks(const C_shm_buffer& part) { return part.valid() != 0 && control_of(part).sems != 0; }

/// Address of buffer `i`, null when there is none: what buffer_addr() answers, for the way of an event, which asks some
/// dozen times.
inline char* address_of(const C_shm_buffer& part, int i)
{
    if (part.valid() == 0 || i < 0 || i >= part.getBufferCount()) return nullptr;
    const C_shm_buf* const descriptors = part.get_bufptr();
    auto* const segment = reinterpret_cast<char*>(part.get_bufptr()) - sizeof(C_shm_global);
    return segment + word_unlocked(&descriptors[i].boff);
}
/// The same of what an onlooker has in a handle's place.
template <class Part> char* address_of(const Part& part, int i) { return part.buffer_addr(i); }

/// Whether buffer `i` is out of the queues. REQUIRES: the partition has a buffer of this number.
inline bool is_handed_out(const C_shm_buffer& part, int i)
{
    return (word_unlocked(&part.get_bufptr()[i].status) & BUF_QUEUED) == 0;
}

/// Process that took buffer `i` last.
inline pid_t owner_of(const C_shm_buffer& part, int i) { return word_unlocked(&part.get_bufptr()[i].owner_pid); }

template <size_t... I> bool all_queued(const C_shm_buf* buffers, std::index_sequence<I...> /*each*/)
{
    return ((word_unlocked(&buffers[I].status) & BUF_QUEUED) & ...) != 0;
}

/// Calls `visit(n)` for every slot that is held, in ascending order. Of the others no more than the descriptor is looked
/// at, of several at once: on most hosts most slots are free. The kernel's count of free slots would tell when all have
/// been met, but to answer it locks every semaphore of the set, and that costs many times the rest of the walk.
template <class Visit> void for_each_held_slot(const C_shm_buffer& part, Visit visit)
{
    constexpr int GROUP = 8;
    const C_shm_buf* const descriptors = part.get_bufptr();
    const int count = part.getBufferCount();
    for (int first = 1; first < count; first += GROUP) {
        const int end = std::min(first + GROUP, count);
        if (end - first == GROUP && all_queued(&descriptors[first], std::make_index_sequence<GROUP>{})) continue;
        for (int n = first; n < end; ++n) {
            if (is_handed_out(part, n)) visit(n);
        }
    }
}

} // namespace zrk4::impl

#endif
