// The queue of buffers. Every operation is called with the partition's gate held.
#include <algorithm>
#include <limits>

#include "C_shm_int.h"

// Number of descriptors: a queue inside a segment's control block finds it there, 300 bytes before the descriptors; one
// that stands alone is not bounded.
int C_shm_BufferQ::capacity(const C_shm_buf* bufs) const
{
    const char* segment = reinterpret_cast<const char*>(bufs) - sizeof(C_shm_global);
    const char* self = reinterpret_cast<const char*>(this);
    if (self != segment + offsetof(C_shm_global, full) && self != segment + offsetof(C_shm_global, free))
        return std::numeric_limits<int>::max();
    return reinterpret_cast<const C_shm_global*>(segment)->nbuf;
}

int C_shm_BufferQ::length(const C_shm_buf* bufs) const
{
    const int nbuf = capacity(bufs);
    int steps = 0;
    for (int i = head; i >= 0 && i < nbuf && steps < nbuf; i = bufs[i].link) ++steps;
    return steps;
}

void C_shm_BufferQ::link(C_shm_buf* bufs, int i)
{
    const int nbuf = capacity(bufs);
    bufs[i].link = -1;
    if (head < 0 || head >= nbuf) {
        head = i;
        tail = i;
        return;
    }
    // A process killed between the two stores below leaves the tail one behind: appending there would lose a buffer.
    if (tail < 0 || tail >= nbuf || bufs[tail].link >= 0) {
        int last = head;
        for (int steps = 0; steps < nbuf && bufs[last].link >= 0 && bufs[last].link < nbuf; ++steps)
            last = bufs[last].link;
        tail = last;
    }
    bufs[tail].link = i;
    tail = i;
}

int C_shm_BufferQ::remove(C_shm_buf* bufs)
{
    const int i = head;
    if (i < 0 || i >= capacity(bufs)) return -1;
    // A tail that lags behind may be taken out before the others: it is no end to append to any more. Before the head
    // moves, so that nobody finds it so after a death in between.
    if (i == tail) tail = -1;
    head = bufs[i].link;
    if (head < 0) tail = -1;
    bufs[i].link = -1;
    return i;
}

void C_shm_BufferQ::remove(C_shm_buf* bufs, int i)
{
    const int nbuf = capacity(bufs);
    if (i < 0 || i >= nbuf) return;
    if (i == head) {
        remove(bufs);
    } else {
        int before = head;
        int steps = 0;
        while (before >= 0 && before < nbuf && bufs[before].link != i && steps++ < nbuf) before = bufs[before].link;
        if (before < 0 || before >= nbuf || bufs[before].link != i) return;
        bufs[before].link = bufs[i].link;
        if (bufs[before].link < 0 || i == tail) tail = before;
    }
    bufs[i].status &= ~BUF_QUEUED;
    bufs[i].link = -1;
}
