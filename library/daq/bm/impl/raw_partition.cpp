#include "raw_partition.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include <sched.h>
#include <sys/sem.h>

#include "geometry.h"
#include "sem_change.h"
#include "unlocked.h"

namespace zrk4::impl {

mapped_segment::mapped_segment(int shmid) : shmid_(shmid)
{
    shmid_ds info{};
    if (shmctl(shmid, IPC_STAT, &info) != 0 || info.shm_segsz < sizeof(C_shm_global)) return;
    void* at = shmat(shmid, nullptr, 0);
    if (at == reinterpret_cast<void*>(-1)) return;
    at_ = static_cast<char*>(at);
    size_ = info.shm_segsz;
}

mapped_segment::~mapped_segment()
{
    if (at_ != nullptr) shmdt(at_);
}

long mapped_segment::others() const
{
    shmid_ds info{};
    if (shmctl(shmid_, IPC_STAT, &info) != 0) return 0;
    return static_cast<long>(info.shm_nattch) - 1;
}

raw_partition::raw_partition(mapped_segment segment) : segment_(std::move(segment))
{
    const C_shm_global seen = read_unlocked(&control());
    name_ = {seen.name, strnlen(seen.name, SHM_NAME_SIZE)};
    nbuf_ = seen.nbuf;
    lbuf_ = seen.lbuf;
    has_locks_ = seen.sems != 0;
    if (name_.empty()) {
        condition_ = state::unnamed;
    } else if (seen.version != SHM_LAYOUT_VERSION) {
        condition_ = state::other_version;
    } else if (!offsets_fit(nbuf_, lbuf_) || segment_size(nbuf_, lbuf_) > segment_.size()) {
        condition_ = state::too_short;
    }
    if (condition_ != state::sound) nbuf_ = lbuf_ = 0;
}

long members_of(int semid)
{
    semid_ds info{};
    semun argument{};
    argument.buf = &info;
    return semctl(semid, 0, IPC_STAT, argument) == 0 ? static_cast<long>(info.sem_nsems) : -1;
}

bool raw_partition::has_semaphores() const { return members_of(semid()) >= gbl_nsems + (has_locks_ ? nbuf_ : 0); }

bool raw_partition::read_semaphores(std::vector<unsigned short>& values) const
{
    const long members = members_of(semid());
    if (members < 0) return false;
    values.resize(static_cast<size_t>(members));
    semun argument{};
    argument.array = values.data();
    return semctl(semid(), 0, GETALL, argument) == 0;
}

char* raw_partition::buffer_addr(int i) const
{
    if (i < 0 || i >= nbuf_) return nullptr;
    const int64_t offset = word_unlocked(&descriptors()[i].boff);
    const bool inside =
        offset >= static_cast<int64_t>(table_size()) && offset + lbuf_ <= static_cast<int64_t>(segment_.size());
    return inside ? segment_.at() + offset : nullptr;
}

bool raw_partition::handed_out(int i) const { return (word_unlocked(&descriptors()[i].status) & BUF_QUEUED) == 0; }

pid_t raw_partition::owner(int i) const { return word_unlocked(&descriptors()[i].owner_pid); }

int raw_partition::value(int semaphore) const { return semctl(semid(), semaphore, GETVAL); }

raw_lock::raw_lock(const raw_partition& part, int semaphore, patience how_long)
    : semaphore_(static_cast<unsigned short>(semaphore)), told_(part.segment().at() + semaphore)
{
    if (!take(part.semid(), how_long)) return;
    semid_ = part.semid();
    tell_taken(told_);
}

// Yields first: a holder keeps a lock for microseconds.
bool raw_lock::take(int semid, patience how_long) const
{
    constexpr int YIELDS = 16;
    const auto until = std::chrono::steady_clock::now() + how_long;
    for (int tries = 0;; ++tries) {
        sembuf at_once{semaphore_, -1, SEM_UNDO | IPC_NOWAIT};
        if (semop(semid, &at_once, 1) == 0) return true;
        if (errno != EAGAIN && errno != EINTR) return false;
        const std::chrono::nanoseconds left = until - std::chrono::steady_clock::now();
        if (left.count() <= 0) return false;
        if (tries < YIELDS) {
            sched_yield();
            continue;
        }
        sembuf waiting{semaphore_, -1, SEM_UNDO};
        const timespec limit{static_cast<time_t>(left.count() / 1'000'000'000), left.count() % 1'000'000'000};
        if (semtimedop(semid, &waiting, 1, &limit) == 0) return true;
        if (errno != EINTR) return false;
    }
}

void raw_lock::give()
{
    if (semid_ < 0) return;
    tell_giving(told_);
    sembuf back{semaphore_, 1, SEM_UNDO};
    semop(std::exchange(semid_, -1), &back, 1);
}

bool change_count(const raw_partition& part, int semaphore, int by)
{
    sembuf change{static_cast<unsigned short>(semaphore), static_cast<short>(by), IPC_NOWAIT};
    return semop(part.semid(), &change, 1) == 0;
}

std::vector<int> segments_at_partition_keys()
{
    std::vector<int> ids;
    for (int key = SHM_KEY_FIRST; key <= SHM_KEY_LAST; ++key) {
        const int id = shmget(key, 0, 0);
        if (id >= 0) ids.push_back(id);
    }
    return ids;
}

} // namespace zrk4::impl
