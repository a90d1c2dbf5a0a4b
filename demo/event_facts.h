/// @file
/// What a reader needs of an event slot's head, whatever its form.
#ifndef ZRK4_DEMO_EVENT_FACTS_H
#define ZRK4_DEMO_EVENT_FACTS_H

#include <cstdint>

#include "BM_int.h"

namespace demo {

struct event_facts {
    int32_t type = 0;
    time_stamp key{};
    int64_t id = 0;
    int64_t begun_us = 0;
    int blocks = 0;
};

template <class Head> event_facts facts_in(const void* at)
{
    const Head& head = *static_cast<const Head*>(at);
    return {head.evtype, head.time, head.eventid, head.start.timeup * int64_t{1'000'000} + head.start.timelow,
            head.sbfilled};
}

inline event_facts facts_of(const void* head, bool records_2024)
{
    return records_2024 ? facts_in<zrk4_event_slot_head_2024>(head) : facts_in<zrk4_event_slot_head>(head);
}

} // namespace demo

#endif
