#include "C_shm_mpool.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include "decimal_stream.h"
#include "partition_test.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

int number(const C_shm_buffer& p, const char* key) { return std::stoi(p.getStat(key)); }

// What the report answers to "lbuf", without the way through text on the path of every event.
int length_now(const C_shm_buffer& p) { return p.found() ? p.getBufferLength() : 0; }

} // namespace

C_shm_mpool::labels C_shm_mpool::labels_of(const C_shm_buffer& p)
{
    return {p.getStat("name"), number(p, "shmid"), number(p, "lbuf")};
}

C_shm_mpool::~C_shm_mpool()
{
    for (const auto& [name, p] : buffers_names) delete p;
}

bool C_shm_mpool::pool_empty() const
{
    const std::shared_lock guard(mx_indexes);
    return buffers_sz.empty();
}

template <class Index, class Key> C_shm_buffer* C_shm_mpool::find_in(const Index& index, const Key& key) const
{
    const std::shared_lock guard(mx_indexes);
    const auto at = index.find(key);
    return at == index.end() ? nullptr : at->second;
}

C_shm_buffer* C_shm_mpool::find_by_name(const char* name) { return name ? find_in(buffers_names, name) : nullptr; }
C_shm_buffer* C_shm_mpool::find_by_id(int shmid) { return find_in(buffers_ids, shmid); }

bool C_shm_mpool::exists(int shmid)
{
    if (pool_empty()) return true; // deliberate: callers ask this before the first add
    const C_shm_buffer* p = find_by_id(shmid);
    return p != nullptr && p->valid() != 0;
}

bool C_shm_mpool::exists(const char* name)
{
    if (pool_empty()) return true; // as above
    const C_shm_buffer* p = find_by_name(name);
    return p != nullptr && p->valid() != 0;
}

template <class Index, class Key> bool C_shm_mpool::attach_existing(const Index& index, const Key& key)
{
    if (find_in(index, key) != nullptr) return false;
    auto p = std::make_unique<C_shm_buffer>(key);
    if (!*p) return true;
    const labels seen = labels_of(*p);
    const std::lock_guard guard(mx_indexes);
    // Another thread may have attached it meanwhile: then ours goes. It is declared before the guard and so outlives it.
    if (index.find(key) == index.end()) insert(p.release(), seen);
    return false;
}

bool C_shm_mpool::add(const char* name) { return name == nullptr || attach_existing(buffers_names, name); }
bool C_shm_mpool::add(int shmid) { return attach_existing(buffers_ids, shmid); }

int C_shm_mpool::add(const char* name, int nbuf, int lbuf, bool sems)
{
    auto p = std::make_unique<C_shm_buffer>(name, nbuf, lbuf, sems);
    if (!*p) {
        text_later::write_now();
        std::printf("C_shm_mpool::add() %s %d %d  bf->valid():%d\n", name ? name : "", nbuf, lbuf, p->valid());
        std::fflush(nullptr);
        return -1;
    }
    map_buffer(p.get());
    return number(*p.release(), "shmid");
}

void C_shm_mpool::map_buffer(C_shm_buffer* p)
{
    const labels seen = labels_of(*p);
    const std::lock_guard guard(mx_indexes);
    insert(p, seen);
}

void C_shm_mpool::insert(C_shm_buffer* p, const labels& seen)
{
    buffers_names[seen.name] = p;
    buffers_ids[seen.id] = p;
    const bool listed = std::any_of(buffers_sz.begin(), buffers_sz.end(), [&](const auto& e) { return e.second == p; });
    if (!listed) buffers_sz.emplace(seen.length, p);
}

// Name and id go by p's own, even where a newer object has taken them over. A partition that was removed under its handle
// answers neither: its entries go by the object, or they would outlive it.
void C_shm_mpool::unmap_buffer(C_shm_buffer* p)
{
    const labels seen = labels_of(*p);
    const std::lock_guard guard(mx_indexes);
    const auto at = std::find_if(buffers_sz.begin(), buffers_sz.end(), [&](const auto& e) { return e.second == p; });
    if (at != buffers_sz.end()) buffers_sz.erase(at);
    buffers_names.erase(seen.name);
    buffers_ids.erase(seen.id);
    if (p->found()) return;
    std::erase_if(buffers_names, [&](const auto& e) { return e.second == p; });
    std::erase_if(buffers_ids, [&](const auto& e) { return e.second == p; });
}

