#include "host/end_signals.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <ctime>

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "cli/failure.h"

namespace bm {

namespace {

// A closed terminal, and a pipe that nobody reads any more (`| head`), end a command as in order as Control-C does, or its
// partitions and slots would outlive it. With nohup it outlives its terminal: waiting for the signal would undo that.
sigset_t watched_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&set, signal);
    struct sigaction hang_up {};
    sigaction(SIGHUP, nullptr, &hang_up);
    if (hang_up.sa_handler != SIG_IGN) sigaddset(&set, SIGHUP);
    return set;
}

} // namespace

end_signals::end_signals()
{
    const sigset_t set = watched_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0) throw failure(exit_status::failed, "no descriptor for signals to be had").help("ulimit -n");
}

end_signals::~end_signals() { close(fd_); }

int end_signals::within(std::chrono::microseconds time) const
{
    using clock = std::chrono::steady_clock;
    const auto until = clock::now() + time;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(until - clock::now());
        const int signal = within(std::max(left, std::chrono::microseconds(0)), -1);
        if (signal != 0 || left.count() <= 0) return signal;
    }
}

int end_signals::within(std::chrono::microseconds time, int input) const
{
    const timespec limit{static_cast<time_t>(time.count() / 1'000'000),
                         static_cast<long>(time.count() % 1'000'000) * 1000};
    std::array<pollfd, 2> watched{{{fd_, POLLIN, 0}, {input, POLLIN, 0}}};
    if (ppoll(watched.data(), watched.size(), &limit, nullptr) <= 0) return 0;
    signalfd_siginfo came{};
    return read(fd_, &came, sizeof came) == sizeof came ? static_cast<int>(came.ssi_signo) : 0;
}

} // namespace bm
