#include "host/small_file.h"

#include <array>
#include <cerrno>

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

} // namespace bm
