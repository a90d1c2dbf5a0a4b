/// @file
/// What the record of the look-ups says.
#ifndef ZRK4_BENCH_VERDICT_H
#define ZRK4_BENCH_VERDICT_H

#include <iosfwd>
#include <string>
#include <vector>

#include "statistics.h"

namespace bench {

/// A duel with what it may cost.
struct judged {
    comparison duel;
    double at_most = 0; ///< subject through base

    bool met() const;
};

struct lookup_record {
    std::vector<judged> rows; ///< in the order in which they were measured
    std::string wrong;        ///< a line for everything that is missing or cannot be; empty when all is there
};

lookup_record read_lookups(std::istream& record);
/// A line for each row, and the last one.
std::string lookup_report(const lookup_record& seen);
/// "goals met: N of M"
std::string last_line(const lookup_record& seen);
/// Whether every look-up, made four times over, missed its goal.
bool canary_seen(const lookup_record& seen);

} // namespace bench

#endif
