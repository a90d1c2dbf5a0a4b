/// @file
/// What is measured: look-ups of data channels and queries of slow ones, beside loops that do the least.
#ifndef ZRK4_BENCH_CASES_H
#define ZRK4_BENCH_CASES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "events.h"
#include "record.h"

namespace bench {

struct pace {
    int64_t case_ns = 60'000'000; ///< for so long one case is measured in a round
    int64_t batch_ns = 50'000;    ///< the sides take turns after about so long
    int repeated = 1;             ///< how often each look-up is made; more than once is a fault that must be seen
};

struct measured_case {
    std::string name;
    /// One line into the record: times of all sides, in picoseconds.
    std::function<void(int round, const proof::record&)> measure;
};

/// Block partitions of their own for each; the cases live no longer than the host.
/// @throws std::runtime_error  also from a measurement that found the wrong channel
std::vector<measured_case> all_cases(reader_host& host, const pace& p);

} // namespace bench

#endif