bool C_shm_mpool::remove_found(C_shm_buffer* p)
{
    if (p == nullptr) return true;
    unmap_buffer(p);
    delete p;
    return false;
}

bool C_shm_mpool::remove(const char* name) { return pool_empty() || remove_found(find_by_name(name)); }
bool C_shm_mpool::remove(int shmid) { return pool_empty() || remove_found(find_by_id(shmid)); }

std::vector<C_shm_buffer*> C_shm_mpool::by_id() const
{
    const std::shared_lock guard(mx_indexes);
    std::vector<C_shm_buffer*> partitions;
    for (const auto& [id, p] : buffers_ids) partitions.push_back(p);
    return partitions;
}

std::vector<C_shm_buffer*> C_shm_mpool::at_least(int size) const
{
    const std::shared_lock guard(mx_indexes);
    std::vector<C_shm_buffer*> partitions;
    for (auto at = buffers_sz.lower_bound(size); at != buffers_sz.end(); ++at) partitions.push_back(at->second);
    return partitions;
}

char* C_shm_mpool::get_buffer_from_pool(int flags, int size, int* shmid, int* bnum)
{
    if (size < 0) return nullptr;
    C_shm_buffer* from = nullptr;
    char* addr = nullptr;
    if (shmid != nullptr && *shmid > 0) {
        from = find_by_id(*shmid);
        if (from == nullptr || size > length_now(*from)) return nullptr;
        addr = from->get_buffer(flags, /*multi=*/true);
    } else {
        for (C_shm_buffer* fitting : at_least(size)) {
            from = fitting;
            addr = from->get_buffer(flags, /*multi=*/true);
            if (addr != nullptr) break;
        }
        if (addr != nullptr && shmid != nullptr) *shmid = number(*from, "shmid");
    }
    if (addr != nullptr && bnum != nullptr) *bnum = from->buffer_id(addr);
    return addr;
}

int C_shm_mpool::get_buffer_id_from_pool(char* addr, int* shmid)
{
    for (C_shm_buffer* p : by_id()) {
        const int bnum = p->buffer_id(addr);
        if (bnum == -1) continue;
        if (shmid != nullptr) *shmid = number(*p, "shmid");
        return bnum;
    }
    return -1;
}

char* C_shm_mpool::get_buffer_address(int bnum, int shmid, bool attach)
{
    const C_shm_buffer* p = find_by_id(shmid);
    // Nothing is attached to an empty pool: deliberate, such a pool has nothing to do with events yet.
    if (p == nullptr && attach && !pool_empty() && look_at_segment(shmid) != segment_is::strangers && !add(shmid))
        p = find_by_id(shmid);
    return p == nullptr ? nullptr : p->buffer_addr(bnum);
}

bool C_shm_mpool::return_buffer_in_pool(char* addr)
{
    for (C_shm_buffer* p : by_id()) {
        if (!p->return_buffer(addr)) return false;
    }
    return true;
}

bool C_shm_mpool::return_buffer_in_pool(char* addr, int shmid)
{
    if (shmid < 1) return true;
    C_shm_buffer* p = find_by_id(shmid);
    return p == nullptr || p->return_buffer(addr);
}

bool C_shm_mpool::return_buffer_in_pool(int bnum, int shmid)
{
    if (shmid < 1 || bnum < 0) return true;
    C_shm_buffer* p = find_by_id(shmid);
    return p == nullptr || p->return_buffer(bnum);
}

void C_shm_mpool::bufmode(int mode, char* name)
{
    if (C_shm_buffer* p = find_by_name(name)) p->bufmode(mode);
}

void C_shm_mpool::bufmode(int mode, int shmid)
{
    if (pool_empty()) return;
    if (C_shm_buffer* p = find_by_id(shmid)) {
        p->bufmode(mode);
    } else {
        std::printf("Partition not found: %d\n ", shmid); // the blank stands behind the newline: deliberate
    }
}

int C_shm_mpool::nbuf()
{
    int total = 0;
    for (const C_shm_buffer* p : by_id()) total += p->getBufferCount();
    return total;
}

void C_shm_mpool::pooldump(std::ostream& os)
{
    if (pool_empty()) {
        os << "C_shm_mpool::dump() No partition in the pool\n";
        return;
    }
    const decimal_stream format(os);
    int k = 0;
    for (const C_shm_buffer* p : by_id()) {
        os << "Partition " << k++ << "\n";
        p->dump(os);
    }
}

void C_shm_mpool::pooldump() { pooldump(std::cout); }
