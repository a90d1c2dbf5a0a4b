/// @file
/// The result of a run: its figures, what is wrong with them, and both as text.
#ifndef ZRK4_DEMO_SUMMARY_H
#define ZRK4_DEMO_SUMMARY_H

#include <cstdint>
#include <string>
#include <vector>

#include "balance.h"
#include "record.h"

namespace demo {

struct percentiles {
    double p50_us = 0;
    double p99_us = 0;
};
/// Sorts `latencies_ns`.
percentiles percentiles_of(std::vector<int64_t>& latencies_ns);

struct reader_figures {
    std::string name;
    std::string wants;
    int64_t delivered = 0;
    int64_t missing = 0;    ///< events that were due to it and did not come
    int64_t repeated = 0;   ///< events that came more than once
    int64_t incomplete = 0; ///< events that came without all the blocks it waits for
    int64_t unexpected = 0; ///< events that it should not have been given
    int64_t by_trigger = 0; ///< of a prescaled reader
    int64_t by_time = 0;
    uint64_t in_place = 0, copied = 0, strangers = 0, damaged = 0;
    percentiles latency;
};

struct run_event_figures {
    std::string name;
    uint64_t due = 0, sent = 0, received = 0;
};
struct run_control_figures {
    std::vector<run_event_figures> events;
    uint64_t channels = 0, by_name = 0, values = 0;
    uint64_t strangers = 0, mistaken = 0, not_copied = 0;
};

struct run_figures {
    int64_t ticks = 0; ///< asked for; a run that is interrupted begins fewer
    int64_t begun = 0, complete = 0;
    int64_t blocks = 0; ///< registered by the writers
    int blocks_expected = 0;
    uint64_t waits = 0, late = 0, refused = 0;
    bool interrupted = false;
    std::vector<reader_figures> readers;
    run_control_figures control;
    std::vector<partition_balance> partitions;
    std::vector<std::string> failures; ///< of processes, and what they left behind
};

/// Counts a finished run. Partitions and failures are left to the caller.
run_figures count(const run_record& record);
/// Everything that is missing or wrong, one line each; empty for a run in which all is accounted for.
std::vector<std::string> complaints(const run_figures& run);
std::string summary_text(const run_figures& run);

} // namespace demo

#endif
