/// @file
/// Follows one thread of a process from call to call, and kills the process at one of them.
#ifndef ZRK4_SWEEP_TRACER_H
#define ZRK4_SWEEP_TRACER_H

#include <functional>
#include <string>
#include <vector>

#include <sys/ptrace.h>
#include <sys/types.h>

#include "calls.h"
#include "point.h"

namespace sweep {

/// Where a role's calls are counted: behind `from_count` calls of `from`, up to call number `to_count` of `to`, which is
/// not counted any more.
struct span {
    long from = 0;
    int from_count = 0; ///< 0: from the first call on
    long to = 0;
    int to_count = 1;
};

/// What became of the victim.
struct trace {
    bool killed = false;
    std::string status;      ///< wait status of a victim that ended; LIVES otherwise
    std::vector<call> calls; ///< those counted
    std::string last;        ///< name of the last one
};

/// A thread that stands still from the construction on. Where it is neither let go nor ended its process is killed.
class traced_thread {
  public:
    /// @param resting  the call in which the thread waits for work, or -1: stopped elsewhere it might hold a lock for which
    ///                 the others would wait
    /// @throws std::runtime_error when the thread cannot be traced, or does not come to rest
    traced_thread(pid_t process, pid_t thread, long resting);
    ~traced_thread();
    traced_thread(const traced_thread&) = delete;
    traced_thread& operator=(const traced_thread&) = delete;

    pid_t process() const { return process_; }
    pid_t thread() const { return thread_; }
    /// Lets it go on with PTRACE_SYSCALL or PTRACE_SINGLESTEP, to its next stop. @return false when it has ended.
    bool go(__ptrace_request how);
    /// What the stop is about. A signal that comes in between is handed on.
    bool at_call() const;
    bool at_trap() const;
    __ptrace_syscall_info call_info() const;
    /// It is not traced any more.
    void let_go();
    /// SIGKILL, or the end that has come by itself. @return the wait status as text
    std::string end(bool kill_it);

  private:
    void stop();
    bool rests_in(long call) const;
    bool next_stop();

    bool traced_ = false;
    pid_t process_;
    pid_t thread_;
    int wait_status_ = 0;
};

/// Lets the thread go on, to the kill or to the end of the span; there it is let go for good.
/// @param at_first  done while the thread stands before the first call that counts
trace follow_calls(traced_thread& victim, const span& in, moment when, long number,
                   const std::function<void()>& at_first);

} // namespace sweep

#endif
