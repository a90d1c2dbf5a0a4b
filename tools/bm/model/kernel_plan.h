/// @file
/// What a sizing needs of the kernel, beside what the kernel grants now.
#ifndef ZRK4_TOOL_KERNEL_PLAN_H
#define ZRK4_TOOL_KERNEL_PLAN_H

#include <optional>
#include <string>
#include <vector>

#include "host/kernel_settings.h"
#include "model/sizing.h"

namespace bm {

/// One setting of sysctl.
struct kernel_demand {
    std::string name;             ///< "kernel.sem", and which of its values
    int64_t needed = 0;           ///< together with what others use now
    std::optional<int64_t> found; ///< empty: it could not be read
    std::string why;
    std::string line; ///< for /etc/sysctl.d: this value raised, no other one lowered

    bool met() const { return found && *found >= needed; }
};

/// @param already_made  the exchange's partitions are there, and counted among what is used
std::vector<kernel_demand> demands(const kernel_needs& needs, const kernel_settings& now, bool already_made = false);

} // namespace bm

#endif
