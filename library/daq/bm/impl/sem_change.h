/// @file
/// One operation on one semaphore of a System V set.
#ifndef ZRK4_IMPL_SEM_CHANGE_H
#define ZRK4_IMPL_SEM_CHANGE_H

#include <cerrno>
#include <cstdint>

#include <sys/sem.h>

#include "direct_call.h"

namespace zrk4::impl {

/// How an operation that may wait ended; `errno` holds the reason of a failure.
enum class sem_outcome {
    done,
    interrupted,    ///< a signal ended the wait
    failed_at_once, ///< the try without waiting failed, and not because the semaphore is busy
    failed_waiting  ///< the blocking wait failed
};

/// One operation. @return whether it was done; if not, `errno` says why.
inline bool changed(int semid, unsigned short number, short by, int flags)
{
    sembuf operation{number, by, static_cast<short>(flags)};
    return direct::semop(semid, &operation, 1) == 0;
}

/// What follows a first try that failed: `errno` is the reason.
__attribute__((cold)) sem_outcome change_after_refusal(int semid, unsigned short number, short by, int32_t& busy);

/// Adds `by` to semaphore `number`, undone at the process's death: a try without waiting, then bounded further tries
/// with a yield between them, then the blocking wait. `busy` is counted up once, before it waits, when the first try
/// finds it busy.
inline sem_outcome change_with_undo(int semid, unsigned short number, short by, int32_t& busy)
{
    if (changed(semid, number, by, SEM_UNDO | IPC_NOWAIT)) return sem_outcome::done;
    return change_after_refusal(semid, number, by, busy);
}

/// Adds `by` without undo. @return 0, or the errno.
inline int change_without_undo(int semid, unsigned short number, short by, short flags)
{
    return changed(semid, number, by, flags) ? 0 : errno;
}

// The thread sanitizer does not know System V semaphores: both ends of a lock tell it, on one address per semaphore.
#if defined(__SANITIZE_THREAD__)
#define ZRK4_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZRK4_TSAN 1
#endif
#endif
#ifdef ZRK4_TSAN
extern "C" void __tsan_acquire(void*);
extern "C" void __tsan_release(void*);
inline void tell_taken(void* lock) { __tsan_acquire(lock); }
inline void tell_giving(void* lock) { __tsan_release(lock); }
#else
inline void tell_taken(void*) {}
inline void tell_giving(void*) {}
#endif

} // namespace zrk4::impl

#endif
