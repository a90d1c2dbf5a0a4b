#include "host/host_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace bm {
namespace {

class descriptor {
  public:
    explicit descriptor(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~descriptor()
    {
        if (fd_ >= 0) close(fd_);
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    int number() const { return fd_; }

  private:
    int fd_;
};

} // namespace

std::string host_path(const std::string& path)
{
    const char* root = std::getenv("BM_HOST_ROOT");
    return root == nullptr ? path : root + path;
}

std::optional<std::string> file_text(const char* path)
{
    const descriptor file(path);
    if (file.number() < 0) return {};
    std::string text;
    std::array<char, 16384> room; // NOLINT(*-member-init): read fills it
    for (;;) {
        const ssize_t got = read(file.number(), room.data(), room.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return {};
        if (got == 0) return text;
        text.append(room.data(), static_cast<size_t>(got));
    }
}

std::optional<std::string> host_file(const std::string& path) { return file_text(host_path(path).c_str()); }

std::vector<std::string> host_directory(const std::string& path)
{
    std::vector<std::string> names;
    std::error_code error;
    // A process may end while its directory is read: that is the end of it, and no failure.
    std::filesystem::directory_iterator at(host_path(path), error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error))
        names.push_back(at->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace bm
