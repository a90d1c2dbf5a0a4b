#include "trace.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace zrk4::test {
namespace {

int file_of(const char* variable)
{
    const char* path = std::getenv(variable);
    return path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

template <class... Args> void put(int fd, const char* format, Args... args)
{
    if (fd < 0) return;
    char line[128];
    const int length = std::snprintf(line, sizeof line, format, args...);
    if (write(fd, line, static_cast<size_t>(length)) != length) std::abort();
}

} // namespace

void trace_call(const char* call, long n, long result)
{
    static const int fd = file_of("ZRK4_FAULT_TRACE");
    const int error = errno;
    put(fd, "call=%s n=%ld result=%ld errno=%d\n", call, n, result, result == -1 ? error : 0);
    errno = error;
}

void log_met(const char* call, long n, long by)
{
    static const int fd = file_of("ZRK4_FAULT_LOG");
    put(fd, "met call=%s n=%ld by=%ld\n", call, n, by);
}

} // namespace zrk4::test
