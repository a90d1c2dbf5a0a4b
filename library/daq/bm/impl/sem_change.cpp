#include "sem_change.h"

#include <atomic>
#include <chrono>

namespace zrk4::impl {
namespace {

constexpr int YIELDS = 64;
constexpr std::chrono::microseconds YIELD_TIME{100};

// A holder keeps a lock for microseconds; going to sleep for it and being woken costs ten times as much. Yielding, not
// spinning: with more processes than processors the holder may be the one that waits for this processor. A yield can
// last a time slice, hence the limit in time as well. EAGAIN when it is busy still; any other reason is the answer.
bool changed_after_yields(int semid, unsigned short number, short by)
{
    const auto until = std::chrono::steady_clock::now() + YIELD_TIME;
    for (int i = 0; i < YIELDS && std::chrono::steady_clock::now() < until; ++i) {
        direct::sched_yield();
        if (changed(semid, number, by, SEM_UNDO | IPC_NOWAIT)) return true;
        if (errno != EAGAIN) return false;
    }
    return false;
}

} // namespace

sem_outcome change_after_refusal(int semid, unsigned short number, short by, int32_t& busy)
{
    if (errno == EINTR) return sem_outcome::interrupted;
    if (errno != EAGAIN) return sem_outcome::failed_at_once;
    // Threads share the counter, and who looks at it while this one waits sees it counted.
    std::atomic_ref<int32_t>(busy).fetch_add(1, std::memory_order_relaxed);
    if (changed_after_yields(semid, number, by)) return sem_outcome::done;
    if (errno == EAGAIN && changed(semid, number, by, SEM_UNDO)) return sem_outcome::done;
    return errno == EINTR ? sem_outcome::interrupted : sem_outcome::failed_waiting;
}

} // namespace zrk4::impl
