/// @file
/// The options that say what an exchange is to carry.
#ifndef ZRK4_TOOL_LOAD_OPTIONS_H
#define ZRK4_TOOL_LOAD_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "model/sizing.h"

namespace bm {

struct load_options {
    std::string preset;
    std::optional<int64_t> clients, blocks;
    std::optional<double> rate, reader_s, stall_s;
    std::vector<std::string> groups; ///< "BYTES" or "BYTESxCOUNT"
};

void declare_load(arguments& app, load_options& options);

/// The preset (beamline where none is named), changed by what was given.
/// @throws failure with exit_status::usage
load load_of(const load_options& given, const common_options& common);

/// "64k", "1M" or a plain number of bytes. @throws failure with exit_status::usage
int64_t bytes_of(const std::string& text);

} // namespace bm

#endif
