#include "own_pid.h"

#include <atomic>

#include <pthread.h>
#include <unistd.h>

namespace zrk4::impl {
namespace {

std::atomic<pid_t> cached{0};

void refresh() { cached.store(getpid(), std::memory_order_relaxed); }

} // namespace

pid_t own_pid()
{
    static const int watched = pthread_atfork(nullptr, nullptr, refresh);
    // Without the fork handler the id could be the parent's: ask each time.
    if (watched != 0) return getpid();
    if (cached.load(std::memory_order_relaxed) == 0) refresh();
    return cached.load(std::memory_order_relaxed);
}

} // namespace zrk4::impl
