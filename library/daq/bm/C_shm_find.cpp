// Search for an existing partition.
#include "C_shm.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/shm.h>

#include "text_later.h"

namespace {

void* const NOT_MAPPED = reinterpret_cast<void*>(-1);

// An event may name a partition that is gone, and is freed with locks in hand: then these wait as all texts do.
void say_attach_failed(int error)
{
    errno = error;
    zrk4::impl::say_perror("C_shm_find - shmget");
    zrk4::impl::say_plain("SYSERROR: %d\n", error);
}

} // namespace

bool C_shm::find(const char* name)
{
    if (attached || name == nullptr) return true;
    if (share_mapping(name)) {
        // The other handle may belong to a thread that is still setting the partition up.
        while (!gate(true)) {}
        while (!gate(false)) {}
        return false;
    }
    bool search_ends = false;
    for (int key = SHM_KEY_FIRST; key <= SHM_KEY_LAST && !search_ends; ++key) {
        if (find_at_key(key, name, search_ends)) return false;
    }
    return true;
}

bool C_shm::find_at_key(int key, const char* name, bool& search_ends)
{
    const int id = shmget(key, sizeof(C_shm_global), 0);
    if (id < 0) return false;
    void* at = shmat(id, nullptr, 0);
    if (at == nullptr) {
        zrk4::impl::text_later::write_now();
        std::printf("POINTER == NULL !!!!\n");
        std::fflush(nullptr);
        search_ends = true;
        return false;
    }
    if (at == NOT_MAPPED) {
        const int error = errno;
        // Removed since the look at its key: then there is no partition here, which was true all along.
        if ((error == EINVAL || error == EIDRM) && shmget(key, sizeof(C_shm_global), 0) != id) return false;
        say_attach_failed(error);
        search_ends = true;
        return false;
    }
    if (std::strncmp(static_cast<C_shm_global*>(at)->name, name, SHM_NAME_SIZE) != 0) {
        shmdt(at);
        return false;
    }
    pointer = at;
    ident = id;
    attached = true;
    return true;
}

bool C_shm::find(int shmid)
{
    if (attached) return true;
    if (share_mapping(shmid)) return false;
    void* at = shmat(shmid, nullptr, 0);
    if (at == NOT_MAPPED) {
        say_attach_failed(errno);
        return true;
    }
    pointer = at;
    ident = shmid;
    attached = true;
    return false;
}
