#include "record.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace proof {

int64_t monotonic_ns()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

record::record(const std::string& path)
    : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644)), begun_ns_(monotonic_ns())
{
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), path);
}

record::~record() { close(fd_); }

void record::line(const char* kind, const char* format, ...) const
{
    char text[512];
    const double seconds = static_cast<double>(monotonic_ns() - begun_ns_) / 1e9;
    int used = std::snprintf(text, sizeof text, "%s t=%.3f ", kind, seconds);
    va_list args;
    va_start(args, format);
    used += std::vsnprintf(text + used, sizeof text - static_cast<size_t>(used) - 1, format, args);
    va_end(args);
    used = std::min(used, static_cast<int>(sizeof text) - 2);
    text[used++] = '\n';
    if (write(fd_, text, static_cast<size_t>(used)) != used) std::perror("record");
}

} // namespace proof
