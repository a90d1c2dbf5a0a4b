/// @file
/// SIGINT, SIGTERM, SIGHUP, and SIGPIPE of this thread, as something to wait for.
#ifndef ZRK4_TOOL_END_SIGNALS_H
#define ZRK4_TOOL_END_SIGNALS_H

#include <chrono>

namespace bm {

/// Make it before the first thread: all threads inherit that these signals are blocked.
class end_signals {
  public:
    end_signals();
    ~end_signals();
    end_signals(const end_signals&) = delete;
    end_signals& operator=(const end_signals&) = delete;

    /// Waits for one. @return its number, 0 when none came in time.
    int within(std::chrono::microseconds time) const;
    /// The same; returns early, with 0, when there is something to read at `input`, or another signal was handled.
    int within(std::chrono::microseconds time, int input) const;

  private:
    int fd_;
};

} // namespace bm

#endif
