/// @file
/// A server block as a reader program looks at it: by the block's own form, and never outside the bytes that may be read,
/// whatever its fields say.
///
///     for (int i = 0; i < event->sbfilled; ++i)
///         for (const zrk4::sb_sub& sub : zrk4::sb_of(manager, blocks[i])) use(sub.name(), sub.value<double>(0));
///
/// Nothing is copied but the heads; views point into the block and end with it: in a reader, with the callback.
/// Thread-safety: a view is a value; several may look at one block. No locks, no allocation.
#ifndef ZRK4_SB_VIEW_H
#define ZRK4_SB_VIEW_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "event.h"

namespace zrk4 {

/// The head of a server block of either form. It is a copy, taken once: another process may change the block meanwhile.
/// Only `server` points into the block.
struct sb_head {
    time_stamp time{};
    int64_t ltotal = 0;           ///< bytes, as stored; may be anything
    int64_t mpulse = 0;           ///< event id; a 2010 one is widened with its sign
    const char* server = nullptr; ///< 256 characters, perhaps without a NUL
    int32_t tmask = 0;
    int32_t status = 0;
    int32_t nchan = 0;     ///< number of sub-blocks, as stored
    int64_t head_size = 0; ///< bytes; offset of the first sub-head
};

/// REQUIRES: 8 readable bytes at `block`.
inline bool sb_is_2024(const char* block)
{
    uint64_t first = 0;
    std::memcpy(&first, block, sizeof first);
    return first == SB_PATTERN_2024;
}

/// The head of a block whose form is given. REQUIRES: sizeof(Head) readable bytes at `block`.
template <class Head> sb_head sb_head_as(const char* block)
{
    const auto& h = *reinterpret_cast<const Head*>(block);
    return {h.time, h.ltotal, h.mpulse, h.server, h.tmask, h.status, h.nchan, sizeof h};
}

/// The same by the block's own form. REQUIRES: a whole head of that form.
inline sb_head sb_head_of(const char* block)
{
    return sb_is_2024(block) ? sb_head_as<zrk4_serv_block_head_2024>(block)
                             : sb_head_as<zrk4_serv_block_head_2010>(block);
}

/// One sub-block where it lies.
class sb_sub {
  public:
    sb_sub() = default;
    /// REQUIRES: `bytes` readable ones at `at`, a sub-head among them.
    sb_sub(const char* at, size_t bytes) : at_(at), bytes_(bytes - sizeof(zrk4_serv_block_subhead_2010)) {}

    std::string_view name() const { return {head().chname, strnlen(head().chname, sizeof head().chname)}; }
    int32_t type() const { return head().dtype; } ///< a ZRK4_SUBBLOCK_TYPE, or anything
    int32_t error() const { return head().error; }
    /// The data behind the sub-head. It begins at any byte.
    const char* data() const { return at_ + sizeof(zrk4_serv_block_subhead_2010); }
    size_t bytes() const { return bytes_; }

    /// How many whole `Value`s the data holds, one behind the other.
    template <class Value> size_t count() const { return bytes_ / sizeof(Value); }
    /// @return a copy of value `i`; a zero one beyond the last.
    template <class Value> Value value(size_t i) const
    {
        static_assert(std::is_trivially_copyable_v<Value>);
        Value copy{};
        if (i < count<Value>()) std::memcpy(&copy, data() + i * sizeof copy, sizeof copy);
        return copy;
    }
    /// Record `i` in place: of a dictionary, an environment or an update. @return null beyond the last.
    template <class Record> const Record* record(size_t i) const
    {
        static_assert(alignof(Record) == 1, "a record that another program wrote begins at any byte");
        return i < count<Record>() ? reinterpret_cast<const Record*>(data()) + i : nullptr;
    }

  private:
    const zrk4_serv_block_subhead_2010& head() const
    {
        return *reinterpret_cast<const zrk4_serv_block_subhead_2010*>(at_);
    }

