/// @file
/// Events as a reader's callback gets them: a head and its entries in an event slot, a block in a partition of the pool.
#ifndef ZRK4_BENCH_EVENTS_H
#define ZRK4_BENCH_EVENTS_H

#include <functional>
#include <string>

#include "BM.h"
#include "event.h"
#include "sb_write.h"

namespace bench {

/// The buffer manager of a reader, with slot partitions of its own.
class reader_host : public BM {
  public:
    /// @throws std::runtime_error
    reader_host();
    using BM::ev_buf;
};

enum class generation { of_2010, of_2024 };

/// An event of one block, whose partition is made for it. All events are shown in one slot: the last one stands there.
class event {
  public:
    /// @param fill  writes the block
    /// @throws std::runtime_error  no partition of that length, or a block that is not complete
    event(reader_host& host, generation form, ZRK4_EVTYPE type, const std::string& partition, size_t bytes,
          const std::function<void(zrk4::sb_write&)>& fill);

    /// Into the slot. @param blocks  1, or 0: as if nobody had delivered one
    void show(int blocks = 1) const;

    BM& bm() const { return host_; }
    generation form() const { return form_; }
    zrk4_event_slot_head* slot_2010() const { return reinterpret_cast<zrk4_event_slot_head*>(slot_); }
    zrk4_event_slot_head_2024* slot_2024() const { return reinterpret_cast<zrk4_event_slot_head_2024*>(slot_); }
    zrk4_client_sblock_data* entries() const;
    char* first_sub_block() const;

  private:
    reader_host& host_;
    generation form_;
    ZRK4_EVTYPE type_;
    char* slot_;
    char* block_;
    int id_;
};

} // namespace bench

#endif
