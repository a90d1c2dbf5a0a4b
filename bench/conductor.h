/// @file
/// Starts the processes of one measurement, lets them begin together and collects what they saw.
#ifndef ZRK4_BENCH_CONDUCTOR_H
#define ZRK4_BENCH_CONDUCTOR_H

#include <functional>
#include <vector>

#include "process.h"
#include "workload.h"

namespace bench {

/// One after the other: everybody is ready before the next one is started.
struct cast {
    /// What the others need; each stands by when it is ready.
    std::vector<std::function<void(const line_end& line)>> helpers;
    /// @param ready  to be called once it can take events @return when it has had the last one, by `log`.
    std::function<void(int index, event_log& log, const std::function<void()>& ready)> reader;
    /// @param ready  to be called before the first event; returns when all others are ready
    /// @param done   to be called behind the last one with the processor time, see write_events; returns when the readers
    ///               have had everything: until then the blocks must stay
    std::function<void(int index, const std::function<void()>& ready, const std::function<void(int64_t)>& done)> writer;
};

/// A helper's part: nods, waits for its end.
void stand_by(const line_end& line);

/// @throws std::runtime_error  a process failed, or saw wrong events
reading perform(const plan& p, const cast& roles);

} // namespace bench

#endif
