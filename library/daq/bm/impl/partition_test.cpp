#include "partition_test.h"

#include <sys/shm.h>

#include "C_shm_int.h"

namespace zrk4::impl {

segment_is look_at_segment(int shmid)
{
    shmid_ds info{};
    if (shmctl(shmid, IPC_STAT, &info) != 0) return segment_is::unknown;
    const int key = info.shm_perm.__key;
    if (key < SHM_KEY_FIRST || key > SHM_KEY_LAST || info.shm_segsz < sizeof(C_shm_global))
        return segment_is::strangers;
    const void* at = shmat(shmid, nullptr, SHM_RDONLY);
    if (at == reinterpret_cast<const void*>(-1)) return segment_is::unknown;
    const bool version_fits = static_cast<const C_shm_global*>(at)->version == SHM_LAYOUT_VERSION;
    shmdt(at);
    return version_fits ? segment_is::partition : segment_is::strangers;
}

} // namespace zrk4::impl
