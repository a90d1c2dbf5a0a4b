#include "semaphore_set.h"

#include <cerrno>
#include <system_error>
#include <vector>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include "C_shm_int.h"
#include "machine.h"

namespace bench {
namespace {

[[noreturn]] void fail(const char* call) { throw std::system_error(errno, std::generic_category(), call); }

} // namespace

semaphore_set::semaphore_set(int buffers, bool locks, manner m)
    : id_(semget(IPC_PRIVATE, gbl_nsems + (locks ? buffers : 0), IPC_CREAT | 0600)), manner_(m)
{
    static_assert(GATE == gbl_gate && FREE == gbl_empty && FIRST_LOCK == gbl_nsems);
    if (id_ < 0) fail("semget");
    std::vector<unsigned short> values(static_cast<size_t>(gbl_nsems + (locks ? buffers : 0)), 1);
    values[gbl_empty] = static_cast<unsigned short>(buffers);
    values[gbl_full] = values[gbl_synch] = 0;
    semun argument{};
    argument.array = values.data();
    if (semctl(id_, 0, SETALL, argument) != 0) fail("semctl");
}

semaphore_set::~semaphore_set() { semctl(id_, 0, IPC_RMID); }

bool semaphore_set::try_change(int number, short by, short flags) const
{
    sembuf operation{static_cast<unsigned short>(number), by, flags};
    return semop(id_, &operation, 1) == 0;
}

void semaphore_set::change(int number, short by, short flags) const
{
    if (!try_change(number, by, flags)) fail("semop");
}

bool semaphore_set::yielded_for(int number) const
{
    constexpr int MOST = 64;
    constexpr int64_t LONGEST_NS = 100'000;
    const int64_t until = now_ns() + LONGEST_NS;
    for (int tries = 0; tries < MOST && now_ns() < until; ++tries) {
        sched_yield();
        if (try_change(number, -1, SEM_UNDO | IPC_NOWAIT)) return true;
        if (errno != EAGAIN) fail("semop");
    }
    return false;
}

// Undone when the process dies: a lock is never lost. Without waiting first: a busy lock is counted.
void semaphore_set::take_lock(int number) const
{
    if (try_change(number, -1, SEM_UNDO | IPC_NOWAIT)) return;
    if (errno != EAGAIN) fail("semop");
    if (manner_ == manner::strict || !yielded_for(number)) change(number, -1, SEM_UNDO);
}

void semaphore_set::give_lock(int number) const { change(number, 1, SEM_UNDO | IPC_NOWAIT); }

// Not undone: a dead process's buffer is still out.
void semaphore_set::count_taken() const { change(FREE, -1, IPC_NOWAIT); }

} // namespace bench
