// Reuse of full buffers when none is free.
#include <cerrno>
#include <initializer_list>

#include <gtest/gtest.h>
#include <unistd.h>

#include "buffer_host.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class FullBuffer : public Buffer {
  protected:
    /// All three handed out, those given put into the full queue as their producers would.
    void fill(std::initializer_list<int> full)
    {
        while (take() >= 0) {}
        int tail = -1;
        for (const int i : full) {
            raw.put_int32(at_descriptor(i, IN_STATUS), 1);
            raw.put_int32(tail < 0 ? size_t{AT_FULL} : at_descriptor(tail, IN_LINK), i);
            tail = i;
            ASSERT_TRUE(change_semaphore(semid, FULL, 1));
        }
        raw.put_int32(AT_FULL + 4, tail);
    }
    void count_empty(int by) const { ASSERT_TRUE(change_semaphore(semid, EMPTY, by)); }
};

TEST_F(FullBuffer, FirstOneWithoutUsersIsTakenWhenNoneIsFree)
{
    fill({1, 2, 0});
    raw.put_int32(at_descriptor(1, IN_USE_COUNT), 1);
    raw.put_int32(at_descriptor(2, IN_OWNER), 1);
    count_empty(1);
    EXPECT_EQ(take(), 2);
    EXPECT_EQ(value(FULL), 2);
    EXPECT_EQ(value(EMPTY), 0);
    EXPECT_EQ(raw.int32(AT_FULL), 1);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_LINK)), 0) << "unlinked";
    EXPECT_EQ(raw.int32(at_descriptor(2, IN_STATUS)), 0);
    EXPECT_EQ(raw.int32(at_descriptor(2, IN_OWNER)), getpid());
    EXPECT_EQ(value(GATE), 1);
}

TEST_F(FullBuffer, FreeOnesComeFirst)
{
    fill({1});
    ASSERT_FALSE(part.return_buffer(0));
    EXPECT_EQ(take(), 0);
    EXPECT_EQ(value(FULL), 1);
}

TEST_F(FullBuffer, CountOfFullOnesIsNeverWaitedFor)
{
    fill({1});
    ASSERT_TRUE(change_semaphore(semid, FULL, -1));
    count_empty(1);
    EXPECT_EQ(part.buffer_id(part.get_buffer(/*flags=*/0, MULTI)), 1) << "also without the no-wait flag";
    EXPECT_EQ(value(FULL), 0);
}

TEST_F(FullBuffer, WithoutTheReleaseFlagNothingIsTakenAndEachTurnEatsACount)
{
    fill({1, 2});
    part.bufmode(2);
    count_empty(3);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(value(EMPTY), 0);
    EXPECT_EQ(value(FULL), 2);
    EXPECT_EQ(part.getStat("fullbuf"), "2");
}

TEST_F(FullBuffer, WithoutTheScavageFlagTheFullQueueIsNotLookedAtAndEachTurnEatsACount)
{
    fill({1});
    part.bufmode(0);
    count_empty(3);
    const long before = calls_of("semop");
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(calls_of("semop") - before, 4) << "three counts and one that is lacking, no gate";
    EXPECT_EQ(value(EMPTY), 0);
}

TEST_F(FullBuffer, AllInUseGivesNull)
{
    fill({0, 1, 2});
    for (int i = 0; i < 3; ++i) raw.put_int32(at_descriptor(i, IN_USE_COUNT), 1);
    count_empty(1);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(value(FULL), 3);
    EXPECT_EQ(value(GATE), 1);
}

TEST_F(FullBuffer, SignalAtTheGateGivesNull)
{
    fill({1});
    count_empty(2);
    const fault signal = fault::fails("semop", EINTR, 2);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(signal.fired(), 1);
    EXPECT_EQ(value(FULL), 1);
    EXPECT_EQ(value(EMPTY), 1) << "one count is gone, and there is no second try";
}

TEST_F(FullBuffer, CyclicFullQueueEndsTheWalk)
{
    fill({1, 2});
    raw.put_int32(at_descriptor(1, IN_USE_COUNT), 1);
    raw.put_int32(at_descriptor(2, IN_USE_COUNT), 1);
    raw.put_int32(at_descriptor(2, IN_LINK), 1);
    count_empty(1);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
}

} // namespace
