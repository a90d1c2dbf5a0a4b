#include "calls.h"

#include <map>

#include <sys/syscall.h>

namespace sweep {

std::string name_of_call(long nr)
{
    static const std::map<long, const char*> names{{SYS_semop, "semop"},
                                                   {SYS_semtimedop, "semtimedop"},
                                                   {SYS_semget, "semget"},
                                                   {SYS_semctl, "semctl"},
                                                   {SYS_shmget, "shmget"},
                                                   {SYS_shmat, "shmat"},
                                                   {SYS_shmdt, "shmdt"},
                                                   {SYS_shmctl, "shmctl"},
                                                   {SYS_kill, "kill"},
                                                   {SYS_tgkill, "tgkill"},
                                                   {SYS_getpid, "getpid"},
                                                   {SYS_gettid, "gettid"},
                                                   {SYS_sched_yield, "sched_yield"},
                                                   {SYS_futex, "futex"},
                                                   {SYS_mmap, "mmap"},
                                                   {SYS_munmap, "munmap"},
                                                   {SYS_mprotect, "mprotect"},
                                                   {SYS_madvise, "madvise"},
                                                   {SYS_brk, "brk"},
                                                   {SYS_write, "write"},
                                                   {SYS_socket, "socket"},
                                                   {SYS_setsockopt, "setsockopt"},
                                                   {SYS_bind, "bind"},
                                                   {SYS_getsockname, "getsockname"},
                                                   {SYS_sendto, "sendto"},
                                                   {SYS_recvfrom, "recvfrom"},
                                                   {SYS_close, "close"},
                                                   {SYS_clone, "clone"},
                                                   {SYS_clone3, "clone3"},
                                                   {SYS_exit, "exit"},
                                                   {SYS_rt_sigaction, "rt_sigaction"},
                                                   {SYS_rt_sigprocmask, "rt_sigprocmask"},
                                                   {SYS_restart_syscall, "restart_syscall"},
                                                   {SYS_clock_nanosleep, "clock_nanosleep"},
                                                   {SYS_clock_gettime, "clock_gettime"},
                                                   {SYS_gettimeofday, "gettimeofday"}};
    const auto at = names.find(nr);
    return at != names.end() ? at->second : "call_" + std::to_string(nr);
}

namespace {

bool same(const call& a, const call& b) { return a.nr == b.nr && a.answer == b.answer && a.answer < 0; }

} // namespace

std::vector<int> swept_calls(const std::vector<call>& calls)
{
    constexpr size_t LONGEST = 4;
    std::vector<int> swept;
    const auto add = [&](size_t index) { swept.push_back(static_cast<int>(index) + 1); };
    for (size_t first = 0; first < calls.size();) {
        size_t last = first;
        while (last + 1 < calls.size() && same(calls[last + 1], calls[first])) ++last;
        if (last - first < LONGEST) {
            for (size_t i = first; i <= last; ++i) add(i);
        } else {
            for (const size_t i : {first, (first + last) / 2, last}) add(i);
        }
        first = last + 1;
    }
    return swept;
}

} // namespace sweep
