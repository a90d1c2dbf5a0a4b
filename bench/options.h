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
    int rounds = 5;
    double seconds = 0.4;        ///< that events of one measurement are counted
    std::string json;            ///< file for the figures, empty: none
    std::vector<int> processors; ///< one or two; empty: the first two that are allowed
    /// Not a comparison but one measurement of so many events, one at a time on one processor, for a tracer that counts
    /// their calls: "library" or "reference".
    std::string trace;
    int64_t events = 100;
};

extern const char* const USAGE;

/// @return nothing for a command line that cannot be understood.
std::optional<options> parse(int argc, char** argv);

} // namespace bench

#endif
