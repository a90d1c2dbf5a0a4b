/// @file
/// The calls into the kernel that every event makes, without the C library's function around them.
///
/// A processor keeps the addresses to which functions will return on a small stack of its own. Behind a call into the
/// kernel it is full of the kernel's: the next return is guessed to go there, and to find out that it does not takes
/// half as long as the call took. So they are replaced at once by addresses of the program, which are just as wrong and
/// found out in no time. The C library's function would return first. Measured with a free lock on an AMD EPYC (Zen 4):
/// 450 ns with semop(), 325 with the call made here.
#ifndef ZRK4_IMPL_DIRECT_CALL_H
#define ZRK4_IMPL_DIRECT_CALL_H

#include <cerrno>
#include <csignal>
#include <cstddef>

#include <sched.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zrk4::impl::direct {

/// Which calls are made here: those whose function is the C library's own. Where a test or a profiler has put its own
/// before that one, it is called. None until the library is loaded, and none in a process with a shadow stack, which the
/// replaced addresses would have to be taken off again.
struct calls {
    bool semop, kill, sendto, recv, sched_yield;
};
extern const calls made_here;

#if defined(__x86_64__)

/// As many as functions return before the next call, mostly. Below the 128 bytes that a function may use beyond its
/// stack pointer.
__attribute__((always_inline)) inline void replace_returns()
{
    asm volatile("lea -128(%%rsp), %%rsp\n\t"
                 ".rept %c0\n\t"
                 "call 1f\n\t"
                 "int3\n"
                 "1:\n\t"
                 ".endr\n\t"
                 "lea 128 + 8 * %c0(%%rsp), %%rsp" ::"i"(8)
                 : "memory");
}

/// @return the call's result; -1 when it failed, with the reason in `errno`.
__attribute__((always_inline)) inline long call(long number, long a, long b, long c, long d = 0, long e = 0, long f = 0)
{
    register long r10 asm("r10") = d;
    register long r8 asm("r8") = e;
    register long r9 asm("r9") = f;
    long result = number;
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                 : "rcx", "r11", "memory");
    replace_returns();
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
}

#else

inline long call(long number, long a, long b, long c, long d = 0, long e = 0, long f = 0)
{
    return syscall(number, a, b, c, d, e, f);
}

#endif

inline long word(const void* pointer) { return reinterpret_cast<long>(pointer); }

/// The call that the C library's makes: one with a limit in time, and none given.
__attribute__((always_inline)) inline int semop(int id, sembuf* operations, size_t count)
{
    if (!made_here.semop) return ::semop(id, operations, count);
    constexpr long NO_LIMIT = 0;
    return static_cast<int>(call(SYS_semtimedop, id, word(operations), static_cast<long>(count), NO_LIMIT));
}

__attribute__((always_inline)) inline int kill(pid_t pid, int signal)
{
    if (!made_here.kill) return ::kill(pid, signal);
    return static_cast<int>(call(SYS_kill, pid, signal, 0));
}

__attribute__((always_inline)) inline ssize_t sendto(int socket, const void* message, size_t bytes, int flags,
                                                     const sockaddr* to, socklen_t length)
{
    if (!made_here.sendto) return ::sendto(socket, message, bytes, flags, to, length);
    return call(SYS_sendto, socket, word(message), static_cast<long>(bytes), flags, word(to), length);
}

/// A thread that waits here is ended with a signal: unlike the C library's it is no point of cancellation.
__attribute__((always_inline)) inline ssize_t recv(int socket, void* message, size_t bytes, int flags)
{
    if (!made_here.recv) return ::recv(socket, message, bytes, flags);
    return call(SYS_recvfrom, socket, word(message), static_cast<long>(bytes), flags);
}

__attribute__((always_inline)) inline void sched_yield()
{
    if (made_here.sched_yield) {
        call(SYS_sched_yield, 0, 0, 0);
    } else {
        ::sched_yield();
    }
}

} // namespace zrk4::impl::direct

#endif
