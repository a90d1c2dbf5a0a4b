/// @file
/// One operation on one semaphore of a System V set.
#ifndef ZRK4_IMPL_SEM_CHANGE_H
#define ZRK4_IMPL_SEM_CHANGE_H

#include <cstdint>

namespace zrk4::impl {

/// How an operation that may wait ended; `errno` holds the reason of a failure.
enum class sem_outcome {
    done,
    interrupted,    ///< a signal ended the wait
    failed_at_once, ///< the try without waiting failed, and not because the semaphore is busy
    failed_waiting  ///< the blocking wait failed
};

/// Adds `by` to semaphore `number`, undone at the process's death: a try without waiting, then bounded further tries
/// with a yield between them, then the blocking wait. `busy` is counted up once, before it waits, when the first try
/// finds it busy.
sem_outcome change_with_undo(int semid, unsigned short number, short by, int32_t& busy);

/// Adds `by` without undo. @return 0, or the errno.
int change_without_undo(int semid, unsigned short number, short by, short flags);

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
