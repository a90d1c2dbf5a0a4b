#include "worded.h"

#include <cstdarg>
#include <cstdio>

namespace zrk4::impl {

std::string worded(const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

} // namespace zrk4::impl
