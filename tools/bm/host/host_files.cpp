#include "host/host_files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "host/small_file.h"

namespace bm {

std::string host_path(const std::string& path)
{
    const char* root = std::getenv("BM_HOST_ROOT");
    return root == nullptr ? path : root + path;
}

std::optional<std::string> host_file(const std::string& path) { return file_text(host_path(path).c_str()); }

std::vector<std::string> host_directory(const std::string& path)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(host_path(path), error))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace bm
