/// @file
/// Partitions by name.
#ifndef ZRK4_TOOL_NAMED_PARTITION_H
#define ZRK4_TOOL_NAMED_PARTITION_H

#include <memory>
#include <string>

#include "host/partition.h"

namespace bm {

/// A sound partition, and its segment as long as this object lives.
struct named_partition {
    partition seen;
    std::unique_ptr<read_only_segment> mapped;
};

/// The first one of this name in the order of the keys, as the library finds it.
/// @throws failure: not_found when there is none, failed when it cannot be read
named_partition find_partition(const std::string& name);

} // namespace bm

#endif
