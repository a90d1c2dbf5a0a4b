#include "live_segment.h"

#include <cstring>
#include <stdexcept>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace zrk4::test {
namespace {

union sem_argument {
    int val;
    semid_ds* buf;
};

} // namespace

live_segment::live_segment(int shmid, access how)
{
    shmid_ds info{};
    if (shmctl(shmid, IPC_STAT, &info) != 0) throw std::runtime_error("live_segment: no such segment");
    void* start = shmat(shmid, nullptr, how == READ ? SHM_RDONLY : 0);
    if (start == reinterpret_cast<void*>(-1)) throw std::runtime_error("live_segment: cannot attach");
    start_ = static_cast<char*>(start);
    size_ = info.shm_segsz;
}

live_segment::~live_segment() { shmdt(start_); }

char* live_segment::at(size_t offset, size_t count) const
{
    if (offset > size_ || count > size_ - offset) throw std::out_of_range("live_segment: behind the end");
    return start_ + offset;
}

uint8_t live_segment::byte(size_t offset) const { return static_cast<uint8_t>(*at(offset, 1)); }

int32_t live_segment::int32(size_t offset) const
{
    int32_t value = 0;
    std::memcpy(&value, at(offset, sizeof value), sizeof value);
    return value;
}

std::string live_segment::text(size_t offset, size_t room) const
{
    const char* first = at(offset, room);
    return {first, strnlen(first, room)};
}

std::string live_segment::bytes(size_t offset, size_t count) const { return {at(offset, count), count}; }

void live_segment::put_byte(size_t offset, uint8_t value) { *at(offset, 1) = static_cast<char>(value); }
void live_segment::put_int32(size_t offset, int32_t value)
{
    std::memcpy(at(offset, sizeof value), &value, sizeof value);
}

void live_segment::put_bytes(size_t offset, const std::string& bytes)
{
    std::memcpy(at(offset, bytes.size()), bytes.data(), bytes.size());
}

int segment_at_key(int key) { return shmget(key, 0, 0); }

bool segment_exists(int shmid)
{
    shmid_ds info{};
    return shmctl(shmid, IPC_STAT, &info) == 0 && (info.shm_perm.mode & SHM_DEST) == 0;
}

int attachments(int shmid)
{
    shmid_ds info{};
    return shmctl(shmid, IPC_STAT, &info) == 0 ? static_cast<int>(info.shm_nattch) : -1;
}

bool semaphore_set_exists(int semid) { return semctl(semid, 0, GETPID) >= 0; }

int semaphore_value(int semid, int number) { return semctl(semid, number, GETVAL); }
int semaphore_waiters(int semid, int number) { return semctl(semid, number, GETNCNT); }

int semaphores_in_set(int semid)
{
    semid_ds info{};
    sem_argument argument{};
    argument.buf = &info;
    return semctl(semid, 0, IPC_STAT, argument) == 0 ? static_cast<int>(info.sem_nsems) : -1;
}

bool change_semaphore(int semid, int number, int by)
{
    sembuf operation{static_cast<unsigned short>(number), static_cast<short>(by), IPC_NOWAIT};
    return semop(semid, &operation, 1) == 0;
}

} // namespace zrk4::test
