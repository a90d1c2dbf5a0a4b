// What a process knows of its own handles: the chain on which they share mappings, and the count of handles per
// segment that tells when to detach.
#include "C_shm.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include <sys/shm.h>

#include "text_later.h"

namespace {

// Never destroyed: a handle that lives as long as the process may be released after this file's objects are gone.
union registry_place {
    std::vector<shmid_entry*> list;
    constexpr registry_place() : list() {}
    ~registry_place() {} // NOLINT(modernize-use-equals-default): the default one of a union would be deleted
} registry;

// Guards the chain and the mapping of every handle on it. Taken inside mx_cnts, never the other way round.
std::mutex mx_chain;

} // namespace

C_shm* C_shm::base = nullptr;
std::mutex C_shm::mx_cnts;
constinit std::vector<shmid_entry*>& C_shm::shmid_list = registry.list;

void C_shm::push_on_chain()
{
    const std::lock_guard guard(mx_chain);
    link = base;
    base = this;
}

// A handle may be missing: flush() empties the chain, and a copy without access was never on it.
void C_shm::unlink_from_chain()
{
    const std::lock_guard guard(mx_chain);
    for (C_shm** at = &base; *at != nullptr; at = &(*at)->link) {
        if (*at == this) {
            *at = link;
            return;
        }
    }
}

void C_shm::flush()
{
    const std::lock_guard guard(mx_chain);
    base = nullptr;
}

// Exact comparison: a name in a segment is cut to 255 characters, so a longer one equals none.
bool C_shm::is_on(const char* name) const
{
    return attached && name != nullptr && std::strncmp(global()->name, name, SHM_NAME_SIZE) == 0;
}

bool C_shm::is_on(int shmid) const { return attached && ident == shmid; }

template <class Partition> bool C_shm::share_mapping(Partition wanted)
{
    const std::lock_guard guard(mx_chain);
    for (const C_shm* other = base; other != nullptr; other = other->link) {
        if (other == this || !other->is_on(wanted)) continue;
        pointer = other->pointer;
        ident = other->ident;
        attached = true;
        return true;
    }
    return false;
}
template bool C_shm::share_mapping(const char*);
template bool C_shm::share_mapping(int);

int C_shm::attaches(const char* name)
{
    const std::lock_guard guard(mx_chain);
    int count = 0;
    for (const C_shm* handle = base; handle != nullptr; handle = handle->link) count += handle->is_on(name) ? 1 : 0;
    return count;
}

int C_shm::attaches(int shmid)
{
    const std::lock_guard guard(mx_chain);
    int count = 0;
    for (const C_shm* handle = base; handle != nullptr; handle = handle->link) count += handle->is_on(shmid) ? 1 : 0;
    return count;
}

void C_shm::forget_mapping()
{
    attached = false;
    accessed = false;
    pointer = nullptr;
}

// Other handles of the process may use the same mapping without the registry knowing (a copy, a refused partition): it
// is not taken from under them. Only a partition that is being removed ends for all, and they are told.
void C_shm::detach(mapping what)
{
    const std::lock_guard guard(mx_chain);
    const void* segment = pointer;
    forget_mapping();
    bool shared = false;
    for (C_shm* other = base; other != nullptr; other = other->link) {
        if (!other->attached || other->pointer != segment) continue;
        shared = true;
        if (what == mapping::gone_for_all) other->forget_mapping();
    }
    if (what == mapping::gone_for_all || (what == mapping::unless_shared && !shared)) shmdt(segment);
}

int C_shm::add_shmid_entry(int id)
{
    for (shmid_entry* entry : shmid_list) {
        if (entry->id != id) continue;
        ++entry->cnt;
        return 0;
    }
    auto* entry = new (std::nothrow) shmid_entry{id, 1};
    if (entry == nullptr) {
        std::printf("add_shmid_entry() failed to malloc()\n");
        return -1;
    }
    shmid_list.push_back(entry);
    return 1;
}

int C_shm::rem_shmid_entry(int id)
{
    const auto at = std::find_if(shmid_list.begin(), shmid_list.end(), [&](shmid_entry* e) { return e->id == id; });
    if (at == shmid_list.end()) {
        zrk4::impl::text_later::write_now();
        std::printf("rem_shmid_entry() shmid: %d  NOT FOUND\n", id);
        return -1;
    }
    if ((*at)->cnt > 1) {
        --(*at)->cnt;
        return 1;
    }
    delete *at;
    shmid_list.erase(at);
    return 0;
}
