#include "stillness.h"

#include <chrono>

#include <unistd.h>

namespace sweep {
namespace {

bool was_late = false;

} // namespace

int64_t stillness::begin()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void stillness::waited(int64_t since, int64_t at_most)
{
    was_late = was_late || begin() - since > at_most + TOO_LATE_US;
}

void stillness::nap(int64_t micros)
{
    const int64_t since = begin();
    usleep(static_cast<useconds_t>(micros));
    waited(since, micros);
}

bool stillness::seen() { return was_late; }

} // namespace sweep
