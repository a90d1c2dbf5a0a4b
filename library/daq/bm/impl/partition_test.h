/// @file
/// Whether a number found in shared memory names a partition.
#ifndef ZRK4_IMPL_PARTITION_TEST_H
#define ZRK4_IMPL_PARTITION_TEST_H

namespace zrk4::impl {

enum class segment_is {
    partition, ///< one of this layout
    strangers, ///< there, and something else
    unknown    ///< not there, or not to be looked at: an attachment fails and says why
};

/// Looks, read-only, at segment `shmid`. A stale id in an event slot may name a stranger's segment by now; a handle on
/// that would remove it, and a semaphore set with it, when it is released.
segment_is look_at_segment(int shmid);

inline bool is_partition(int shmid) { return look_at_segment(shmid) == segment_is::partition; }

} // namespace zrk4::impl

#endif
