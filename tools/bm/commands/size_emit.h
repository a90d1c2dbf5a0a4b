/// @file
/// A sizing as something to compile or to install.
#ifndef ZRK4_TOOL_SIZE_EMIT_H
#define ZRK4_TOOL_SIZE_EMIT_H

#include <string>
#include <vector>

#include "model/kernel_plan.h"
#include "model/sizing.h"

namespace bm {

/// A whole program: a master that makes the partitions and keeps them until it is told to end.
std::string program_of(const sizing& plan);
/// Lines for /etc/sysctl.d; what the host grants already stands there as a comment.
std::string sysctl_of(const std::vector<kernel_demand>& kernel);

} // namespace bm

#endif
