/// @file
/// Which generation of event records an exchange holds.
#ifndef ZRK4_TOOL_RECORDS_SHOWN_H
#define ZRK4_TOOL_RECORDS_SHOWN_H

#include <optional>

#include "cli/options.h"

namespace bm {

/// As asked for; else as the event slots in use show; else as the length of the slots has it. Empty: nothing shows it.
std::optional<records> records_of(const common_options& common);

} // namespace bm

#endif