    const char* at_ = nullptr;
    size_t bytes_ = 0; // of the data
};

/// A server block of either form: its head, and its sub-blocks as a range.
class sb_view {
  public:
    /// No block: an empty range.
    sb_view() = default;
    /// @param room  bytes that may be read at `at`: the length of its buffer
    sb_view(const char* at, size_t room)
    {
        if (at == nullptr || room < sizeof(uint64_t)) return;
        const size_t head = sb_is_2024(at) ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
        if (room < head) return;
        head_ = sb_head_of(at);
        at_ = at;
        end_ = std::min(head_.ltotal, static_cast<int64_t>(room));
    }

    /// Whether there is a block: a whole head of its form.
    explicit operator bool() const { return at_ != nullptr; }
    /// Its first byte; null without a block.
    const char* data() const { return at_; }
    const sb_head& head() const { return head_; }
    std::string_view server() const
    {
        return at_ == nullptr ? std::string_view() : std::string_view(head_.server, strnlen(head_.server, 256));
    }

    /// Meets the sub-blocks in their order, up to the first that does not lie wholly inside the block.
    class iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = sb_sub;
        using difference_type = std::ptrdiff_t;
        using pointer = const sb_sub*;
        using reference = const sb_sub&;

        iterator() = default;
        reference operator*() const { return sub_; }
        pointer operator->() const { return &sub_; }
        iterator& operator++()
        {
            at_ += length_;
            --left_;
            read();
            return *this;
        }
        iterator operator++(int)
        {
            iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const iterator& other) const { return length_ == other.length_ && left_ == other.left_; }
        bool operator!=(const iterator& other) const { return !(*this == other); }

      private:
        friend class sb_view;
        explicit iterator(const sb_view& of)
            : block_(of.at_), at_(of.head_.head_size), end_(of.end_), left_(of.head_.nchan)
        {
            read();
        }

        // Every end is the same: no length, nothing left.
        void read()
        {
            constexpr int64_t SUBHEAD = sizeof(zrk4_serv_block_subhead_2010);
            length_ = 0;
            if (left_ > 0 && at_ + SUBHEAD <= end_) { // a length may be the smallest number there is
                length_ = reinterpret_cast<const zrk4_serv_block_subhead_2010*>(block_ + at_)->ldata;
                if (length_ < SUBHEAD || length_ > end_ - at_) length_ = 0;
            }
            if (length_ == 0) {
                left_ = 0;
            } else {
                sub_ = sb_sub(block_ + at_, static_cast<size_t>(length_));
            }
        }

        const char* block_ = nullptr;
        int64_t at_ = 0;
        int64_t end_ = 0;
        int64_t length_ = 0;
        int32_t left_ = 0;
        sb_sub sub_;
    };
    iterator begin() const { return at_ == nullptr ? iterator() : iterator(*this); }
    iterator end() const { return {}; }

    /// Whether the block lies inside its room, and all sub-blocks that it counts lie inside the block.
    bool sound() const
    {
        return at_ != nullptr && head_.ltotal == end_ && head_.head_size <= end_ &&
               std::distance(begin(), end()) == std::max(head_.nchan, 0);
    }

  private:
    const char* at_ = nullptr;
    sb_head head_;
    int64_t end_ = 0; // what may be read of the block
};

/// The block of one entry of an event; attaches its partition where this process has not.
/// @param pool  a BM, or another C_shm_mpool
/// @return no block for a hole, or when the partition or the buffer is not there.
template <class Pool> sb_view sb_of(Pool& pool, const zrk4_client_sblock_data& entry)
{
    if (entry.shmid == 0 || entry.bnum == -1) return {};
    const char* at = pool.get_buffer_address(entry.bnum, entry.shmid, true);
    const auto* part = at != nullptr ? pool.find_by_id(entry.shmid) : nullptr;
    if (part == nullptr) return {};
    return {at, static_cast<size_t>(std::max(part->getBufferLength(), 0))};
}

} // namespace zrk4

#endif
