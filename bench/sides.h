/// @file
/// The two programs that are measured beside each other.
#ifndef ZRK4_BENCH_SIDES_H
#define ZRK4_BENCH_SIDES_H

#include "workload.h"

namespace bench {

/// What the partitions of an exchange have room for.
struct limits {
    int clients = 64;      ///< of one event
    int client_slots = 64; ///< on the host
    int blocks = 64;       ///< of one event, and names of one client
    int event_slots = 64;
    int buffers = 32; ///< of the writer's data partition
};

/// A master, a writer and readers that use the library, each a process of its own.
/// @param further_readers  take every event as well; the reading is that of the writer and the first reader
/// @throws std::runtime_error  one of them failed
reading measure_library(const plan& p, const limits& room, int further_readers = 0);

/// A writer and a reader that make the calls into the kernel which the exchange demands, and nothing else.
/// @throws std::runtime_error  one of them failed
reading measure_reference(const plan& p, const limits& room);

} // namespace bench

#endif
