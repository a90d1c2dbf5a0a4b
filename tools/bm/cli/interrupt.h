/// @file
/// SIGINT and SIGTERM as a question.
#ifndef ZRK4_TOOL_INTERRUPT_H
#define ZRK4_TOOL_INTERRUPT_H

namespace bm {

/// Until the end of the object the two signals end nothing, and waits of this file return early.
class interrupt_watch {
  public:
    interrupt_watch();
    ~interrupt_watch();
    interrupt_watch(const interrupt_watch&) = delete;
    interrupt_watch& operator=(const interrupt_watch&) = delete;

    static bool interrupted();
    /// @return false when interrupted meanwhile
    static bool sleep_until(double steady_seconds);
    /// The clock that sleep_until() takes.
    static double steady_now();
};

} // namespace bm

#endif
