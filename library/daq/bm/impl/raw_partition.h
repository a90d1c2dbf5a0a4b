/// @file
/// A partition as an onlooker sees it: attached by its segment's id, without a handle. It does not count as a user, and
/// its end removes nothing.
#ifndef ZRK4_IMPL_RAW_PARTITION_H
#define ZRK4_IMPL_RAW_PARTITION_H

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <sys/shm.h>

#include "C_shm_int.h"

namespace zrk4::impl {

/// Attachment of a segment for the life of the object.
class mapped_segment {
  public:
    explicit mapped_segment(int shmid);
    ~mapped_segment();
    mapped_segment(mapped_segment&& other) noexcept
        : shmid_(other.shmid_), at_(std::exchange(other.at_, nullptr)), size_(other.size_)
    {
    }
    mapped_segment(const mapped_segment&) = delete;
    mapped_segment& operator=(const mapped_segment&) = delete;

    explicit operator bool() const { return at_ != nullptr; }
    int shmid() const { return shmid_; }
    char* at() const { return at_; }
    size_t size() const { return size_; }
    /// Attachments of all processes beside this one.
    long others() const;

  private:
    int shmid_;
    char* at_ = nullptr; // null: no segment, or too small for a control block, or not ours to read
    size_t size_ = 0;
};

/// The views of slots take it in the place of a handle: hence the names of its functions.
/// Numbers are taken from the control block once; a segment is never read beyond its end, whatever its records say.
class raw_partition {
  public:
    enum class state { sound, other_version, unnamed, too_short };

    explicit raw_partition(mapped_segment segment);

    state condition() const { return condition_; }
    const mapped_segment& segment() const { return segment_; }
    int shmid() const { return segment_.shmid(); }
    int semid() const { return control().gbl_semid; }
    const std::string& name() const { return name_; }
    C_shm_global& control() const { return *reinterpret_cast<C_shm_global*>(segment_.at()); }
    C_shm_buf* descriptors() const { return reinterpret_cast<C_shm_buf*>(&control() + 1); }
    bool has_locks() const { return has_locks_; }
    /// Whether the semaphore set is there and has as many members as it must.
    bool has_semaphores() const;

    int getBufferCount() const { return nbuf_; }
    int getBufferLength() const { return lbuf_; }
    char* buffer_addr(int i) const;
    bool handed_out(int i) const;
    pid_t owner(int i) const;
    /// Control block and descriptors, `table_size()` bytes from the segment's start.
    size_t table_size() const { return sizeof(C_shm_global) + sizeof(C_shm_buf) * static_cast<size_t>(nbuf_); }
    /// Value of a semaphore, -1 when it cannot be had.
    int value(int semaphore) const;
    /// All values of the set, resized to it. @return whether they could be read.
    bool read_semaphores(std::vector<unsigned short>& values) const;

  private:
    mapped_segment segment_;
    std::string name_;
    int nbuf_ = 0;
    int lbuf_ = 0;
    bool has_locks_ = false;
    state condition_ = state::sound;
};

/// Holds a gate or a slot's lock of a partition, with undo. Empty when it could not be had.
class raw_lock {
  public:
    using patience = std::chrono::milliseconds;
    /// Waits at most `how_long`; 0 tries once.
    raw_lock(const raw_partition& part, int semaphore, patience how_long);
    ~raw_lock() { give(); }
    raw_lock(const raw_lock&) = delete;
    raw_lock& operator=(const raw_lock&) = delete;
    explicit operator bool() const { return semid_ >= 0; }
    void give();

  private:
    bool take(int semid, patience how_long) const;

    int semid_ = -1; // -1: nothing held
    unsigned short semaphore_;
    void* told_;
};

/// Semaphores in a set; -1: there is no such set, or none that may be looked at.
long members_of(int semid);

/// Number of the semaphore that locks slot `n`.
inline int lock_of_slot(int n) { return gbl_nsems + n; }

/// Adds `by` to a counting semaphore, without waiting. @return whether it could.
bool change_count(const raw_partition& part, int semaphore, int by);

/// Ids of the segments at the keys of partitions, in the order of the keys.
std::vector<int> segments_at_partition_keys();

} // namespace zrk4::impl

#endif
