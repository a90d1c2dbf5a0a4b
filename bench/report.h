/// @file
/// The figures as text and as JSON.
#ifndef ZRK4_BENCH_REPORT_H
#define ZRK4_BENCH_REPORT_H

#include <string>
#include <vector>

#include "machine.h"
#include "statistics.h"

namespace bench {

/// How the figures came about.
struct circumstances {
    machine where;
    std::vector<int> processors;
    int rounds = 0;
    double seconds = 0;
    double load_before = 0;
    double load_after = 0;
};

std::string text_report(const circumstances& how, const std::vector<comparison>& all);
std::string json_report(const circumstances& how, const std::vector<comparison>& all);

/// The least that the library is to reach of the reference's events per second.
inline constexpr double GOAL = 0.9;
/// @return whether the median of every such ratio reaches it.
bool goal_met(const std::vector<comparison>& all);

} // namespace bench

#endif
