/// @file
/// Waiting for a state of the kernel that no latch can tell, as "that process sleeps in semop now".
#ifndef ZRK4_TEST_EVENTUALLY_H
#define ZRK4_TEST_EVENTUALLY_H

#include <chrono>
#include <thread>

namespace zrk4::test {

/// Asks until `condition` holds or time is up. Where processes can tell each other, use a latch.
///
///     ASSERT_TRUE(eventually([&] { return semaphore_waiters(semid, 0) == 1; }));
template <class Condition>
[[nodiscard]] bool eventually(Condition condition, std::chrono::milliseconds patience = std::chrono::seconds(20))
{
    const auto until = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

} // namespace zrk4::test

#endif
