// Making of a partition: a free key, the segment, the semaphore set, and the records in it.
#include "C_shm.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include <sys/sem.h>
#include <sys/shm.h>

#include "geometry.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

void* const NOT_MAPPED = reinterpret_cast<void*>(-1);

int first_free_key()
{
    for (int key = SHM_KEY_FIRST; key <= SHM_KEY_LAST; ++key) {
        // A segment that is too small or not ours answers with another error, and occupies its key all the same.
        if (shmget(key, sizeof(C_shm_global), 0) < 0 && errno == ENOENT) return key;
    }
    return -1;
}

// Segment id 0 exists (the kernel's first one), but means "none" wherever an event lists a buffer: a partition with it
// could never carry data. Not exclusive: deliberate, a second maker at the same moment gets the same segment.
int create_segment(int key, size_t size)
{
    int id = shmget(key, size, IPC_CREAT | 0666);
    if (id == 0) {
        shmctl(id, IPC_RMID, nullptr);
        id = shmget(key, size, IPC_CREAT | 0666);
    }
    return id;
}

void perror_at_once(const char* prefix, int error)
{
    text_later::write_now();
    errno = error;
    std::perror(prefix);
}

// The whole set in one call: the gate opens together with the rest, over records that stand already.
bool set_semaphores(int semid, int nbuf, int count)
{
    if (nbuf > std::numeric_limits<short>::max()) {
        errno = ERANGE; // the kernel's limit for one semaphore; a cut value would make buffers unreachable
        return false;
    }
    std::vector<unsigned short> values(static_cast<size_t>(count), 1);
    values[gbl_empty] = static_cast<unsigned short>(nbuf);
    values[gbl_full] = 0;
    values[gbl_synch] = 0;
    semun argument{};
    argument.array = values.data();
    return semctl(semid, 0, SETALL, argument) == 0;
}

int create_semaphores(int nbuf, bool sems)
{
    const int count = gbl_nsems + (sems ? nbuf : 0);
    const int semid = semget(IPC_PRIVATE, count, IPC_CREAT | 0666);
    if (semid < 0) return -1;
    if (set_semaphores(semid, nbuf, count)) return semid;
    const int error = errno;
    semctl(semid, 0, IPC_RMID);
    errno = error;
    return -1;
}

} // namespace

bool C_shm::make(const char* name, int nbuf, int lbuf)
{
    if (attached) return false;
    if (name == nullptr || !offsets_fit(nbuf, lbuf)) {
        shm_error = CantCreate;
        perror_at_once("shmget", EINVAL);
        return true;
    }
    const int key = first_free_key();
    if (key < 0) {
        shm_error = NoFreeID;
        return true;
    }
    const int id = create_segment(key, segment_size(nbuf, lbuf));
    if (id < 0) {
        shm_error = CantCreate;
        perror_at_once("shmget", errno);
        return true;
    }
    ident = id;
    void* at = shmat(id, nullptr, 0);
    int error = errno;
    // Deliberately the first word of the segment beside the result of the call.
    if (at == NOT_MAPPED || static_cast<C_shm_global*>(at)->status == -1) {
        perror_at_once("C_shm_make - error", error);
        shm_error = CantAttach;
        perror_at_once("shmat", error);
        if (at != NOT_MAPPED) shmdt(at);
        shmctl(id, IPC_RMID, nullptr);
        return true;
    }
    pointer = at;
    if (initialise(name, nbuf, lbuf)) {
        attached = true;
        return false;
    }
    error = errno;
    perror_at_once("C_shm_make - error allocating global sems", error);
    shm_error = CantCreateSem;
    pointer = nullptr;
    shmdt(at);
    shmctl(id, IPC_RMID, nullptr);
    return false;
}

// The name comes last: a process that searches by name must not meet a partition whose version, gate or queues are
// still missing, because it would take it for a broken one and remove it.
bool C_shm::initialise(const char* name, int nbuf, int lbuf) const
{
    C_shm_global* g = global();
    g->gbl_count = 0;
    const int semid = create_semaphores(nbuf, more_sems);
    if (semid < 0) return false;
    g->gbl_semid = semid;
    g->lbuf = lbuf;
    g->status = SHM_RELEASE | SHM_SCAVAGE;
    g->version = SHM_LAYOUT_VERSION;
    g->sems = more_sems ? 1 : 0;
    g->nbuf = nbuf;
    g->full.init();
    g->free.init();
    auto* descriptors = reinterpret_cast<C_shm_buf*>(static_cast<char*>(pointer) + sizeof(C_shm_global));
    for (int i = 0; i < nbuf; ++i) {
        C_shm_buf& buf = descriptors[i];
        buf.use_count = 0;
        buf.boff = static_cast<int32_t>(buffer_offset(nbuf, lbuf, i));
        buf.status |= BUF_QUEUED;
        buf.ldata = 0;
        buf.trig = 0;
        buf.evt_count = 0;
        g->free.link(descriptors, i);
    }
    std::atomic_signal_fence(std::memory_order_release); // enough: this processor keeps the order of stores
    const size_t length = strnlen(name, SHM_NAME_SIZE - 1);
    std::memcpy(g->name, name, length);
    g->name[length] = '\0';
    return true;
}
