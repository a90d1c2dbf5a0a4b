#include "cli/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

namespace bm {

progress::progress() : wanted_(isatty(STDERR_FILENO) == 1), next_(std::chrono::steady_clock::now()) {}

progress::~progress()
{
    if (shown_) std::fputs("\r\x1b[K", stderr);
}

void progress::show(double part, const std::string& text)
{
    const auto now = std::chrono::steady_clock::now();
    if (!wanted_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    std::fprintf(stderr, "\r%s %s\x1b[K", part < 0 ? "" : bar_text(part, 30).c_str(), text.c_str());
    std::fflush(stderr);
}

std::string bar_text(double part, int width)
{
    const auto full = static_cast<size_t>(std::lround(std::clamp(part, 0.0, 1.0) * width));
    return "[" + std::string(full, '#') + std::string(static_cast<size_t>(width) - full, '.') + "]";
}

} // namespace bm
