/// @file
/// Times in microseconds since the epoch.
#ifndef ZRK4_TOOL_CLOCK_H
#define ZRK4_TOOL_CLOCK_H

#include <cstdint>
#include <ctime>

#include "event.h"

namespace bm {

inline int64_t micros(const time_stamp& t) { return int64_t{t.timeup} * 1'000'000 + t.timelow; }

inline int64_t micros_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

/// Seconds from one time to another; 0 when the earlier one is not set.
inline double seconds_between(int64_t earlier, int64_t later)
{
    return earlier == 0 ? 0 : static_cast<double>(later - earlier) / 1e6;
}

} // namespace bm

#endif
