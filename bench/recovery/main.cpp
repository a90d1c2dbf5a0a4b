// How soon what a dead process held is back, beside what was promised.
#include <cstdio>
#include <cstdlib>

#include "apart.h"
#include "figures.h"
#include "machine.h"
#include "statistics.h"

namespace {

constexpr char USAGE[] = "usage: bm_recovery [ROUNDS]   how often everything is measured, 1 to 1000 (5)\n";

// @return whether no round exceeded the goal.
bool print(const bench::figure& f, const std::vector<double>& values)
{
    const bench::spread s = bench::spread_of(values);
    const bool met = s.highest <= f.at_most;
    std::printf("%-50s %9.4f  (%.4f to %.4f) %-8s at most %5.4g: %s\n", f.name.c_str(), s.median, s.lowest, s.highest,
                f.unit.c_str(), f.at_most, met ? "met" : "missed");
    std::fflush(stdout);
    return met;
}

void measure_all(int rounds)
{
    const std::vector<bench::figure> figures = bench::recovery_figures(bench::allowed_processors().front());
    int met = 0;
    for (const bench::figure& f : figures) {
        std::vector<double> values;
        values.reserve(static_cast<size_t>(rounds));
        for (int round = 0; round < rounds; ++round) values.push_back(f.measure());
        met += print(f, values) ? 1 : 0;
    }
    std::printf("goals met: %d of %zu\n", met, figures.size());
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc == 1 ? 5 : std::atoi(argv[1]);
    if (argc > 2 || rounds < 1 || rounds > 1000) {
        std::fputs(USAGE, stderr);
        return bench::BAD_USAGE;
    }
    return bench::apart("bm_recovery", [&] { measure_all(rounds); });
}
