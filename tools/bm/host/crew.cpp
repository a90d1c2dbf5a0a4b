#include "host/crew.h"

#include <array>
#include <chrono>
#include <csignal>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/failure.h"

namespace bm {
namespace {

using clock = std::chrono::steady_clock;

[[noreturn]] void become(std::vector<std::string>& arguments, int out, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127); // it died before it could be watched
    // A terminal interrupts the whole group: who is to end is told so by us.
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(out, STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>("bm")};
    for (std::string& each : arguments) argv.push_back(each.data());
    argv.push_back(nullptr);
    execv("/proc/self/exe", argv.data());
    _exit(127);
}

} // namespace

crew_member::crew_member(std::vector<std::string> arguments)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw failure(exit_status::failed, "no pipe to be had").help("ulimit -n");
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) become(arguments, ends[1], parent);
    close(ends[1]);
    out_ = ends[0];
    reaped_ = pid_ < 0;
    if (pid_ < 0) throw failure(exit_status::failed, "no process to be had").help("ulimit -u");
}

crew_member::~crew_member()
{
    if (!reaped_) {
        kill(pid_, SIGKILL);
        reap(true);
    }
    if (out_ >= 0) close(out_);
}

crew_member::crew_member(crew_member&& other) noexcept
    : pid_(other.pid_),
      out_(std::exchange(other.out_, -1)),
      status_(other.status_),
      reaped_(std::exchange(other.reaped_, true)),
      read_(std::move(other.read_))
{
}

crew_member& crew_member::operator=(crew_member&& other) noexcept
{
    std::swap(pid_, other.pid_);
    std::swap(out_, other.out_);
    std::swap(status_, other.status_);
    std::swap(reaped_, other.reaped_);
    std::swap(read_, other.read_);
    return *this;
}

bool crew_member::reap(bool wait)
{
    if (reaped_) return true;
    int status = 0;
    if (waitpid(pid_, &status, wait ? 0 : WNOHANG) != pid_) return false;
    status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return reaped_ = true;
}

bool crew_member::running() { return !reap(false); }

void crew_member::send(int signal) const
{
    if (!reaped_) kill(pid_, signal);
}

int crew_member::ended(int patience_ms)
{
    const auto until = clock::now() + std::chrono::milliseconds(patience_ms);
    while (running() && clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (reaped_) return status_;
    kill(pid_, SIGKILL);
    reap(true);
    return -1;
}

std::string crew_member::line(int patience_ms)
{
    const auto until = clock::now() + std::chrono::milliseconds(patience_ms);
    for (;;) {
        const size_t end = read_.find('\n');
        if (end != std::string::npos) {
            std::string first = read_.substr(0, end);
            read_.erase(0, end + 1);
            return first;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - clock::now()).count();
        pollfd watched{out_, POLLIN, 0};
        if (left <= 0 || poll(&watched, 1, static_cast<int>(left)) <= 0) return "";
        std::array<char, 4096> room{};
        const ssize_t got = read(out_, room.data(), room.size());
        if (got <= 0) return "";
        read_.append(room.data(), static_cast<size_t>(got));
    }
}

std::string crew_member::rest()
{
    std::array<char, 4096> room{};
    for (ssize_t got = 0; (got = read(out_, room.data(), room.size())) > 0;)
        read_.append(room.data(), static_cast<size_t>(got));
    return std::exchange(read_, "");
}

} // namespace bm
