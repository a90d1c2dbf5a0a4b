#include "captured_output.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <regex>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zrk4::test {
namespace {

void flush_all()
{
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

int checked(int fd)
{
    if (fd >= 0) return fd;
    std::perror("captured_output");
    std::abort();
}

void print_whole(int fd, const std::string& text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

std::string dates_replaced(const std::string& text, const char* by)
{
    static const std::regex date("(^|\\n)\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d(\\.\\d+)?(Z|[+-]\\d\\d:?\\d\\d)? ");
    return std::regex_replace(text, date, by);
}

} // namespace

// A file and not a pipe: nobody has to read while the library writes. All copies of the descriptor share one offset, so
// the texts of a child append.
captured_output::stream::stream(int fd) : fd_(fd), saved_(checked(dup(fd))), file_(checked(memfd_create("captured", 0)))
{
    checked(dup2(file_, fd));
}

captured_output::stream::~stream()
{
    dup2(saved_, fd_);
    close(saved_);
    close(file_);
}

long captured_output::stream::size() const
{
    struct stat info {};
    return fstat(file_, &info) == 0 ? info.st_size : 0;
}

std::string captured_output::stream::text(long from) const
{
    std::string whole(static_cast<size_t>(size() - from), '\0');
    const ssize_t n = pread(file_, whole.data(), whole.size(), from);
    whole.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return whole;
}

void captured_output::stream::replay() const { print_whole(saved_, text(0)); }

captured_output::flushed::flushed() { flush_all(); }

captured_output::captured_output() : failed_before_(testing::Test::HasFailure()) {}

captured_output::~captured_output()
{
    flush_all();
    if (failed_before_ || !testing::Test::HasFailure()) return;
    out_.replay();
    err_.replay();
}

std::string captured_output::out()
{
    flush_all();
    return out_.text(out_.begin());
}

std::string captured_output::err()
{
    flush_all();
    return err_.text(err_.begin());
}

void captured_output::forget()
{
    flush_all();
    out_.forget();
    err_.forget();
}

std::string out_of(const std::function<void()>& action)
{
    captured_output captured;
    action();
    return captured.out();
}

std::string err_of(const std::function<void()>& action)
{
    captured_output captured;
    action();
    return captured.err();
}

std::string dates_marked(const std::string& text) { return dates_replaced(text, "$1DATE "); }
std::string dates_stripped(const std::string& text) { return dates_replaced(text, "$1"); }

} // namespace zrk4::test
