/// @file
/// Findings of a check as lines that a test compares whole.
#ifndef ZRK4_TEST_CHECK_FINDINGS_H
#define ZRK4_TEST_CHECK_FINDINGS_H

#include <string>
#include <vector>

#include "bm_check.h"

namespace zrk4::test {

using lines = std::vector<std::string>;

inline const char* word_of(bm_verdict verdict)
{
    if (verdict == bm_verdict::broken) return "broken";
    return verdict == bm_verdict::repaired ? "repaired" : "undecidable";
}

/// "2 broken T_DATA[3]: text", with " pid 77" behind the partition where the finding names a process.
inline lines lines_of(const bm_check_report& report)
{
    lines all;
    for (const bm_finding& f : report.findings) {
        all.push_back(std::to_string(f.invariant) + " " + word_of(f.verdict) + " " + f.partition +
                      (f.number < 0 ? "" : "[" + std::to_string(f.number) + "]") +
                      (f.pid == 0 ? "" : " pid " + std::to_string(f.pid)) + ": " + f.text);
    }
    return all;
}

/// A request whose observation is as long as a test can bear.
inline bm_check_request quick(bool repair = false)
{
    bm_check_request request;
    request.repair = repair;
    request.observe = std::chrono::milliseconds(50);
    return request;
}
inline bm_check_request quick_repair() { return quick(true); }

} // namespace zrk4::test

#endif
