/// @file
/// What the monitor says, with the times in it replaced by words.
#ifndef ZRK4_TEST_MONITOR_TEXTS_H
#define ZRK4_TEST_MONITOR_TEXTS_H

#include <regex>
#include <string>

#include "BM.h"
#include "captured_output.h"

namespace zrk4::test {

/// Sets the debug level for its life.
class debug_level {
  public:
    explicit debug_level(int level) { __atomic_store_n(&ZRK4_DAQ_BM_DEBUG, level, __ATOMIC_RELAXED); }
    ~debug_level() { __atomic_store_n(&ZRK4_DAQ_BM_DEBUG, 0, __ATOMIC_RELAXED); }
    debug_level(const debug_level&) = delete;
    debug_level& operator=(const debug_level&) = delete;
};
inline constexpr int SHOW_EVERY_CYCLE = -4000;

inline std::string times_marked(const std::string& text)
{
    const std::string now = std::regex_replace(dates_marked(text), std::regex("\\[\\d{9,}:\\d+\\]"), "[NOW]");
    return std::regex_replace(now, std::regex("took: \\d+\\.\\d{6} ms"), "took: TIME ms");
}

/// The end of every cycle that is shown.
inline constexpr char TOOK[] = "DATE MONITORING [NOW]   took: TIME ms\n";
inline std::string cycles(int count)
{
    std::string text;
    for (int i = 0; i < count; ++i) text += TOOK;
    return text;
}

inline std::string suspicious(int n, const std::string& event = "1000:500_7")
{
    return "DATE MONITOR [NOW] Suspicious event slot: " + std::to_string(n) + " evt:1 " + event + "\n";
}
inline std::string freed(int n) { return "DATE MONITOR Suspicious event slot: " + std::to_string(n) + " freed \n"; }
inline std::string kept(int n)
{
    return "DATE MONITOR slot[" + std::to_string(n) + "] still alive and in processing: not  freed \n";
}

} // namespace zrk4::test

#endif
