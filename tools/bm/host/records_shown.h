/// @file
/// Which generation of event records an exchange holds.
#ifndef ZRK4_TOOL_RECORDS_SHOWN_H
#define ZRK4_TOOL_RECORDS_SHOWN_H

#include <optional>

#include "cli/options.h"
#include "host/partition.h"

namespace bm {

/// As the event slots in use show it, or else their control table. Empty: no slot was ever in use.
std::optional<records> shown_records(const partition& part, const read_only_segment& mapped);

/// The same; where nothing was ever in use, as the length of the slots has it.
std::optional<records> likely_records(const partition& part, const read_only_segment& mapped);

/// As asked for; else as the exchange's event slots have it. Empty: there are none, or nothing shows it.
std::optional<records> records_of(const common_options& common);

} // namespace bm

#endif
