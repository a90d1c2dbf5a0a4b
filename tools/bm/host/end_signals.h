/// @file
/// SIGINT and SIGTERM as something to wait for.
#ifndef ZRK4_TOOL_END_SIGNALS_H
#define ZRK4_TOOL_END_SIGNALS_H

#include <chrono>
#include <csignal>
#include <ctime>

#include <pthread.h>

namespace bm {

/// Make it before the first thread: all threads inherit that these signals are blocked.
class end_signals {
  public:
    end_signals()
    {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    }
    /// Waits for one. @return its number, 0 when none came in time.
    int within(std::chrono::microseconds time) const
    {
        const timespec limit{static_cast<time_t>(time.count() / 1'000'000),
                             static_cast<long>(time.count() % 1'000'000) * 1000};
        const int signal = sigtimedwait(&set_, nullptr, &limit);
        return signal > 0 ? signal : 0;
    }

  private:
    sigset_t set_;
};

} // namespace bm

#endif
