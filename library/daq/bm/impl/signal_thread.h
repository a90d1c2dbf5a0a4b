/// @file
/// Ending of a thread that sits in a blocking call.
#ifndef ZRK4_IMPL_SIGNAL_THREAD_H
#define ZRK4_IMPL_SIGNAL_THREAD_H

#include <cerrno>
#include <csignal>
#include <ctime>

#include <pthread.h>

namespace zrk4::impl {

enum class thread_end { joined, not_signalled, not_joined };

/// Signals `thread` with SIGABRT and joins it. A thread can miss the signal between its look at the run flag and its
/// blocking call, so it is signalled again every 50 ms, but never while it is `busy` in code that is not ours.
/// REQUIRES: the run flag is cleared, and a handler without restart is installed.
template <class Busy> thread_end signal_and_join(pthread_t thread, Busy busy)
{
    constexpr long AGAIN_NS = 50'000'000;
    if (pthread_kill(thread, SIGABRT) != 0) return thread_end::not_signalled;
    while (true) {
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += AGAIN_NS;
        if (until.tv_nsec >= 1'000'000'000) {
            until.tv_nsec -= 1'000'000'000;
            until.tv_sec += 1;
        }
        const int result = pthread_timedjoin_np(thread, nullptr, &until);
        if (result == 0) return thread_end::joined;
        if (result != ETIMEDOUT) return thread_end::not_joined;
        if (!busy()) pthread_kill(thread, SIGABRT);
    }
}

/// Blocks, in the calling thread, the signals that are meant for the program's own threads.
inline void block_program_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGIO, SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2}) sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// Blocks or unblocks SIGABRT in the calling thread; a thread that it creates inherits that. @return the mask before.
inline sigset_t change_abort(int how)
{
    sigset_t abort_only;
    sigset_t before;
    sigemptyset(&abort_only);
    sigaddset(&abort_only, SIGABRT);
    pthread_sigmask(how, &abort_only, &before);
    return before;
}

} // namespace zrk4::impl

#endif
