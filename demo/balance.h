/// @file
/// What stands in the partitions' segments and semaphore sets, read past the library.
#ifndef ZRK4_DEMO_BALANCE_H
#define ZRK4_DEMO_BALANCE_H

#include <string>
#include <vector>

namespace demo {

/// A partition to look for.
struct expected_partition {
    std::string name;
    bool slots; ///< a slot partition: its buffer 0 is the control record and never free
};

/// A partition as it was found.
struct partition_balance {
    std::string name;
    int shmid = -1; ///< -1: there is no such partition
    int buffers = 0;
    int queued = 0;    ///< links walked from the head of the free queue
    int countable = 0; ///< value of semaphore 1; -1 when the set cannot be asked
    bool slots = false;
    int expected() const { return slots ? buffers - 1 : buffers; }
    bool whole() const { return shmid >= 0 && queued == expected() && countable == expected(); }
};

/// Reads the partitions in the order given, without a lock: what comes is exact while nobody takes or returns buffers.
std::vector<partition_balance> read_balance(const std::vector<expected_partition>& wanted);
bool all_whole(const std::vector<partition_balance>& partitions);
/// Removes those of the named partitions that still exist. @return the names removed.
std::vector<std::string> remove_leftovers(const std::vector<expected_partition>& wanted);

} // namespace demo

#endif
