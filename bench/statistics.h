/// @file
/// What many values are told by.
#ifndef ZRK4_BENCH_STATISTICS_H
#define ZRK4_BENCH_STATISTICS_H

#include <string>
#include <utility>
#include <vector>

namespace bench {

/// @return the smallest value that at least `part` (0 to 1) of all values do not exceed; 0 of none.
double quantile(std::vector<double> values, double part);

struct spread {
    double median = 0;
    double lowest = 0;
    double highest = 0;
};
/// The median of an even number of values is the mean of the middle two.
spread spread_of(std::vector<double> values);

/// One figure of two subjects, measured side by side in every round.
struct comparison {
    std::string figure;                 ///< what was measured
    std::string unit;                   ///< in what
    std::string setting;                ///< under what circumstances
    std::string subject;                ///< of whom
    std::string base;                   ///< beside whom
    std::vector<double> subject_values; ///< one per round
    std::vector<double> base_values;

    /// Subject through base, each inside its round: what changes from round to round touches both.
    std::vector<double> ratios() const;
};

/// @return by how much `y` grows with `x`: the slope of the straight line of least squares; 0 of fewer than two points.
double slope(const std::vector<std::pair<double, double>>& points);

} // namespace bench

#endif
