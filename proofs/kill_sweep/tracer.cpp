#include "tracer.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cast.h"
#include "record.h"

namespace sweep {
namespace {

constexpr int CALL_STOP = SIGTRAP | 0x80;

} // namespace

traced_thread::traced_thread(pid_t process, pid_t thread, long resting) : process_(process), thread_(thread)
{
    constexpr int TRIES = 1000;
    for (int tries = 0; tries < TRIES; ++tries) {
        stop();
        if (resting < 0 || rests_in(resting)) return;
        let_go();
        usleep(1000);
    }
    throw std::runtime_error("the victim does not come to rest");
}

traced_thread::~traced_thread()
{
    if (!traced_) return;
    kill(process_, SIGKILL);
    int status = 0;
    while (waitpid(thread_, &status, __WALL) == thread_ && WIFSTOPPED(status)) {}
}

void traced_thread::stop()
{
    if (ptrace(PTRACE_SEIZE, thread_, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD) != 0 ||
        ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) != 0 || !next_stop())
        throw std::runtime_error(std::string("cannot trace: ") + std::strerror(errno));
    traced_ = true;
}

bool traced_thread::rests_in(long call) const
{
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, thread_, nullptr, &registers);
    const auto was_in = static_cast<long>(registers.orig_rax);
    return was_in == call || was_in == SYS_restart_syscall; // a sleep goes on so where it was stopped before
}

bool traced_thread::next_stop()
{
    while (waitpid(thread_, &wait_status_, __WALL) != thread_) {
        if (errno != EINTR) throw std::runtime_error("the traced thread is gone");
    }
    return WIFSTOPPED(wait_status_);
}

bool traced_thread::at_call() const { return WSTOPSIG(wait_status_) == CALL_STOP; }

bool traced_thread::at_trap() const { return WSTOPSIG(wait_status_) == SIGTRAP && (wait_status_ >> 16) == 0; }

bool traced_thread::go(__ptrace_request how)
{
    const bool of_the_tracer = at_call() || at_trap() || (wait_status_ >> 16) != 0;
    const long signal = of_the_tracer ? 0 : WSTOPSIG(wait_status_);
    ptrace(how, thread_, nullptr, signal);
    return next_stop();
}

__ptrace_syscall_info traced_thread::call_info() const
{
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread_, sizeof info, &info);
    return info;
}

void traced_thread::let_go()
{
    ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
    traced_ = false;
}

// The leader's end is told only when all other threads are gone, the traced one included.
std::string traced_thread::end(bool kill_it)
{
    traced_ = false;
    if (kill_it) kill(process_, SIGKILL);
    for (bool stopped = kill_it; stopped; stopped = next_stop()) ptrace(PTRACE_CONT, thread_, nullptr, nullptr);
    while (thread_ != process_ && waitpid(process_, &wait_status_, __WALL) < 0 && errno == EINTR) {}
    return text_of_status(wait_status_);
}

namespace {

/// Counts the calls of a span, entry by entry and exit by exit.
class call_counter {
  public:
    call_counter(const span& in, const std::function<void()>& at_first)
        : in_(in), at_first_(at_first), counting_(in.from_count == 0)
    {
    }

    /// @return false at the end of the span.
    bool enter(long nr)
    {
        nr_ = nr;
        if (!counting_) return true;
        if (nr == in_.to && ++to_seen_ == in_.to_count) return false;
        if (calls.empty()) at_first_();
        calls.push_back({nr, 0});
        return true;
    }
    /// @return whether a call that counts has come back.
    bool leave(int64_t answer)
    {
        if (!counting_) {
            counting_ = nr_ == in_.from && ++from_seen_ == in_.from_count;
            return false;
        }
        if (calls.empty()) return false;
        calls.back().answer = answer;
        return true;
    }

    std::vector<call> calls;

  private:
    const span& in_;
    const std::function<void()>& at_first_;
    bool counting_;
    long nr_ = -1;
    int from_seen_ = 0;
    int to_seen_ = 0;
};

} // namespace

trace follow_calls(traced_thread& victim, const span& in, moment when, long number,
                   const std::function<void()>& at_first)
{
    call_counter counter(in, at_first);
    trace seen;
    const auto end_with = [&](bool killed, const std::string& status) {
        seen.killed = killed;
        seen.status = status;
        seen.calls = counter.calls;
        if (!seen.calls.empty()) seen.last = name_of_call(seen.calls.back().nr);
        return seen;
    };
    while (victim.go(PTRACE_SYSCALL)) {
        if (!victim.at_call()) continue;
        const __ptrace_syscall_info info = victim.call_info();
        const bool entry = info.op == PTRACE_SYSCALL_INFO_ENTRY;
        if (entry && !counter.enter(static_cast<long>(info.entry.nr))) {
            victim.let_go();
            return end_with(false, LIVES);
        }
        if (!entry && !counter.leave(info.exit.rval)) continue;
        const bool there = number > 0 && static_cast<long>(counter.calls.size()) == number;
        if (there && when == (entry ? moment::before : moment::after)) return end_with(true, victim.end(true));
    }
    return end_with(false, victim.end(false));
}

} // namespace sweep
