/// @file
/// What the event slots of a host list, read slot by slot under their locks.
#ifndef ZRK4_IMPL_EVENT_LISTING_H
#define ZRK4_IMPL_EVENT_LISTING_H

#include <cstdint>
#include <string>
#include <vector>

#include "BM_int.h"
#include "event_slot.h"
#include "raw_partition.h"

namespace zrk4::impl {

/// A buffer that an entry of a used event slot names.
struct listed_block {
    int shmid, bnum;
    int slot, index;
};

/// An entry whose buffer was on its way back when its process died: its number is gone, its partition is not.
struct return_mark {
    int shmid;
    int slot, index;
    slot_identity event;
    std::string name;
    int64_t eventid;
};

/// An event slot, apart from its entries.
struct seen_event {
    int slot;
    bool handed_out;
    int status; ///< of its control entry
    int evtype;
    slot_identity identity;
    std::vector<zrk4_client_block> clients; ///< of a used one
};

/// One reading of all event slots. Not of one moment: each slot by itself was read under event lock 0 and its own lock.
class event_listing {
  public:
    /// Reads the slots of `events` anew.
    void read(const raw_partition& events, bool records_2024, raw_lock::patience patience);

    /// Whether every slot was read under its locks. A slot whose lock could not be had was read without.
    bool whole() const { return whole_; }
    /// Whether lock 0 could be had at all.
    bool reached() const { return reached_; }
    /// Whether the slots hold records of the generation that was asked for.
    bool right_records() const { return right_records_; }

    bool lists(int shmid, int bnum) const;
    /// By segment, number, slot, index.
    const std::vector<listed_block>& blocks() const { return blocks_; }
    const std::vector<return_mark>& marks() const { return marks_; }
    const std::vector<seen_event>& events() const { return events_; }

  private:
    template <class Form> class slot_reader;

    bool whole_ = true;
    bool reached_ = true;
    bool right_records_ = true;
    std::vector<listed_block> blocks_;
    std::vector<return_mark> marks_;
    std::vector<seen_event> events_;
};

/// Calls `use` with the form of records that is asked for.
template <class Use> auto in_records(bool records_2024, Use use)
{
    return records_2024 ? use(slots_2024{}) : use(slots_2010{});
}

/// An event slot's own lock, with lock 0 around it. Empty when either could not be had: the slot's is only tried.
struct event_locks {
    event_locks(const raw_partition& events, int slot, raw_lock::patience patience)
        : control(events, lock_of_slot(0), patience), own(events, lock_of_slot(slot), raw_lock::patience(0))
    {
    }
    explicit operator bool() const { return control && own; }

    raw_lock control;
    raw_lock own;
};

} // namespace zrk4::impl

#endif
