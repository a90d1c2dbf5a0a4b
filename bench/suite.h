/// @file
/// What is measured, beside what, and in which order.
#ifndef ZRK4_BENCH_SUITE_H
#define ZRK4_BENCH_SUITE_H

#include <functional>
#include <string>
#include <vector>

#include "sides.h"
#include "statistics.h"

namespace bench {

inline constexpr const char* EVENTS_PER_SECOND = "events per second";

/// Two measurements that are made one behind the other in every round, and what is taken from their readings.
struct duel {
    std::string setting, subject, base;
    std::function<reading()> measure_subject, measure_base;
    struct figure {
        std::string name, unit;
        double reading::*value;
    };
    std::vector<figure> figures;
};

/// @param processors  one or two; with one the duels between two processors are left out
/// @param seconds     of counted events in each measurement
std::vector<duel> all_duels(const std::vector<int>& processors, double seconds);

/// Every round measures all of them. Who is first changes from round to round.
/// @param progress  is told the number of each round that begins
/// @throws std::runtime_error  a measurement failed
std::vector<comparison> run(const std::vector<duel>& duels, int rounds, const std::function<void(int)>& progress);

} // namespace bench

#endif
