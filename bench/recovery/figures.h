/// @file
/// How long it takes until what a dead process held is back, and what the monitor costs.
#ifndef ZRK4_BENCH_FIGURES_H
#define ZRK4_BENCH_FIGURES_H

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct figure {
    std::string name;
    std::string unit;
    double at_most; ///< the goal
    std::function<double()> measure;
};

/// All processes run on `processor`. Every measurement makes its partitions anew and leaves none.
/// @throws std::runtime_error  from a measurement: a process failed, or something never came back
std::vector<figure> recovery_figures(int processor);

} // namespace bench

#endif
