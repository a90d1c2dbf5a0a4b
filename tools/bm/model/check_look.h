/// @file
/// What a check of the host has found, ready to be printed.
#ifndef ZRK4_TOOL_CHECK_LOOK_H
#define ZRK4_TOOL_CHECK_LOOK_H

#include <string>
#include <vector>

#include "bm_check.h"
#include "cli/exit_status.h"
#include "cli/output.h"
#include "host/segments.h"

namespace bm {

/// A check, and what it could not even reach.
struct check_look {
    bm_check_report report;
    std::vector<segment> closed; ///< may not be attached for reading and writing by this user

    /// fine: nothing found, everything looked at; attention: something is left to look after; timed_out: a lock could
    /// not be had; not_found: a partition is missing.
    exit_status status() const;
};

/// Checks the whole exchange, or the partitions of these names alone.
check_look look_at_host(const bm_check_request& request, const std::vector<std::string>& names);

/// Statement 1 to 10 in words.
const char* statement(int invariant);
const char* word_of(bm_verdict verdict);
const char* word_of(bm_check_state state);

json to_json(const char* command, const check_look& look);
std::string text_of(const check_look& look, bool color);

} // namespace bm

#endif
