/// @file
/// The operator's command, run on the host of a point in the place of the library's checker.
#ifndef ZRK4_SWEEP_COMMAND_H
#define ZRK4_SWEEP_COMMAND_H

#include <string>

#include "checker.h"

namespace sweep {

/// What one run of the command said.
struct command_report {
    int status = -1;                 ///< exit status; 128 + n when signal n ended it
    std::vector<std::string> lines;  ///< findings, each with its verdict, and partitions that were not looked at
    std::set<std::string> undecided; ///< "PARTITION: buffer N"
    int broken = 0;                  ///< findings of that verdict, and partitions that were not looked at
    std::string wrong;               ///< why it is none: no document, or a status that contradicts it
};
/// @param document  what it printed on standard output
command_report command_report_of(int status, const std::string& document);

/// `bm check`, or `bm check`, `bm repair` and `bm check` again.
checked check_with_command(const std::string& command, bool wide, bool repair);

} // namespace sweep

#endif
