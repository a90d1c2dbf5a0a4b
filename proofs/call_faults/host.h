/// @file
/// The small host on which calls fail: what its processes agree on, and how they are spoken to.
#ifndef ZRK4_CALL_FAULTS_HOST_H
#define ZRK4_CALL_FAULTS_HOST_H

#include <atomic>
#include <cstdint>

#include "BM.h"

namespace call_faults {

inline constexpr int LINE_FD = 3;   ///< one end of a line of single letters
inline constexpr int SHARED_FD = 4; ///< a file of the size of `shared_counts`
inline constexpr char READY = 'r', GO = 'g', FINISHED = 'f', LEAVE = 'l';

/// Statuses with which a role ends.
enum ending {
    WELL = 0,
    NO_MASTER = 10, ///< set_master or init refused
    NO_DATA = 11,   ///< the data partition could not be had
    NO_SUBSCRIPTION = 12,
    NO_BUFFER = 13,     ///< none came free
    BLOCK_REFUSED = 14, ///< ev_update failed; the block is left with whoever has it
    EXCEPTION = 20
};

inline constexpr ZRK4_EVTYPE EVENT_TYPE = ZRK4_EV_NORMAL;
inline constexpr char DATA[] = "FAULTS_DATA", BLOCK[] = "FAULTS.BLOCK";
inline constexpr int BUFFERS = 24, BUFFER_BYTES = 512, PERIOD_US = 20'000;
inline constexpr int MOST_EVENTS = 2000;

/// How often a reader was called for each event.
struct shared_counts {
    std::atomic<uint8_t> calls[MOST_EVENTS];
    std::atomic<int> first_event, last_event; ///< what a writer that hears GO sends: up to, and not, the last
    std::atomic<int> strange;                 ///< events that are none of these, or whose block is not there
};

} // namespace call_faults

#endif
