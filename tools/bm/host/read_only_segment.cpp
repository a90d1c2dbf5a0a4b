#include "host/read_only_segment.h"

#include <cerrno>

#include <sys/shm.h>

namespace bm {

read_only_segment::read_only_segment(int id) : id_(id)
{
    const void* at = shmat(id, nullptr, SHM_RDONLY);
    if (at == reinterpret_cast<const void*>(-1)) {
        error_ = errno;
        return;
    }
    // Asked for behind the attachment: the id can no longer become another segment's.
    shmid_ds info{};
    if (shmctl(id, IPC_STAT, &info) != 0) {
        error_ = errno;
        shmdt(at);
        return;
    }
    at_ = static_cast<const char*>(at);
    bytes_ = info.shm_segsz;
}

read_only_segment::~read_only_segment()
{
    if (at_ != nullptr) shmdt(at_);
}

bool read_only_segment::removed() const
{
    shmid_ds info{};
    return shmctl(id_, IPC_STAT, &info) != 0 || (info.shm_perm.mode & SHM_DEST) != 0;
}

} // namespace bm
