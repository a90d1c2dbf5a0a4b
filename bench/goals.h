/// @file
/// What was promised, and whether a record keeps it.
#ifndef ZRK4_BENCH_GOALS_H
#define ZRK4_BENCH_GOALS_H

#include <optional>
#include <string>
#include <vector>

#include "raw_record.h"

namespace bench {

/// A figure of a record.
struct term {
    std::string scenario; ///< of a slope: up to the sizes
    /// Of several, with a "|" between them, the one with the highest value.
    std::string subject;
    std::string figure;
    bool is_slope = false; ///< over the sizes of the scenario
};

/// All terms above through all below, times the factor, in every round.
struct quotient {
    std::vector<term> above, below;
    double factor = 1;

    std::optional<double> in_round(const record& r, int round) const;
};

struct bound {
    std::string what;
    quotient value;
    bool at_most = true; ///< else: at least
    double limit = 0;
    double stretch = 0; ///< 0: none
};

struct goal {
    int number;
    std::string title;
    std::vector<bound> bounds;
};

struct judgement {
    std::vector<double> values; ///< one per round
    int kept = 0;               ///< rounds within the limit
    bool met = false;           ///< by the median and by two thirds of the rounds
    bool stretch_met = false;
};

judgement judge(const bound& b, const record& r);
/// Every figure of a goal counts.
bool is_met(const goal& g, const record& r);

const std::vector<goal>& all_goals();

} // namespace bench

#endif
