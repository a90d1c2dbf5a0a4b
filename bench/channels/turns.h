/// @file
/// Several ways to do one thing, in turns.
#ifndef ZRK4_BENCH_TURNS_H
#define ZRK4_BENCH_TURNS_H

#include <algorithm>
#include <functional>
#include <limits>
#include <vector>

#include "machine.h"

namespace bench {

/// Does it so many times.
using side = std::function<void(int times)>;

/// Lets the sides take turns, another one first in every round.
/// @return for each side the time of once, in picoseconds, in its best turn: what interrupts is in the others.
inline std::vector<int64_t> in_turns(const std::vector<side>& sides, int round, int64_t all_ns, int64_t turn_ns)
{
    const auto timed = [](const side& s, int times) {
        const int64_t start = now_ns();
        s(times);
        return now_ns() - start;
    };
    std::vector<int> times;
    for (const side& s : sides) {
        int n = 1;
        while (timed(s, n) < turn_ns && n < 1 << 24) n *= 2;
        times.push_back(n);
    }
    std::vector<int64_t> best(sides.size(), std::numeric_limits<int64_t>::max());
    const int64_t until = now_ns() + all_ns;
    do {
        for (size_t k = 0; k < sides.size(); ++k) {
            const size_t i = (k + static_cast<size_t>(round)) % sides.size();
            best[i] = std::min(best[i], timed(sides[i], times[i]) * 1000 / times[i]);
        }
    } while (now_ns() < until);
    return best;
}

} // namespace bench

#endif
