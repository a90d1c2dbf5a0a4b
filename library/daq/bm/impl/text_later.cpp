#include "text_later.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "bm_message.h"

namespace zrk4::impl {
namespace {

enum class kind { dated, plain, error, flush_stdout, flush_all };

struct text {
    kind how;
    std::string what;
};

struct collection {
    int depth = 0;
    std::vector<text> texts;
};

thread_local collection collected;

void write(text& t)
{
    switch (t.how) {
    case kind::dated:
        bm_dump_message(t.what.data());
        break;
    case kind::plain:
        std::fputs(t.what.c_str(), stdout);
        break;
    case kind::error:
        std::fputs(t.what.c_str(), stderr);
        break;
    case kind::flush_stdout:
        std::fflush(stdout);
        break;
    case kind::flush_all:
        std::fflush(nullptr);
        break;
    }
}

void keep_or_write(kind how, std::string what)
{
    text t{how, std::move(what)};
    if (collected.depth > 0) {
        collected.texts.push_back(std::move(t));
    } else {
        write(t);
    }
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char* fmt, va_list args)
{
    char line[512];
    std::vsnprintf(line, sizeof line, fmt, args);
    return line;
}

} // namespace

text_later::text_later() : outermost_(collected.depth == 0) { ++collected.depth; }

text_later::~text_later()
{
    --collected.depth;
    if (outermost_ && !collected.texts.empty()) write_now();
}

void text_later::write_now()
{
    const int saved_errno = errno;
    // Moved out first: a text that is written here cannot be met again by what writing it may call.
    std::vector<text> texts = std::move(collected.texts);
    collected.texts.clear();
    for (text& t : texts) write(t);
    errno = saved_errno;
}

void say(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    keep_or_write(kind::dated, formatted(fmt, args));
    va_end(args);
}

void say_plain(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    keep_or_write(kind::plain, formatted(fmt, args));
    va_end(args);
}

void say_error(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    keep_or_write(kind::error, formatted(fmt, args));
    va_end(args);
}

void say_perror(const char* prefix)
{
    keep_or_write(kind::error, std::string(prefix) + ": " + std::strerror(errno) + "\n");
}

void flush_stdout_later() { keep_or_write(kind::flush_stdout, {}); }
void flush_all_later() { keep_or_write(kind::flush_all, {}); }

} // namespace zrk4::impl
