/// @file
/// A line a moment: `bm stat`, and `bm top` where there is no terminal.
#ifndef ZRK4_TOOL_STAT_LINES_H
#define ZRK4_TOOL_STAT_LINES_H

#include "cli/exit_status.h"
#include "cli/options.h"

namespace bm {

/// @param seconds  between two lines
/// @param count    lines, 0: until interrupted
/// @throws failure when there is no exchange at the start
exit_status print_stat_lines(const common_options& common, double seconds, int count);

} // namespace bm

#endif
