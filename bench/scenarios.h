/// @file
/// What is measured, and of whom.
#ifndef ZRK4_BENCH_SCENARIOS_H
#define ZRK4_BENCH_SCENARIOS_H

#include <functional>
#include <string>
#include <vector>

#include "sides.h"

namespace bench {

/// One subject in one scenario.
struct measurement {
    std::string scenario;
    std::string subject;
    plan p;
    std::function<reading(const plan&)> measure;
    std::string group = scenario; ///< those that are held against each other, and measured in turn
};

/// Names of the subjects that every build has.
inline constexpr const char* LIBRARY = "library";
inline constexpr const char* STRICT = "strict";
inline constexpr const char* BEST = "best";

/// @param processors  one or two; with one, what needs two is left out
/// @param seconds     of counted events in each measurement
/// @return all of them; those of one group stand together.
std::vector<measurement> all_measurements(const std::vector<int>& processors, double seconds);

/// For a tracer: `subject` with W writers of B / W blocks each and R readers, one event at a time on one processor.
/// @param name  "shape/W/R/B", or a scenario of all_measurements
/// @throws std::runtime_error  there is none
measurement measurement_named(const std::string& name, const std::string& subject, int processor);

} // namespace bench

#endif
