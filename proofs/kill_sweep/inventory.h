/// @file
/// What is missing in the partitions of a host that is at rest, found by counting: queues, counts, locks, slots.
#ifndef ZRK4_SWEEP_INVENTORY_H
#define ZRK4_SWEEP_INVENTORY_H

#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sweep {

/// How a host at rest should look.
struct expected {
    bool wide = false;
    std::set<std::string> partitions; ///< that must be there, beside the two slot partitions
    std::set<pid_t> clients;          ///< processes that hold client slots, one each
};

/// @return what is not as expected, a text for each; empty: everything is back. Reads only.
std::vector<std::string> missing_from(const expected& e);

/// Segments and semaphore sets that are left.
std::vector<std::string> leftovers();

} // namespace sweep

#endif
