/// @file
/// The rounds.
#ifndef ZRK4_BENCH_SUITE_H
#define ZRK4_BENCH_SUITE_H

#include <functional>
#include <string>
#include <vector>

#include "raw_record.h"
#include "scenarios.h"

namespace bench {

/// Every round measures all of them, those of a group in turn, several times; who is first, and who follows whom, changes
/// from turn to turn. A round's figure is the median of its turns: what else the machine does for a second falls on few
/// of them.
/// @param line  is told every figure as soon as it is there
/// @throws std::runtime_error  a measurement failed
void run_rounds(const std::vector<measurement>& all, int first_round, int last_round, int turns,
                const std::function<void(const figure_line&)>& line);

/// @return those whose scenario begins with one of the prefixes, of which commas stand between; all for no prefix.
std::vector<measurement> chosen(const std::vector<measurement>& all, const std::string& prefixes);

} // namespace bench

#endif
