/// @file
/// A line a moment: `bm stat`, and `bm top` where there is no terminal.
#ifndef ZRK4_TOOL_STAT_LINES_H
#define ZRK4_TOOL_STAT_LINES_H

#include <chrono>

#include "cli/arguments.h"
#include "cli/exit_status.h"
#include "cli/options.h"

namespace bm {

/// When to look, and how often.
struct pace {
    using clock = std::chrono::steady_clock;

    double seconds = 1; ///< between two looks
    int count = 0;      ///< lines, 0: until interrupted

    clock::duration step() const
    {
        return std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
    }
    /// From now; 0 when it is past.
    static std::chrono::microseconds until(clock::time_point when);
};

void declare_pace(arguments& app, pace& options);

/// @throws failure when there is no exchange at the start
exit_status print_stat_lines(const common_options& common, const pace& pace);

} // namespace bm

#endif
