/// @file
/// A file of /proc in one piece.
#ifndef ZRK4_TOOL_SMALL_FILE_H
#define ZRK4_TOOL_SMALL_FILE_H

#include <optional>
#include <string>

namespace bm {

/// Its whole text; empty when it cannot be read.
std::optional<std::string> file_text(const char* path);

} // namespace bm

#endif
