/// @file
/// Memory that all processes of a point share: what was seen, and what they are asked to do.
#ifndef ZRK4_SWEEP_BOARD_H
#define ZRK4_SWEEP_BOARD_H

#include <atomic>

namespace sweep {

inline constexpr int READERS_MAX = 16; ///< processes of a point, those that take the place of a dead one included
inline constexpr int EVENTS_MAX = 64;
inline constexpr int NEVER = 1 << 30;

struct board {
    std::atomic<int> calls[READERS_MAX][EVENTS_MAX]; ///< of a reader's handler for an event
    std::atomic<int> wrong_blocks;                   ///< that held something else than was written for their event
    std::atomic<int> taken_twice;                    ///< buffers that somebody else wrote into while they were held
    std::atomic<int> hold_from{NEVER};               ///< handlers of events from this one on wait; never the victim's
    std::atomic<int> victim{-1};                     ///< reader that is the victim
    std::atomic<int> early_from{NEVER};              ///< the victim gives its blocks back early from this event on
    std::atomic<int> inside;                         ///< handlers that wait
};

} // namespace sweep

#endif
