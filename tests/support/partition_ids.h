/// @file
/// The ids behind a partition handle.
#ifndef ZRK4_TEST_PARTITION_IDS_H
#define ZRK4_TEST_PARTITION_IDS_H

#include <string>

#include "C_shm.h"

namespace zrk4::test {

inline int shmid_of(const C_shm& part) { return std::stoi(part.getStat("shmid")); }
inline int semid_of(const C_shm& part) { return std::stoi(part.getStat("semglobal")); }
inline int use_count_of(const C_shm& part) { return std::stoi(part.getStat("use_count")); }

/// Handles that this process's registry counts on a segment, 0 when it has no entry.
inline int registered(int shmid)
{
    struct registry : C_shm {
        static int count(int id)
        {
            for (const shmid_entry* entry : shmid_list) {
                if (entry->id == id) return entry->cnt;
            }
            return 0;
        }
    };
    return registry::count(shmid);
}

/// Offsets in a segment, as numbers: tests of the format do not ask the header under test.
enum offset : size_t {
    AT_STATUS = 0,
    AT_VERSION = 4,
    AT_COUNT = 8,
    AT_SEMID = 12,
    AT_NBUF = 16,
    AT_LBUF = 20,
    AT_SEMS = 24,
    AT_FULL = 28,
    AT_FREE = 36,
    AT_NAME = 44,
    AT_DESCRIPTORS = 300
};
/// Offsets in a descriptor.
enum descriptor_offset : size_t {
    IN_STATUS = 0,
    IN_BOFF = 4,
    IN_USE_COUNT = 8,
    IN_LDATA = 12,
    IN_TRIG = 16,
    IN_FILL_TIME = 24,
    IN_DATA_ID = 32,
    IN_OWNER = 36,
    IN_LINK = 40,
    IN_EVT_COUNT = 44
};
inline size_t at_descriptor(int i, descriptor_offset field) { return 300 + 48 * static_cast<size_t>(i) + field; }

} // namespace zrk4::test

#endif
