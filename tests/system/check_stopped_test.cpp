// A check that was itself kept from running, as with its whole virtual machine: that time is no observation.
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "../unit/check_host.h"
#include "child.h"
#include "latch.h"
#include "live_segment.h"

using namespace zrk4::test;

namespace {

class CheckStopped : public CheckHost {
  protected:
    static constexpr std::chrono::milliseconds OBSERVE{1500}, BEGUN{300}, STOPPED{2000}, MOMENT{100};
};
IN_BOTH_GENERATIONS(CheckStopped);

TEST_P(CheckStopped, LooksAgainAtWhatTheOthersHadNoTimeToFinish)
{
    const int semid = semid_of(data());
    ASSERT_TRUE(change_semaphore(semid, gbl_empty, -1)); // a buffer is back in the queue and not counted yet
    latch begun;
    child check([&] {
        bm_check_request asked = request(true);
        asked.observe = OBSERVE;
        begun.open();
        EXPECT_EQ(lines_of(bm_check(asked)), lines{});
    });
    begun.wait();
    std::this_thread::sleep_for(BEGUN);
    check.stop();
    std::this_thread::sleep_for(STOPPED);
    check.go_on();
    std::this_thread::sleep_for(MOMENT);
    ASSERT_TRUE(change_semaphore(semid, gbl_empty, 1));
    EXPECT_EQ(check.wait(), 0);
    EXPECT_EQ(found(), lines{});
}

} // namespace
