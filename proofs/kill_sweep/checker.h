/// @file
/// The library's own check and repair.
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
};

checked check_host(bool wide, bool repair);

} // namespace sweep

#endif
