/// @file
/// Files in which the system tells about itself.
#ifndef ZRK4_TOOL_HOST_FILES_H
#define ZRK4_TOOL_HOST_FILES_H

#include <optional>
#include <string>
#include <vector>

namespace bm {

/// Whole text of a file, of /proc too; empty when it cannot be read.
std::optional<std::string> file_text(const char* path);

/// Where `path` lies: under BM_HOST_ROOT when the environment has it, as a test that stages a host does.
std::string host_path(const std::string& path);
/// The text of what lies there.
std::optional<std::string> host_file(const std::string& path);
/// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> host_directory(const std::string& path);

} // namespace bm

#endif
