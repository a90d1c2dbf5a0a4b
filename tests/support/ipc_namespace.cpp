#include "ipc_namespace.h"

#include <cerrno>
#include <chrono>
#include <thread>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace zrk4::test {
namespace {

union sem_argument {
    int val;
    seminfo* info;
};

// Root needs the first call only; an ordinary user gets the namespace inside a user namespace.
bool unshare_ipc() { return unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0; }

// The kernel frees the namespaces of ended programs in the background, and their number is limited.
bool unshare_ipc_patiently()
{
    for (int tries = 0; tries < 200; ++tries) {
        if (unshare_ipc()) return true;
        if (errno != ENOSPC) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

int highest_segment_index(int& used)
{
    shm_info info{};
    const int highest = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
    used = info.used_ids;
    return highest;
}

int highest_set_index(int& used)
{
    seminfo info{};
    sem_argument argument{};
    argument.info = &info;
    const int highest = semctl(0, 0, SEM_INFO, argument);
    used = info.semusz;
    return highest;
}

} // namespace

bool enter_ipc_namespace()
{
    if (!unshare_ipc_patiently()) return false;
    const int segment = shmget(IPC_PRIVATE, 1, 0600);
    const int set = semget(IPC_PRIVATE, 1, 0600);
    return shmctl(segment, IPC_RMID, nullptr) == 0 && semctl(set, 0, IPC_RMID) == 0;
}

int segments_in_namespace()
{
    int used = -1;
    highest_segment_index(used);
    return used;
}

int semaphore_sets_in_namespace()
{
    int used = -1;
    highest_set_index(used);
    return used;
}

void clear_ipc_namespace()
{
    int used = 0;
    for (int i = highest_segment_index(used); i >= 0; --i) {
        shmid_ds info{};
        const int id = shmctl(i, SHM_STAT, &info);
        if (id >= 0) shmctl(id, IPC_RMID, nullptr);
    }
    for (int i = highest_set_index(used); i >= 0; --i) {
        semid_ds info{};
        const int id = semctl(i, 0, SEM_STAT, &info);
        if (id >= 0) semctl(id, 0, IPC_RMID);
    }
}

} // namespace zrk4::test
