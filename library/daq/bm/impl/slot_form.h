/// @file
/// The two generations of event records. What differs is listed here, once; every algorithm is a template over it.
#ifndef ZRK4_IMPL_SLOT_FORM_H
#define ZRK4_IMPL_SLOT_FORM_H

#include <cstdint>

#include "BM_int.h"

namespace zrk4::impl {

inline constexpr int64_t LOW_31_BITS = 0x7FFFFFFF;

struct slots_2010 {
    static constexpr bool wide = false;
    using head = zrk4_event_slot_head;
    using entry = zrk4_event_ctrl_block;
    using message = reader_message;

    static bool sound(const head&) { return true; }
    static void mark(head&) {}
    static void set_event_id(head& slot, int64_t id) { slot.eventid = static_cast<int32_t>(id); }
    // Readers of this generation see the union of all ids that arrived, never just the last one.
    static void add_event_id(head& slot, int64_t id) { slot.eventid |= static_cast<int32_t>(id); }
    static void set_event_id(entry& e, int64_t id) { e.eventid = static_cast<int32_t>(id); }
    static void raise_event_id(entry& e, int64_t id) { e.eventid = static_cast<int32_t>(id & LOW_31_BITS); }
    // 32 bits wrap; signed addition must not be asked to.
    static void add_size(head& slot, int64_t bytes)
    {
        slot.evsize = static_cast<int32_t>(static_cast<uint32_t>(slot.evsize) + static_cast<uint32_t>(bytes));
    }
    // The datagram has no other room for the id than the microseconds' place.
    static void stamp(message& m, const head& slot)
    {
        m.time = {slot.time.timeup, static_cast<uint32_t>(slot.eventid)};
    }
    static int64_t message_event_id(const message& m) { return static_cast<int32_t>(m.time.timelow); }
};

struct slots_2024 {
    static constexpr bool wide = true;
    using head = zrk4_event_slot_head_2024;
    using entry = zrk4_event_ctrl_block_2024;
    using message = reader_message_2024;

    static bool sound(const head& slot) { return slot.pattern == EV_SLOT_PATTERN_2024; }
    static void mark(head& slot) { slot.pattern = EV_SLOT_PATTERN_2024; }
    static void set_event_id(head& slot, int64_t id) { slot.eventid = id; }
    static void add_event_id(head& slot, int64_t id) { slot.eventid = id; }
    static void set_event_id(entry& e, int64_t id) { e.eventid = id; }
    static void raise_event_id(entry& e, int64_t id) { e.eventid = id; }
    static void add_size(head& slot, int64_t bytes)
    {
        slot.evsize = static_cast<int64_t>(static_cast<uint64_t>(slot.evsize) + static_cast<uint64_t>(bytes));
    }
    static void stamp(message& m, const head& slot)
    {
        m.time = slot.time;
        m.event = static_cast<uint64_t>(slot.eventid);
    }
    static int64_t message_event_id(const message& m) { return static_cast<int64_t>(m.event); }
};

} // namespace zrk4::impl

#endif
