/// @file
/// Another user, where there may be one.
#ifndef ZRK4_TOOL_TEST_OTHER_USER_H
#define ZRK4_TOOL_TEST_OTHER_USER_H

#include <cstdint>
#include <fstream>

#include <unistd.h>

namespace bm::test {

inline constexpr uid_t NOBODY = 65534;

/// Only root can become somebody else, and not in a namespace where he is alone.
inline bool can_become_another_user()
{
    std::ifstream map("/proc/self/uid_map");
    uint64_t first = 0, outside = 0, count = 0;
    map >> first >> outside >> count;
    return geteuid() == 0 && count > NOBODY;
}

inline bool become_another_user() { return setresuid(NOBODY, NOBODY, NOBODY) == 0; }

} // namespace bm::test

#endif
