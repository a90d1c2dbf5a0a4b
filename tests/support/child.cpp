#include "child.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// Present in a build that counts executed lines: a child that ends by _exit must hand its counts in.
extern "C" __attribute__((weak)) void __gcov_dump();

namespace zrk4::test {
namespace {

enum { ALL_WELL = 0, EXPECTATION_FAILED = 1, EXCEPTION = 3, SIGNALLED = 128 };

int run(const std::function<void()>& body)
{
    try {
        body();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "child: exception left it: %s\n", e.what());
        return EXCEPTION;
    } catch (...) {
        std::fprintf(stderr, "child: exception left it\n");
        return EXCEPTION;
    }
    return testing::Test::HasFailure() ? EXPECTATION_FAILED : ALL_WELL;
}

[[noreturn]] void be_the_child(const std::function<void()>& body, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(EXCEPTION);
    const int status = run(body);
    std::fflush(nullptr);
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(status);
}

int status_of(const siginfo_t& info)
{
    return info.si_code == CLD_EXITED ? info.si_status : SIGNALLED + info.si_status;
}

} // namespace

child::child(const std::function<void()>& body)
{
    std::fflush(nullptr); // what is in the buffers would be written twice
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) be_the_child(body, parent);
    if (pid_ < 0) throw std::runtime_error("child: fork failed");
    pidfd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    if (pidfd_ < 0) throw std::runtime_error("child: pidfd_open failed");
}

int child::wait(int patience_ms)
{
    if (pidfd_ < 0) return status_;
    pollfd ended{pidfd_, POLLIN, 0};
    int n = 0;
    do n = poll(&ended, 1, patience_ms);
    while (n < 0 && errno == EINTR);
    if (n <= 0) {
        ADD_FAILURE() << "child " << pid_ << " did not end in " << patience_ms << " ms";
        ::kill(pid_, SIGKILL);
    }
    reap();
    return status_;
}

void child::kill_now()
{
    if (pidfd_ < 0) return;
    ::kill(pid_, SIGKILL);
    reap();
}

void child::reap()
{
    siginfo_t info{};
    while (waitid(P_PIDFD, static_cast<id_t>(pidfd_), &info, WEXITED) != 0 && errno == EINTR) {}
    status_ = status_of(info);
    close(pidfd_);
    pidfd_ = -1;
}

void child::send(int signal) const { EXPECT_EQ(::kill(pid_, signal), 0) << "signal " << signal; }

void child::stop() const
{
    send(SIGSTOP);
    siginfo_t info{};
    while (waitid(P_PIDFD, static_cast<id_t>(pidfd_), &info, WSTOPPED) != 0 && errno == EINTR) {}
}

void child::go_on() const { send(SIGCONT); }

} // namespace zrk4::test
