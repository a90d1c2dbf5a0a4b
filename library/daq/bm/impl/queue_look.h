/// @file
/// Both queues of a partition and all its flags, as one look shows them.
#ifndef ZRK4_IMPL_QUEUE_LOOK_H
#define ZRK4_IMPL_QUEUE_LOOK_H

#include <cstdint>
#include <string>
#include <vector>

#include "free_queue.h"
#include "raw_partition.h"

namespace zrk4::impl {

/// What is wrong with a queue or with a flag.
struct queue_flaw {
    int invariant; ///< 1 the queue, 2 the flag
    int number;    ///< buffer, -1 for a queue's head
    int64_t owner; ///< process that took the buffer last, 0 where that does not matter
    std::string text;
};

/// Looks at a table of descriptors behind its control block: the living one with the gate in hand, or a copy.
class queue_look {
  public:
    queue_look(C_shm_global& control, int nbuf);

    int free_length() const { return static_cast<int>(free_.reached.size()); }
    int full_length() const { return static_cast<int>(full_.reached.size()); }
    bool in_a_queue(int i) const { return seen_[static_cast<size_t>(i)] != IN_NONE; }
    std::vector<queue_flaw> flaws() const;
    /// Keeps the sound part of each queue, flags what is in it, and appends what is flagged and was not reached.
    void mend();

  private:
    enum where : uint8_t { IN_NONE, IN_FREE, IN_FULL };
    /// One queue, walked as far as it is sound.
    struct walk {
        std::vector<int> reached;
        std::string flaw; ///< why the walk ended early, or "" at a proper end
        int flaw_at = -1; ///< buffer whose link is wrong, -1 when it is the head
    };

    int count() const { return static_cast<int>(seen_.size()); }
    walk walk_through(const C_shm_BufferQ& queue, const char* name, where tag);
    std::string flaw_of(int i, int before, const char* name, where tag) const;
    void keep_sound_part(C_shm_BufferQ& queue, const walk& w) const;

    C_shm_global& control_;
    C_shm_buf* bufs_;
    std::vector<where> seen_;
    walk free_, full_;
};

/// A copy of control block and descriptors, taken under the gate together with the count of free buffers.
class table_copy {
  public:
    explicit table_copy(const raw_partition& part);
    /// @return false when the gate could not be had.
    bool take(raw_lock::patience patience);
    queue_look queues() { return {*reinterpret_cast<C_shm_global*>(bytes_.data()), part_.getBufferCount()}; }
    const C_shm_buf& descriptor(int i) const
    {
        return reinterpret_cast<const C_shm_buf*>(bytes_.data() + sizeof(C_shm_global))[i];
    }
    int counted() const { return counted_; }

  private:
    const raw_partition& part_;
    std::vector<char> bytes_; // read once unlocked: under the gate no page is missing any more
    int counted_ = 0;
};

/// Puts buffer `i` back and counts it, unless it is in a queue. `still` is asked under the gate whether it may go.
/// @return whether it went back.
template <class Still> bool give_back(const raw_partition& part, int i, raw_lock::patience how_long, Still still)
{
    {
        const raw_lock gate(part, gbl_gate, how_long);
        if (!gate || part.descriptors()[i].queued() || !still()) return false;
        // A death can leave a buffer in the queue without its flag: appended again, the queue would bite its tail.
        if (queue_look(part.control(), part.getBufferCount()).in_a_queue(i)) return false;
        append_free(part.control(), part.descriptors(), i);
    }
    change_count(part, gbl_empty, 1);
    return true;
}

} // namespace zrk4::impl

#endif
