/// @file
/// The library and the references, as programs that are measured.
#ifndef ZRK4_BENCH_SIDES_H
#define ZRK4_BENCH_SIDES_H

#include "semaphore_set.h"
#include "workload.h"

namespace bench {

/// What the partitions of an exchange have room for.
struct limits {
    int clients = 64;      ///< of one event
    int client_slots = 64; ///< on the host
    int blocks = 64;       ///< of one event, and names of one client
    int event_slots = 64;
};

/// Clients beside those that are measured, of processes that do little else.
struct crowd {
    int writers = 0; ///< of the measured events; they have no block to give
    int readers = 0; ///< of the measured events
    int others = 0;  ///< of other types of event
    int names = 0;   ///< that the measured readers ask for: those of the last blocks; 0: they take every block
};

/// A master, writers and readers that use the library, each a process of its own.
/// @throws std::runtime_error  one of them failed
reading measure_library(const plan& p, const limits& room, const crowd& around = {});

/// Writers and readers that make the calls into the kernel which the exchange demands, and nothing else.
/// @throws std::runtime_error  one of them failed
reading measure_reference(manner m, const plan& p, const limits& room);

} // namespace bench

#endif
