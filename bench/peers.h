/// @file
/// What users would take instead, doing the same work.
#ifndef ZRK4_BENCH_PEERS_H
#define ZRK4_BENCH_PEERS_H

#include <functional>
#include <string>
#include <vector>

#include "workload.h"

namespace bench {

struct peer {
    std::string name;
    /// Whether it can do that at all, and is asked to.
    std::function<bool(const plan&)> takes;
    /// @throws std::runtime_error  a process failed, or saw wrong events
    std::function<reading(const plan&)> measure;
};

/// Those whose packages were there when this was built.
const std::vector<peer>& all_peers();
/// Packages whose peers are left out, one line each.
const std::vector<std::string>& missing_peers();

} // namespace bench

#endif
