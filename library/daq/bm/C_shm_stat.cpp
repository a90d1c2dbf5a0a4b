// Reports on a partition, and addresses of its buffers.
#include "C_shm.h"

#include <cstring>
#include <iostream>

#include "partition_report.h"
#include "unlocked.h"

using namespace zrk4::impl;

namespace {

std::string decimal(int64_t value)
{
    if (value < 0) return "-" + decimal(-value);
    const std::string last(1, static_cast<char>('0' + value % 10));
    return value < 10 ? last : decimal(value / 10) + last;
}

std::string name_of(const C_shm_global* g) { return {g->name, strnlen(g->name, SHM_NAME_SIZE)}; }

const C_shm_buf* descriptors_of(const C_shm_global* g) { return reinterpret_cast<const C_shm_buf*>(g + 1); }

std::string event_total(const C_shm_global* g)
{
    int64_t total = 0;
    for (int i = 0; i < g->nbuf; ++i) total += descriptors_of(g)[i].evt_count;
    return decimal(total);
}

// "-0", not "-1", for an empty queue: scripts compare with it.
std::string last_id(const C_shm_global* g)
{
    const int tail = g->full.tail;
    return g->full.empty() || tail < 0 || tail >= g->nbuf ? "-0" : decimal(descriptors_of(g)[tail].data_ID);
}

} // namespace

char* C_shm::buffer_addr(int i) const
{
    if (!accessed || i < 0 || i >= NBuff) return nullptr;
    return static_cast<char*>(pointer) + word_unlocked(&bufptr[i].boff);
}

int C_shm::buffer_id(char* addr) const
{
    if (!accessed) return -1;
    // Buffers lie side by side: no search, unless the descriptors say otherwise. Buffers of length 0 share an address.
    if (NByte > 0 && NBuff > 0) {
        const int64_t guess = (addr - buffer_addr(0)) / NByte;
        if (guess >= 0 && guess < NBuff && buffer_addr(static_cast<int>(guess)) == addr) return static_cast<int>(guess);
    }
    for (int i = 0; i < NBuff; ++i) {
        if (buffer_addr(i) == addr) return i;
    }
    return -1;
}

int C_shm::buffer_length(int i) const
{
    if (!accessed || i < 0 || i >= NBuff) return 0;
    return bufptr[i].ldata;
}

// The gate is taken once and given back whatever the result: deliberate, no retry.
template <class Wanted> std::string C_shm::count_queued(const C_shm_BufferQ& queue, Wanted wanted) const
{
    const C_shm_global* g = global();
    const C_shm_buf* bufs = descriptors_of(g);
    gate(true);
    int64_t count = 0;
    int steps = 0;
    for (int i = queue.head; i >= 0 && i < g->nbuf && steps++ < g->nbuf; i = bufs[i].link) count += wanted(bufs[i]);
    while (!gate(false)) {}
    return decimal(count);
}

std::string C_shm::getStat(const std::string& key) const
{
    if (!attached) return "0";
    const C_shm_global* g = global();
    const auto any = [](const C_shm_buf&) { return 1; };
    const auto used = [](const C_shm_buf& buf) { return buf.inUse() ? 1 : 0; };
    if (key == "exists") return "1";
    if (key == "name") return name_of(g);
    if (key == "pflags") return mode_words(g->status);
    if (key == "shmid") return decimal(ident);
    if (key == "version") return decimal(g->version);
    if (key == "nbuf") return decimal(g->nbuf);
    if (key == "lbuf") return decimal(g->lbuf);
    if (key == "use_count") return decimal(g->gbl_count);
    if (key == "buffer_tot") return event_total(g);
    if (key == "maxcons") return "0";
    if (key == "semglobal") return decimal(g->gbl_semid);
    if (key == "fullbuf") return count_queued(g->full, any);
    if (key == "freebuf") return count_queued(g->free, any);
    if (key == "usedbuf") return count_queued(g->full, used);
    if (key == "last_ID") return last_id(g);
    return "Undefined parameter";
}

void C_shm::dump(std::ostream& os) const
{
    if (!attached) return;
    dump_partition(os, *global());
}

void C_shm::dump() const { dump(std::cout); }
