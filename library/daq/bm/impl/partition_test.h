/// @file
/// Whether a number found in shared memory names a partition.
#ifndef ZRK4_IMPL_PARTITION_TEST_H
#define ZRK4_IMPL_PARTITION_TEST_H

namespace zrk4::impl {

/// Looks, read-only, whether segment `shmid` is a partition of this layout. A stale id in an event slot may name a
/// stranger's segment by now; a handle on that would remove it, and a semaphore set with it, when it is released.
bool is_partition(int shmid);

} // namespace zrk4::impl

#endif
