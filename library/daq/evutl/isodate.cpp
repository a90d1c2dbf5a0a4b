// Date and time as text.
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "evutl.h"

namespace {

constexpr size_t TEXT_SIZE = 296; // what the callers provide

struct offset_from_utc {
    char sign;
    int hours;
    int minutes;
};

offset_from_utc offset_of(const tm& local)
{
    const int minutes = static_cast<int>(std::labs(local.tm_gmtoff)) / 60;
    return {local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60};
}

} // namespace

void create_isodate(char* text, int form)
{
    if (text == nullptr) return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    const offset_from_utc off = offset_of(local);
    char date[64];
    // ISO 8601 has two spellings, which must not be mixed: basic has no separators at all, so no colon in a file's name.
    std::strftime(date, sizeof date, form == 2 ? "%Y%m%dT%H%M%S" : "%Y-%m-%dT%H:%M:%S", &local);
    switch (form) {
    case 0:
        std::snprintf(text, TEXT_SIZE, "%s%c%02d:%02d", date, off.sign, off.hours, off.minutes);
        break;
    case 2:
        std::snprintf(text, TEXT_SIZE, "%s%c%02d%02d", date, off.sign, off.hours, off.minutes);
        break;
    default:
        std::snprintf(text, TEXT_SIZE, "%s.%06ld%c%02d:%02d", date, now.tv_nsec / 1000, off.sign, off.hours,
                      off.minutes);
        break;
    }
}
