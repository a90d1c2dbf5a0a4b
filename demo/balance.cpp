#include "balance.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_int.h"

namespace demo {
namespace {

/// A segment attached for reading, beside and apart from any attachment of the library.
class segment {
  public:
    explicit segment(int shmid) : shmid_(shmid)
    {
        shmid_ds info{};
        if (shmctl(shmid, IPC_STAT, &info) != 0 || info.shm_segsz < sizeof(C_shm_global)) return;
        void* at = shmat(shmid, nullptr, SHM_RDONLY);
        if (at == reinterpret_cast<void*>(-1)) return;
        at_ = static_cast<const char*>(at);
        bytes_ = info.shm_segsz;
    }
    ~segment()
    {
        if (at_ != nullptr) shmdt(at_);
    }
    segment(const segment&) = delete;
    segment& operator=(const segment&) = delete;

    bool is_partition(const std::string& name) const
    {
        return at_ != nullptr && head().version == SHM_LAYOUT_VERSION &&
               name.compare(0, std::string::npos, head().name, strnlen(head().name, SHM_NAME_SIZE)) == 0;
    }
    const C_shm_global& head() const { return *reinterpret_cast<const C_shm_global*>(at_); }
    const C_shm_buf& descriptor(int i) const
    {
        return reinterpret_cast<const C_shm_buf*>(at_ + sizeof(C_shm_global))[i];
    }
    int id() const { return shmid_; }
    /// Number of descriptors that really lie in the segment.
    int descriptors() const
    {
        const size_t room = (bytes_ - sizeof(C_shm_global)) / sizeof(C_shm_buf);
        return static_cast<int>(std::min(room, static_cast<size_t>(std::max(+head().nbuf, 0))));
    }

  private:
    int shmid_;
    const char* at_ = nullptr;
    size_t bytes_ = 0;
};

// A damaged queue may run in a circle or point anywhere: no more steps than buffers, no index unchecked.
int free_queue_length(const segment& part)
{
    int length = 0;
    for (int i = part.head().free.head; i >= 0 && i < part.descriptors(); i = part.descriptor(i).link) {
        if (++length > part.descriptors()) break;
    }
    return length;
}

void with_partition(const std::string& name, const std::function<void(const segment&)>& act)
{
    for (int key = SHM_KEY_FIRST; key <= SHM_KEY_LAST; ++key) {
        const int shmid = shmget(key, 0, 0);
        if (shmid < 0) continue;
        const segment found(shmid);
        if (!found.is_partition(name)) continue;
        act(found);
        return;
    }
}

partition_balance balance_of(const expected_partition& wanted)
{
    partition_balance seen;
    seen.name = wanted.name;
    seen.slots = wanted.slots;
    with_partition(wanted.name, [&](const segment& part) {
        seen.shmid = part.id();
        seen.buffers = part.head().nbuf;
        seen.queued = free_queue_length(part);
        seen.countable = semctl(part.head().gbl_semid, gbl_empty, GETVAL);
    });
    return seen;
}

} // namespace

std::vector<partition_balance> read_balance(const std::vector<expected_partition>& wanted)
{
    std::vector<partition_balance> seen(wanted.size());
    std::transform(wanted.begin(), wanted.end(), seen.begin(), balance_of);
    return seen;
}

bool all_whole(const std::vector<partition_balance>& partitions)
{
    return std::all_of(partitions.begin(), partitions.end(), [](const partition_balance& one) { return one.whole(); });
}

std::vector<std::string> remove_leftovers(const std::vector<expected_partition>& wanted)
{
    std::vector<std::string> removed;
    for (const expected_partition& one : wanted) {
        with_partition(one.name, [&](const segment& part) {
            removed.push_back(one.name);
            semctl(part.head().gbl_semid, 0, IPC_RMID);
            shmctl(part.id(), IPC_RMID, nullptr);
        });
    }
    return removed;
}

} // namespace demo
