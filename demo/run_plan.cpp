#include "run_plan.h"

namespace demo {

std::optional<run_event_kind> run_event_of(int32_t evtype)
{
    for (size_t kind = 0; kind < RUN_EVENTS.size(); ++kind) {
        if (RUN_EVENTS[kind].type == evtype) return static_cast<run_event_kind>(kind);
    }
    return std::nullopt;
}

bool due(run_event_kind kind, int64_t tick, int64_t begun)
{
    if (kind == BEGIN) return tick == 0;
    if (kind == END) return tick == begun;
    const run_event& event = RUN_EVENTS[kind];
    return tick < begun && tick % event.period == event.first;
}

int64_t number_due(run_event_kind kind, int64_t begun)
{
    const run_event& event = RUN_EVENTS[kind];
    if (event.period == 0) return 1;
    return begun <= event.first ? 0 : (begun - event.first - 1) / event.period + 1;
}

} // namespace demo
