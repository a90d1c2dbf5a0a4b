/// @file
/// The events of the run control: which there are, and when each is due.
#ifndef ZRK4_DEMO_RUN_PLAN_H
#define ZRK4_DEMO_RUN_PLAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "plan.h"

namespace demo {

inline constexpr const char* RUN_BLOCK = "HOST.RUN";
inline constexpr const char* RUN_PARTITION = "RUN";
inline constexpr int RUN_BUFFERS = 8;
inline constexpr int RUN_BUFFER_BYTES = 192 * 1024;
/// The dictionary is the largest record: 260 bytes for each.
inline constexpr size_t MOST_SLOW_CHANNELS = 512;

/// Their keys and ids are those of ticks. Events of different types never meet, so they disturb no event of that tick.
enum run_event_kind : size_t { BEGIN, END, ENVIRONMENT, UPDATE };
struct run_event {
    ZRK4_EVTYPE type;
    const char* name;
    int64_t period; ///< in ticks; 0: once
    int64_t first;  ///< the first tick at which it is due
};
inline constexpr std::array<run_event, 4> RUN_EVENTS{{
    {ZRK4_EV_BOR, "begin", 0, 0},
    {ZRK4_EV_EOR, "end", 0, 0}, // at the tick behind the last one
    {ZRK4_EV_ENV, "environment", TICKS_PER_SECOND, 0},
    {ZRK4_EV_UPD, "update", int64_t{2} * TICKS_PER_SECOND, TICKS_PER_SECOND / 2},
}};

std::optional<run_event_kind> run_event_of(int32_t evtype);
/// @param begun  ticks of the run; as far as it has come, but for the end event
bool due(run_event_kind kind, int64_t tick, int64_t begun);
/// How many of them a run of `begun` ticks has.
int64_t number_due(run_event_kind kind, int64_t begun);

} // namespace demo

#endif
