/// @file
/// A segment mapped for reading alone. Everything that the command knows of a partition's bytes comes through here.
#ifndef ZRK4_TOOL_READ_ONLY_SEGMENT_H
#define ZRK4_TOOL_READ_ONLY_SEGMENT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "unlocked.h"

namespace bm {

/// Mapped by id for the life of the object. It counts for no user and takes no lock; what others do to the segment
/// meanwhile, also removing it, leaves the mapping readable.
class read_only_segment {
  public:
    explicit read_only_segment(int id);
    ~read_only_segment();
    read_only_segment(const read_only_segment&) = delete;
    read_only_segment& operator=(const read_only_segment&) = delete;

    explicit operator bool() const { return at_ != nullptr; }
    /// The call's error when there is no mapping: EACCES, EINVAL (gone), EIDRM.
    int error() const { return error_; }
    uint64_t bytes() const { return bytes_; }
    /// Whether the segment was removed meanwhile, and lives on for us alone.
    bool removed() const;

    /// Copies `count` bytes (a multiple of 4) as they stand now. @return false when they do not lie in the segment;
    /// nothing is copied then.
    bool copy(uint64_t offset, void* to, uint64_t count) const
    {
        if (at_ == nullptr || offset > bytes_ || count > bytes_ - offset) return false;
        zrk4::impl::copy_unlocked(to, at_ + offset, count);
        return true;
    }
    /// Says that what lies there will be read soon: a look at thousands of slots is a wait for each of them.
    void read_ahead(uint64_t offset) const
    {
        if (at_ == nullptr || offset >= bytes_) return;
        __builtin_prefetch(at_ + offset);
        __builtin_prefetch(at_ + std::min(offset + 64, bytes_ - 1));
    }
    template <class Record> bool copy(uint64_t offset, Record& to) const
    {
        static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % 4 == 0);
        return copy(offset, &to, sizeof to);
    }

  private:
    int id_;
    const char* at_ = nullptr;
    uint64_t bytes_ = 0;
    int error_ = 0;
};

} // namespace bm

#endif
