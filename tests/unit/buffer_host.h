/// @file
/// A partition of three buffers, seen through its handle and raw, for the tests of taking and returning.
#ifndef ZRK4_TEST_BUFFER_HOST_H
#define ZRK4_TEST_BUFFER_HOST_H

#include <vector>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

namespace zrk4::test {

inline constexpr bool MULTI = true;
inline constexpr bool CURRENT = false;
enum semaphore { GATE, EMPTY, FULL, SYNCH };

class Buffer : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_BUFFERS", 3, 100, /*sems=*/false};
    const int shmid = shmid_of(part);
    const int semid = semid_of(part);
    live_segment raw{shmid, live_segment::WRITE};

    /// Number of the buffer that get_buffer gives, -1 for null.
    int take(bool multi = MULTI) { return part.buffer_id(part.get_buffer(BM_NO_WAIT, multi)); }
    int value(semaphore number) const { return semaphore_value(semid, number); }
    /// Free buffers by the queue, in order; the semaphore is asked for the same number.
    std::vector<int> free_ones() const
    {
        std::vector<int> found;
        for (int i = raw.int32(AT_FREE); i >= 0 && found.size() < 9; i = raw.int32(at_descriptor(i, IN_LINK))) {
            EXPECT_EQ(raw.int32(at_descriptor(i, IN_STATUS)), 1) << "buffer " << i;
            found.push_back(i);
        }
        EXPECT_EQ(value(EMPTY), static_cast<int>(found.size()));
        return found;
    }
    /// The set is removed; the segment goes with its last mapping.
    void remove_set() const
    {
        semctl(semid, 0, IPC_RMID);
        shmctl(shmid, IPC_RMID, nullptr);
    }
};

using numbers = std::vector<int>;

} // namespace zrk4::test

#endif
