/// @file
/// What came back, partition by partition.
#ifndef ZRK4_SOAK_STOCK_H
#define ZRK4_SOAK_STOCK_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "run.h"

namespace soak {

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
    bool operator==(const stock& other) const;
};

/// Attaches the partition for a look. Buffer 0 of a slot partition is the control record and never counts.
stock stock_of(const std::string& partition, bool slots);
/// All partitions of a run; without the slots of the clients while there are any.
std::vector<stock> all_stock(bool with_clients);
/// Returns when nothing has come back any more for `quiet_ms`, at the latest after `patience_ms`.
std::vector<stock> settled_stock(bool with_clients, int quiet_ms, int patience_ms);
/// A line of the record for everything that is lost.
void tell(const record& log, const std::vector<stock>& all);

} // namespace soak

#endif
