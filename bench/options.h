/// @file
/// The command line.
#ifndef ZRK4_BENCH_OPTIONS_H
#define ZRK4_BENCH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bench {

struct options {
    int first_round = 1;
    int rounds = 5;
    int turns = 5;               ///< of every round: that often the same is measured
    double seconds = 0.15;       ///< that events of one measurement are counted
    std::string record;          ///< file that the figures are added to, empty: standard output
    std::string only;            ///< prefixes of scenarios, empty: all
    std::vector<int> processors; ///< one or two; empty: the first two that are allowed
    /// Not the rounds but one subject in one scenario, so many events of it on one processor, for a tracer that counts
    /// their calls.
    std::string trace;
    std::string scenario = "shape/1/1/1";
    int64_t events = 100;
};

extern const char* const USAGE;

/// @return nothing for a command line that cannot be understood.
std::optional<options> parse(int argc, char** argv);

} // namespace bench

#endif
