/// @file
/// An event slot and the table of all of them, as views on shared memory.
#ifndef ZRK4_IMPL_EVENT_SLOT_H
#define ZRK4_IMPL_EVENT_SLOT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "BM_int.h"
#include "C_shm_buffer.h"
#include "partition_state.h"
#include "slot_form.h"
#include "unlocked.h"

namespace zrk4::impl {

inline bool same_time(const time_stamp& a, const time_stamp& b)
{
    return a.timeup == b.timeup && a.timelow == b.timelow;
}

/// Tells the event in a slot from the next one in the same slot. Never the event id, which changes with every block.
struct slot_identity {
    time_stamp time{};
    time_stamp start{};
    pid_t pid = 0;

    template <class Head> static slot_identity of(const Head& head) { return {head.time, head.start, head.pid}; }
    bool operator==(const slot_identity& other) const
    {
        return same_time(time, other.time) && same_time(start, other.start) && pid == other.pid;
    }
};

/// A slot buffer seen as head, client blocks and server-block entries.
/// Another process may leave any count in the head: the counts are read once and cut to what the buffer can hold.
template <class Form> class event_slot {
  public:
    using head_t = typename Form::head;
    static constexpr int64_t HEAD = sizeof(head_t);
    static constexpr int64_t CLIENT = sizeof(zrk4_client_block);
    static constexpr int64_t ENTRY = sizeof(zrk4_client_sblock_data);

    /// Empty when the partition has no such slot, or none long enough for a head. `Part`: a handle, or what an onlooker
    /// has in its place.
    template <class Part>
    event_slot(const Part& part, int n)
        : at_(n > 0 && part.getBufferLength() >= HEAD ? address_of(part, n) : nullptr), room_(part.getBufferLength())
    {
        if (at_ != nullptr) refresh();
    }
    explicit operator bool() const { return at_ != nullptr; }

    head_t& head() const { return *reinterpret_cast<head_t*>(at_); }
    /// The head as it stands, without the slot's lock.
    head_t head_now() const { return read_unlocked(&head()); }
    slot_identity identity() const
    {
        const head_t& h = head();
        return {read_unlocked(&h.time), read_unlocked(&h.start), word_unlocked(&h.pid)};
    }

    zrk4_client_block* clients() const { return reinterpret_cast<zrk4_client_block*>(at_ + HEAD); }
    int nclients() const { return nclients_; }
    /// Client block of client slot `snum`, the first one; null when it takes no part.
    zrk4_client_block* client(int snum) const
    {
        zrk4_client_block* const end = clients() + nclients_;
        zrk4_client_block* const at = std::find_if(clients(), end, [&](const auto& c) { return c.snum == snum; });
        return at == end ? nullptr : at;
    }
    /// The same; it is looked for at `expected` before all others.
    zrk4_client_block* client(int snum, int expected) const
    {
        const bool there = expected >= 0 && expected < nclients_ && clients()[expected].snum == snum;
        return there ? clients() + expected : client(snum);
    }

    zrk4_client_sblock_data* entries() const
    {
        return reinterpret_cast<zrk4_client_sblock_data*>(at_ + HEAD + CLIENT * nclients_);
    }
    int filled() const { return filled_; }

    /// Whether `bytes` more fit behind what the counts show.
    bool fits(int64_t bytes) const { return used() + bytes <= room_; }
    /// Bytes that head, client blocks and entries take.
    int64_t used() const { return HEAD + CLIENT * nclients_ + ENTRY * filled_; }
    int64_t room() const { return room_; }
    char* address() const { return at_; }

    /// Takes the counts from the head again. The entries move when a client is appended: keep no pointer across it.
    void refresh()
    {
        const int64_t clients_fit = (room_ - HEAD) / CLIENT;
        nclients_ = static_cast<int>(std::clamp<int64_t>(word_unlocked(&head().nclients), 0, clients_fit));
        const int64_t entries_fit = (room_ - HEAD - CLIENT * nclients_) / ENTRY;
        filled_ = static_cast<int>(std::clamp<int64_t>(word_unlocked(&head().sbfilled), 0, entries_fit));
    }

  private:
    char* at_;
    int room_;
    int nclients_ = 0;
    int filled_ = 0;
};

/// The event control table in buffer 0. It may be made for more slots than buffer 0 has room for: those are not in it.
template <class Form> class event_table {
  public:
    using entry_t = typename Form::entry;

    template <class Part>
    explicit event_table(const Part& part)
        : first_(reinterpret_cast<entry_t*>(address_of(part, 0))),
          count_(std::max(
              0, std::min(part.getBufferCount() - 1, part.getBufferLength() / static_cast<int>(sizeof(entry_t)))))
    {
    }
    /// Slots 1 to slots() have an entry.
    int slots() const { return count_; }
    bool has(int slot) const { return slot >= 1 && slot <= count_; }
    entry_t& of(int slot) const { return first_[slot - 1]; }
    bool used(int slot) const { return of(slot).status == EVT_C_USED; }
    /// The first used slot from `slot` on, 0 when there is none. Several are looked at at once: mostly few are used.
    int next_used(int slot) const
    {
        constexpr int GROUP = 8;
        while (slot + GROUP - 1 <= count_ && none_used(&of(slot), std::make_index_sequence<GROUP>{})) slot += GROUP;
        while (slot <= count_ && !used(slot)) ++slot;
        return slot <= count_ ? slot : 0;
    }

  private:
    template <size_t... I> static bool none_used(const entry_t* from, std::index_sequence<I...> /*each*/)
    {
        return ((from[I].status != EVT_C_USED) & ...) != 0;
    }

    entry_t* first_;
    int count_;
};

inline bool is_hole(const zrk4_client_sblock_data& entry) { return entry.shmid == 0 || entry.bnum == -1; }

} // namespace zrk4::impl

#endif
