/// @file
/// Check and repair: the library's own, or the operator's command.
#ifndef ZRK4_SWEEP_CHECKER_H
#define ZRK4_SWEEP_CHECKER_H

#include <set>
#include <string>
#include <vector>

namespace sweep {

struct checked {
    std::vector<std::string> lines;  ///< what was found, each with what became of it
    std::set<std::string> undecided; ///< "PARTITION: buffer N", what has a living owner
    int left = 0;                    ///< findings that are neither mended nor undecidable, and partitions not looked at
    bool saw_nothing = false;        ///< the first look, before any repair, had no finding
    std::vector<std::string> wrong;  ///< what contradicts itself in what the command said
    std::string statuses;            ///< exit statuses of the command, in the order of its runs; empty without it

    bool by_command() const { return !statuses.empty(); }
};

/// From now on this command checks; empty: the library does.
/// @return false when this program was built without what reads the command's reports
bool check_by(const std::string& command);

checked check_host(bool wide, bool repair);

} // namespace sweep

#endif
