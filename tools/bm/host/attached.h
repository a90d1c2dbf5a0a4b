/// @file
/// The processes that have segments attached, as their mappings tell.
#ifndef ZRK4_TOOL_ATTACHED_H
#define ZRK4_TOOL_ATTACHED_H

#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

namespace bm {

struct attached_process {
    pid_t pid = 0;
    uid_t uid = 0;
    std::string command;
    std::set<int> segments; ///< ids of those that were asked for
};

/// Processes of this namespace that have one of the segments attached, this one apart. Another user's mappings are
/// closed to an ordinary user: who cannot be looked into is not among them.
std::vector<attached_process> attached_to(const std::set<int>& segments);

} // namespace bm

#endif
