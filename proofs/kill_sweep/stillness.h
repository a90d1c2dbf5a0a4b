/// @file
/// Whether the host stood still: then a process that did nothing for a while proves nothing about the library.
#ifndef ZRK4_SWEEP_STILLNESS_H
#define ZRK4_SWEEP_STILLNESS_H

#include <cstdint>

namespace sweep {

/// Watches how much longer than asked for this process sleeps.
class stillness {
  public:
    /// The monitor gives up on a reader after half a second; a process that comes late by this much was not let run.
    static constexpr int64_t TOO_LATE_US = 250'000;

    static void nap(int64_t micros);
    /// A wait that may be ended early: call `begin`, wait, and tell how long it was meant to be at most.
    static int64_t begin();
    static void waited(int64_t since, int64_t at_most);
    static bool seen();
};

} // namespace sweep

#endif
