/// @file
/// The common clock: which tick is when, and which one is the last.
#ifndef ZRK4_DEMO_TICK_H
#define ZRK4_DEMO_TICK_H

#include <atomic>
#include <cstdint>
#include <optional>

#include "event.h"

namespace demo {

int64_t monotonic_ns();
int64_t wall_clock_us();

/// Ticks of one run, numbered from 0. Processes wait by the monotonic clock and stamp by the wall clock, both counted
/// from one common start: setting the clock during a run moves no tick and splits no event.
class tick_clock {
  public:
    /// Tick 0 falls on the first multiple of the period that lies at least `lead_us` after now.
    static tick_clock starting_in(int64_t lead_us);
    tick_clock() = default;
    tick_clock(int64_t start_us, int64_t start_ns) : start_us_(start_us), start_ns_(start_ns) {}

    time_stamp key(int64_t tick) const;
    /// The number of the tick since the epoch: the event id. The 2010 records have room for 31 bits of it.
    int64_t event_id(int64_t tick, bool records_2024) const;
    /// @return the tick that has exactly this key, if one has.
    std::optional<int64_t> tick_at(time_stamp key) const;
    int64_t due_ns(int64_t tick) const;
    /// Sleeps until the tick is due; returns at once for one that is past.
    void wait_for(int64_t tick) const;

  private:
    int64_t start_us_ = 0; ///< wall clock
    int64_t start_ns_ = 0; ///< monotonic clock
};

/// Agreement on the last tick. Lies in memory shared by all processes; zero-filled it is open and no tick has begun.
///
/// A tick that any writer has begun is completed by every writer, and after `close` nobody begins another: a run that
/// ends at any moment ends with whole events.
class tick_gate {
  public:
    /// @return whether the caller is to do tick `tick`, which then counts as begun.
    bool enter(int64_t tick);
    void close();
    /// Ticks begun so far; final once closed.
    int64_t begun() const;

  private:
    static constexpr uint64_t CLOSED = uint64_t{1} << 63;
    std::atomic<uint64_t> word_{0}; ///< number of ticks begun, and CLOSED: one word, so that both change as one
};
static_assert(std::atomic<uint64_t>::is_always_lock_free);

} // namespace demo

#endif
