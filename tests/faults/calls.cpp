// The calls themselves: found before the C library's, they ask their plan and then go on to the next of that name.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include "datagrams.h"
#include "plans.h"
#include "trace.h"

using namespace zrk4::test;

#define SEEN __attribute__((visibility("default")))

namespace {

/// One call: its plan and the function behind ours.
template <class Function> struct call {
    plan& how;
    Function* real;

    call(const char* name, Function* /*ours*/)
        : how(plan_of(name)), real(reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name)))
    {
        if (real != nullptr) return;
        std::fprintf(stderr, "faults: nothing behind %s\n", name);
        std::abort();
    }

    /// The usual convention: -1 and errno.
    template <class... Args> auto operator()(Args... args) -> decltype(real(args...))
    {
        using result = decltype(real(args...));
        long value = 0;
        switch (judge(how, value)) {
        case verdict::fail_with_errno:
            errno = static_cast<int>(value);
            return (result)-1L;
        case verdict::give_value:
            return (result)value;
        case verdict::call_it:
            break;
        }
        const result made = real(args...);
        trace_call(how.call, how.calls, (long)made);
        return made;
    }

    /// The other one: the error is the result.
    template <class... Args> int with_error_result(Args... args)
    {
        long value = 0;
        if (judge(how, value) != verdict::call_it) return static_cast<int>(value);
        trace_call(how.call, how.calls, 0);
        return real(args...);
    }
};

} // namespace

extern "C" {

SEEN int shmget(key_t key, size_t size, int flags) noexcept
{
    static call<int(key_t, size_t, int)> c("shmget", nullptr);
    return c(key, size, flags);
}

SEEN void* shmat(int id, const void* at, int flags) noexcept
{
    static call<void*(int, const void*, int)> c("shmat", nullptr);
    return c(id, at, flags);
}

SEEN int shmdt(const void* at) noexcept
{
    static call<int(const void*)> c("shmdt", nullptr);
    return c(at);
}

SEEN int shmctl(int id, int command, shmid_ds* info) noexcept
{
    static call<int(int, int, shmid_ds*)> c("shmctl", nullptr);
    return c(id, command, info);
}

SEEN int semget(key_t key, int count, int flags) noexcept
{
    static call<int(key_t, int, int)> c("semget", nullptr);
    return c(key, count, flags);
}

// The fourth argument is read whether it was given or not, as the C library itself does.
SEEN int semctl(int id, int number, int command, ...) noexcept
{
    va_list args;
    va_start(args, command);
    void* argument = va_arg(args, void*);
    va_end(args);
    static call<int(int, int, int, ...)> c("semctl", nullptr);
    return c(id, number, command, argument);
}

SEEN int semop(int id, sembuf* operations, size_t count) noexcept
{
    static call<int(int, sembuf*, size_t)> c("semop", nullptr);
    return c(id, operations, count);
}

SEEN int socket(int domain, int type, int protocol) noexcept
{
    static call<int(int, int, int)> c("socket", nullptr);
    return c(domain, type, protocol);
}

SEEN int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept
{
    static call<int(int, int, int, const void*, socklen_t)> c("setsockopt", nullptr);
    return c(fd, level, name, value, length);
}

SEEN int bind(int fd, const sockaddr* address, socklen_t length) noexcept
{
    static call<int(int, const sockaddr*, socklen_t)> c("bind", nullptr);
    return c(fd, address, length);
}

SEEN int getsockname(int fd, sockaddr* __restrict address, socklen_t* __restrict length) noexcept
{
    static call<int(int, sockaddr*, socklen_t*)> c("getsockname", nullptr);
    return c(fd, address, length);
}

SEEN ssize_t sendto(int fd, const void* bytes, size_t count, int flags, const sockaddr* to, socklen_t length)
{
    static call<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)> c("sendto", nullptr);
    std::string instead;
    switch (fate_of_datagram(bytes, count, instead)) {
    case fate::dropped:
        return static_cast<ssize_t>(count);
    case fate::other_length:
        return c(fd, instead.data(), instead.size(), flags, to, length) < 0 ? -1 : static_cast<ssize_t>(count);
    case fate::as_sent:
        break;
    }
    return c(fd, bytes, count, flags, to, length);
}

SEEN ssize_t recv(int fd, void* bytes, size_t room, int flags)
{
    static call<ssize_t(int, void*, size_t, int)> c("recv", nullptr);
    return c(fd, bytes, room, flags);
}

SEEN uid_t geteuid() noexcept
{
    static call<uid_t()> c("geteuid", nullptr);
    return c();
}

SEEN int pthread_create(pthread_t* __restrict thread, const pthread_attr_t* __restrict attributes,
                        void* (*start)(void*), void* __restrict argument) noexcept
{
    static call<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> c("pthread_create", nullptr);
    return c.with_error_result(thread, attributes, start, argument);
}

SEEN int gethostbyname_r(const char* __restrict name, hostent* __restrict entry, char* __restrict room, size_t size,
                         hostent** __restrict result, int* __restrict h_error)
{
    static call<int(const char*, hostent*, char*, size_t, hostent**, int*)> c("gethostbyname_r", nullptr);
    const int code = c.with_error_result(name, entry, room, size, result, h_error);
    if (code != 0) *result = nullptr;
    return code;
}
}
