/// @file
/// A partition as a look from outside shows it: copies, nothing shared any more.
#ifndef ZRK4_TOOL_PARTITION_H
#define ZRK4_TOOL_PARTITION_H

#include <optional>
#include <string>
#include <vector>

#include "C_shm_int.h"
#include "host/read_only_segment.h"
#include "host/segments.h"

namespace bm {

enum class partition_state {
    sound,
    other_version, ///< its layout is not the one that this command reads
    unnamed,       ///< no partition yet, or none any more, or a stranger's segment
    damaged,       ///< its numbers contradict its size
    unreadable,    ///< another user's, closed to us
    gone           ///< removed between the kernel's list and the look
};
const char* word_of(partition_state state);

struct partition {
    segment where;
    partition_state state = partition_state::gone;
    std::string why; ///< one clause, for every state but sound
    std::string name;
    bool torn = false;              ///< it moved during every one of several looks: numbers of different moments
    std::vector<std::string> flaws; ///< of the queues, as far as they outlived several looks
    long semaphores = -1;           ///< in its set; -1: there is no such set, or none that we may look at
    int full = 0;                   ///< buffers in the full queue

    /// Control block; zero where the state is not sound.
    C_shm_global control() const;
    int buffers() const { return buffers_; }
    int length() const { return length_; }
    bool has_locks() const { return control().sems != 0; }
    C_shm_buf descriptor(int i) const;
    /// By the flags: handed out, and what is neither out nor in the full queue.
    int out() const { return out_; }
    int free() const { return buffers_ - out_ - full; }
    /// Control block and, directly behind it, the descriptors. REQUIRES: sound.
    const C_shm_global& records() const { return *reinterpret_cast<const C_shm_global*>(table_.data()); }
    /// Where buffer `i` begins in its segment; empty when it would not lie in it.
    std::optional<uint64_t> offset(int i) const;
    /// Of a walk over all buffers that is at `i`: some buffers on will be read soon.
    void read_ahead(int i, const read_only_segment& mapped) const
    {
        constexpr int AHEAD = 8;
        if (const auto at = offset(i + AHEAD)) mapped.read_ahead(*at);
    }

  private:
    friend partition look_at(const segment& where, const read_only_segment& mapped);
    friend class partition_look;
    std::vector<char> table_; // control block and descriptors
    int buffers_ = 0;
    int length_ = 0;
    int out_ = 0;
};

/// Looks at a segment; never fails, the state tells.
partition look_at(const segment& where);
partition look_at(const segment& where, const read_only_segment& mapped);

/// All segments at the keys of partitions.
std::vector<partition> partitions_of_host();

} // namespace bm

#endif
