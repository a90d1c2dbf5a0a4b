/// @file
/// How event ids of different widths meet.
#ifndef ZRK4_IMPL_EVENT_ID_H
#define ZRK4_IMPL_EVENT_ID_H

#include "slot_form.h"

namespace zrk4::impl {

/// Counters of 31 bits wrap and still meet their 64-bit form.
constexpr bool same_event_id(int64_t stored, int64_t id)
{
    return stored == id || (stored & LOW_31_BITS) == id || stored == (id & LOW_31_BITS);
}

} // namespace zrk4::impl

#endif
