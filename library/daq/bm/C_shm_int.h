/// @file
/// Records of a partition: one System V shared-memory segment (control block, buffer descriptors, buffers) and one
/// semaphore set. Every process on the host reads and writes them in place; sizes and offsets are a binary format.
///
/// | offset          | bytes         | what                            |
/// |-----------------|---------------|---------------------------------|
/// | 0               | 300           | `C_shm_global`                  |
/// | 300             | 48 x nbuf     | `C_shm_buf`, one per buffer     |
/// | 300 + 48 x nbuf | lbuf x nbuf   | the buffers, without alignment  |
#ifndef ZRK4_C_SHM_INT_H
#define ZRK4_C_SHM_INT_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/sem.h>
#include <sys/types.h>

#include "bm_api.h"

/// Semaphores of a partition's set, by index. Behind `gbl_nsems` follows, on request, one lock per buffer.
enum gblsem : int32_t {
    gbl_gate = 0,  ///< mutex over the control data and the queues; 1 = free
    gbl_empty = 1, ///< counts the buffers that may be taken
    gbl_full = 2,  ///< counts full buffers
    gbl_synch = 3, ///< gate for allocation in synch mode
    gbl_nsems = 4  ///< number of semaphores that every set has
};

/// Argument of semctl(), which the C library leaves to the program.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

/// Layout version that this library writes and accepts.
inline constexpr int32_t SHM_LAYOUT_VERSION = 102;
/// System V keys at which partitions live: first and last.
inline constexpr int SHM_KEY_FIRST = 32;
inline constexpr int SHM_KEY_LAST = 1055;
/// Bytes of a partition's name, the closing NUL included.
inline constexpr size_t SHM_NAME_SIZE = 256;

/// Bits of `C_shm_global::status`.
enum shm_mode : int32_t {
    SHM_RELEASE = 1, ///< "release": a full buffer without users may be taken back by an allocator
    SHM_SCAVAGE = 2, ///< "scavage": when nothing is free the allocator looks through the full queue
    SHM_SYNCH = 4,   ///< "synch": allocation must pass the synch semaphore first
    SHM_EXPOSE = 16  ///< "expose": only reported
};

/// Bit of `C_shm_buf::status`: the buffer is linked in the free or the full queue.
inline constexpr int32_t BUF_QUEUED = 1;

/// Descriptor of one buffer.
struct BM_PACKED C_shm_buf {
    int32_t status;    ///< BUF_QUEUED or 0 = handed out
    int32_t boff;      ///< bytes from the segment's start to the buffer
    int32_t use_count; ///< users of a full buffer; 0 = reusable
    int32_t ldata;     ///< bytes of valid data
    int32_t trig;      ///< trigger mask of the data
    int32_t pad;
    int64_t fill_time; ///< `time_t` at which the buffer was filled
    int32_t data_ID;   ///< the writer's own number, see C_shm_buffer::SetID
    pid_t owner_pid;   ///< process that took the buffer
    int32_t link;      ///< next buffer in the queue, -1 = none
    int32_t evt_count; ///< events that went through the buffer

    bool queued() const { return (status & BUF_QUEUED) != 0; }
    bool inUse() const { return use_count != 0; }
};
static_assert(sizeof(time_t) == sizeof(int64_t));
static_assert(sizeof(C_shm_buf) == 48 && alignof(C_shm_buf) == 1);
static_assert(offsetof(C_shm_buf, status) == 0);
static_assert(offsetof(C_shm_buf, boff) == 4);
static_assert(offsetof(C_shm_buf, use_count) == 8);
static_assert(offsetof(C_shm_buf, ldata) == 12);
static_assert(offsetof(C_shm_buf, trig) == 16);
static_assert(offsetof(C_shm_buf, fill_time) == 24);
static_assert(offsetof(C_shm_buf, data_ID) == 32);
static_assert(offsetof(C_shm_buf, owner_pid) == 36);
static_assert(offsetof(C_shm_buf, link) == 40);
static_assert(offsetof(C_shm_buf, evt_count) == 44);

/// Queue of buffers, linked through their descriptors, oldest at `head`. The caller holds the partition's gate.
///
/// A process that was killed inside a queue operation may have left a cycle, a wild index or a tail that lags by one:
/// no walk takes more steps than the segment has buffers, no index is used unchecked, and `link` finds the true end.
struct BM_PACKED BM_API C_shm_BufferQ {
    int32_t head; ///< -1 = empty
    int32_t tail;

    void init() { head = tail = -1; }
    bool empty() const { return head < 0; }
    /// @return number of links walked from head.
    int length(const C_shm_buf* bufs) const;
    /// Appends buffer `i`. The caller also sets its BUF_QUEUED.
    void link(C_shm_buf* bufs, int i);
    /// Takes the oldest buffer out. The caller also clears its BUF_QUEUED.
    /// @return its index, -1 when empty.
    int remove(C_shm_buf* bufs);
    /// Takes buffer `i` out, wherever it stands, and clears its BUF_QUEUED; nothing when it is not in the queue.
    void remove(C_shm_buf* bufs, int i);

  private:
    int capacity(const C_shm_buf* bufs) const;
};
static_assert(sizeof(C_shm_BufferQ) == 8 && alignof(C_shm_BufferQ) == 1);

/// Control block at the start of the segment.
struct BM_PACKED C_shm_global {
    int32_t status;    ///< bits of shm_mode; 3 at creation
    int32_t version;   ///< SHM_LAYOUT_VERSION
    int32_t gbl_count; ///< partition handles, in all processes, that have access now
    int32_t gbl_semid; ///< id of the semaphore set
    int32_t nbuf;      ///< number of buffers
    int32_t lbuf;      ///< bytes of each buffer
    uint8_t sems;      ///< not 0: the set has one more semaphore per buffer; a byte, another process may store any
    uint8_t pad[3];
    C_shm_BufferQ full;
    C_shm_BufferQ free;
    char name[SHM_NAME_SIZE]; ///< NUL-terminated
};
static_assert(sizeof(C_shm_global) == 300 && alignof(C_shm_global) == 1);
static_assert(offsetof(C_shm_global, status) == 0);
static_assert(offsetof(C_shm_global, version) == 4);
static_assert(offsetof(C_shm_global, gbl_count) == 8);
static_assert(offsetof(C_shm_global, gbl_semid) == 12);
static_assert(offsetof(C_shm_global, nbuf) == 16);
static_assert(offsetof(C_shm_global, lbuf) == 20);
static_assert(offsetof(C_shm_global, sems) == 24);
static_assert(offsetof(C_shm_global, full) == 28);
static_assert(offsetof(C_shm_global, free) == 36);
static_assert(offsetof(C_shm_global, name) == 44);

/// Consumer block. The type and a handle's pointer to it exist, but a segment reserves no room for any: the pointer
/// stands on the first buffer descriptor, and nothing reads or writes through it.
struct BM_PACKED C_shm_consbk {
    int32_t mxbuf, trig_mask, min_time, min_sep, time_ctr, skip_ctr, seg_ctr, seg_tot, flags;
    pid_t pid;

    static constexpr int32_t READ_ALL = 1; ///< bit of `flags`: every buffer is wanted
    static constexpr int32_t WAITING = 2;  ///< bit of `flags`: the consumer sleeps
    bool isReadAll() const { return (flags & READ_ALL) != 0; }
    void clrWait() { flags &= ~WAITING; }
    void setWait() { flags |= WAITING; }
};
static_assert(sizeof(C_shm_consbk) == 40 && alignof(C_shm_consbk) == 1);

#endif
