#include "partition_test.h"

#include <sys/shm.h>

#include "C_shm_int.h"

namespace zrk4::impl {

bool is_partition(int shmid)
{
    shmid_ds info{};
    if (shmctl(shmid, IPC_STAT, &info) != 0) return false;
    const int key = info.shm_perm.__key;
    if (key < SHM_KEY_FIRST || key > SHM_KEY_LAST || info.shm_segsz < sizeof(C_shm_global)) return false;
    const void* at = shmat(shmid, nullptr, SHM_RDONLY);
    if (at == reinterpret_cast<const void*>(-1)) return false;
    const bool version_fits = static_cast<const C_shm_global*>(at)->version == SHM_LAYOUT_VERSION;
    shmdt(at);
    return version_fits;
}

} // namespace zrk4::impl
