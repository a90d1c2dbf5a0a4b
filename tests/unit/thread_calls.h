/// @file
/// Calls on threads that fail at the wish of a test, and what threads and sockets a process has. One source of a test
/// program includes it: the calls are found before the C library's.
#ifndef ZRK4_TEST_THREAD_CALLS_H
#define ZRK4_TEST_THREAD_CALLS_H

#include <csignal>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>

#include <dlfcn.h>
#include <pthread.h>

namespace zrk4::test {

/// Error with which a call answers, 0 = the real one is made; and how often it was made. Plain words, because a
/// sanitizer calls through here in threads that it does not know yet.
struct thread_call {
    int error = 0;
    int made = 0;
    void* real = nullptr;
};
inline thread_call attr_init_call, kill_call, join_call;

inline int made(const thread_call& call) { return __atomic_load_n(&call.made, __ATOMIC_SEQ_CST); }

/// Lets a call fail for the life of the object.
class failing {
  public:
    failing(thread_call& call, int error) : call_(call) { __atomic_store_n(&call_.error, error, __ATOMIC_SEQ_CST); }
    ~failing() { __atomic_store_n(&call_.error, 0, __ATOMIC_SEQ_CST); }
    failing(const failing&) = delete;
    failing& operator=(const failing&) = delete;

  private:
    thread_call& call_;
};

/// Whether a signal is meant for the program's own threads, and not for those of a buffer manager.
inline bool is_for_the_program(int signal)
{
    return signal == SIGIO || signal == SIGINT || signal == SIGTERM || signal == SIGALRM || signal == SIGUSR1 ||
           signal == SIGUSR2;
}

/// Threads of this process; one that was joined can be seen a moment longer.
inline long threads_now()
{
    const std::filesystem::directory_iterator first("/proc/self/task");
    return std::distance(first, std::filesystem::directory_iterator());
}
/// Open sockets of this process.
inline long sockets_now()
{
    long count = 0;
    for (const auto& one : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the directory's own descriptor is
        if (read_symlink(one.path(), gone).native().rfind("socket:", 0) == 0) ++count;
    }
    return count;
}

} // namespace zrk4::test

#define UNSEEN __attribute__((no_sanitize("address", "thread", "undefined")))

extern "C" {

UNSEEN int pthread_attr_init(pthread_attr_t* attributes) noexcept
{
    auto& call = zrk4::test::attr_init_call;
    __atomic_fetch_add(&call.made, 1, __ATOMIC_SEQ_CST);
    if (call.error != 0) return call.error;
    if (call.real == nullptr) call.real = dlsym(RTLD_NEXT, "pthread_attr_init");
    return reinterpret_cast<int (*)(pthread_attr_t*)>(call.real)(attributes);
}

UNSEEN int pthread_kill(pthread_t thread, int signal) noexcept
{
    auto& call = zrk4::test::kill_call;
    __atomic_fetch_add(&call.made, 1, __ATOMIC_SEQ_CST);
    if (call.error != 0) return call.error;
    if (call.real == nullptr) call.real = dlsym(RTLD_NEXT, "pthread_kill");
    return reinterpret_cast<int (*)(pthread_t, int)>(call.real)(thread, signal);
}

UNSEEN int pthread_timedjoin_np(pthread_t thread, void** result, const timespec* until)
{
    auto& call = zrk4::test::join_call;
    __atomic_fetch_add(&call.made, 1, __ATOMIC_SEQ_CST);
    if (call.error != 0) return call.error;
    if (call.real == nullptr) call.real = dlsym(RTLD_NEXT, "pthread_timedjoin_np");
    return reinterpret_cast<int (*)(pthread_t, void**, const timespec*)>(call.real)(thread, result, until);
}
}

#undef UNSEEN

#endif
