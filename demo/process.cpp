#include "process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// Present in a build that counts executed lines: a process that ends by _exit must hand its counts in.
extern "C" __attribute__((weak)) void __gcov_dump();

namespace demo {
namespace {

constexpr int BY_EXCEPTION = 3;

int status_of(const role& body, line_end& line)
{
    try {
        return body(line);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "demo: %s\n", e.what());
        return BY_EXCEPTION;
    }
}

[[noreturn]] void be_the_child(const role& body, int fd, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(BY_EXCEPTION); // it died before it could be watched
    line_end line(fd);
    const int status = status_of(body, line);
    std::fflush(nullptr);
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(status);
}

bool readable(int fd, int timeout_ms)
{
    pollfd one{fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&one, 1, timeout_ms);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

line_end::~line_end()
{
    if (fd_ >= 0) close(fd_);
}

bool line_end::say(char letter) const { return send(fd_, &letter, 1, MSG_NOSIGNAL) == 1; }

char line_end::hear(int timeout_ms) const
{
    if (!readable(fd_, timeout_ms)) return NOTHING;
    char letter = GONE;
    return recv(fd_, &letter, 1, 0) == 1 ? letter : GONE;
}

process::made process::start(const role& body)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    std::fflush(nullptr); // what is in the buffers would be written twice
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        be_the_child(body, ends[1], parent);
    }
    const int reason = errno;
    close(ends[1]);
    if (pid > 0) return {pid, ends[0]};
    close(ends[0]);
    throw std::system_error(reason, std::generic_category(), "fork");
}

process::process(std::string name, const role& body) : process(std::move(name), start(body)) {}

process::process(process&& other) noexcept
    : name_(std::move(other.name_)), pid_(std::exchange(other.pid_, -1)), line_(std::move(other.line_))
{
}

process::~process()
{
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

// The kernel closes a process's end of the line when it ends.
bool process::heard_it_end(int patience_ms) const
{
    char letter = line_end::NOTHING;
    do {
        letter = line_.hear(patience_ms);
    } while (letter != line_end::GONE && letter != line_end::NOTHING);
    return letter == line_end::GONE;
}

std::string process::ended(int patience_ms)
{
    const bool in_time = heard_it_end(patience_ms);
    if (!in_time) kill(pid_, SIGKILL);
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    if (!in_time) return name_ + ": did not end and was killed";
    if (WIFSIGNALED(status)) return name_ + ": ended by signal " + std::to_string(WTERMSIG(status));
    if (WEXITSTATUS(status) != 0) return name_ + ": ended with status " + std::to_string(WEXITSTATUS(status));
    return {};
}

} // namespace demo
