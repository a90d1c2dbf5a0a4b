/// @file
/// What is in a partition's free queue, and what is not.
#ifndef ZRK4_PROOF_STOCK_H
#define ZRK4_PROOF_STOCK_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace proof {

/// A buffer that is not in the free queue.
struct buffer_out {
    int number;
    pid_t owner;
    int status;
};

struct stock {
    std::string partition;
    int buffers = 0;
    int countable = 0; ///< as the semaphore of the free buffers has it
    std::vector<buffer_out> out;
    /// Free buffers that the semaphore lets nobody take; below 0 it would let more be taken than there are.
    int uncounted() const { return buffers - static_cast<int>(out.size()) - countable; }
    /// Buffers that cannot be had.
    int missing() const { return buffers - countable; }
    bool operator==(const stock& other) const;
};

/// Attaches the partition for a look. Buffer 0 of a slot partition is the control record and never counts.
/// @throws std::runtime_error there is no such partition
stock stock_of(const std::string& partition, bool slots);

/// Segments and semaphore sets that are left in the namespace.
int left_behind();

} // namespace proof

#endif
