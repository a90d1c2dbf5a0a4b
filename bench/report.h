/// @file
/// A record for people and for programs.
#ifndef ZRK4_BENCH_REPORT_H
#define ZRK4_BENCH_REPORT_H

#include <string>
#include <vector>

#include "goals.h"
#include "raw_record.h"

namespace bench {

/// Where it was measured, every figure's median and range, every goal's.
std::string text_report(const record& r, const std::vector<goal>& goals);
/// "goals met: N of M", with a newline.
std::string last_line(const record& r, const std::vector<goal>& goals);
std::string json_report(const record& r, const std::vector<goal>& goals);

} // namespace bench

#endif
