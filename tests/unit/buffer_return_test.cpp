// Returning of buffers, and what else ends the hold on one.
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "buffer_host.h"
#include "captured_output.h"
#include "child.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

TEST_F(Buffer, SecondReturnIsRefusedAndChangesNothing)
{
    ASSERT_EQ(take(), 0);
    EXPECT_FALSE(part.return_buffer(0)) << "false is success";
    const std::string before = raw.bytes(0, 444);
    EXPECT_TRUE(part.return_buffer(0)) << "true is failure";
    EXPECT_EQ(raw.bytes(0, 444), before);
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
}

TEST_F(Buffer, RefusedReturnDoesNotEvenClearTheData)
{
    raw.put_int32(at_descriptor(1, IN_LDATA), 5);
    raw.put_int32(at_descriptor(1, IN_USE_COUNT), 6);
    raw.put_int32(at_descriptor(1, IN_TRIG), 7);
    EXPECT_TRUE(part.return_buffer(1)) << "true is failure: it is free";
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_LDATA)), 5);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_USE_COUNT)), 6);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_TRIG)), 7);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_LINK)), 2);
}

// Both pass the test before the gate: the second append would link the buffer to itself and hand it out twice.
TEST_F(Buffer, ReturnThatAnotherProcessOvertakesIsRefused)
{
    ASSERT_EQ(take(), 0);
    C_shm_buffer other("T_BUFFERS");
    bool theirs = true;
    const fault race = fault::preceded("semop", [&] { theirs = other.return_buffer(0); });
    EXPECT_TRUE(part.return_buffer(0)) << "true is failure";
    EXPECT_FALSE(theirs) << "false is success";
    EXPECT_EQ(race.fired(), 1);
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
    EXPECT_EQ(value(GATE), 1);
}

TEST_F(Buffer, ReturnKeepsEvtCountFillTimeAndId)
{
    ASSERT_EQ(take(), 0);
    raw.put_int32(at_descriptor(0, IN_FILL_TIME), 3);
    raw.put_int32(at_descriptor(0, IN_DATA_ID), 4);
    raw.put_int32(at_descriptor(0, IN_EVT_COUNT), 5);
    ASSERT_FALSE(part.return_buffer(0));
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_FILL_TIME)), 3);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_DATA_ID)), 4);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_EVT_COUNT)), 5);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_OWNER)), getpid());
}

TEST_F(Buffer, ReturnByNumberNeedsANumberOfThePartition)
{
    for (const int i : {-1, 3, 1 << 30}) EXPECT_TRUE(part.return_buffer(i)) << i;
    C_shm_buffer none;
    EXPECT_TRUE(none.return_buffer(0)) << "true is failure: no access";
}

TEST_F(Buffer, ReturnGoesByTheSegmentsNumberOfBuffersToo)
{
    for (int i = 0; i < 3; ++i) ASSERT_EQ(take(), i);
    raw.put_int32(AT_NBUF, 1);
    EXPECT_TRUE(part.return_buffer(1)) << "behind the segment's";
    raw.put_int32(AT_NBUF, 1000);
    EXPECT_TRUE(part.return_buffer(3)) << "behind the handle's";
    raw.put_int32(AT_NBUF, 3);
    EXPECT_FALSE(part.return_buffer(1));
}

TEST_F(Buffer, ReturnByAddressIsFalseForEveryBufferWhateverBecameOfIt)
{
    char* const addr = part.get_buffer(BM_NO_WAIT, MULTI);
    EXPECT_FALSE(part.return_buffer(addr));
    EXPECT_FALSE(part.return_buffer(addr)) << "false, though it was free already";
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
    EXPECT_TRUE(part.return_buffer(addr + 1)) << "true: not a buffer";
    EXPECT_TRUE(part.return_buffer(static_cast<char*>(nullptr)));
}

TEST_F(Buffer, ReturnOfTheCurrentOne)
{
    EXPECT_TRUE(part.return_buffer()) << "true is failure: there is none";
    ASSERT_EQ(take(CURRENT), 0);
    EXPECT_FALSE(part.return_buffer()) << "false is success";
    EXPECT_TRUE(part.return_buffer());
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
    EXPECT_EQ(take(CURRENT), 1) << "a new one";
}

TEST_F(Buffer, CurrentOneThatSomebodyElseReturnedIsForgotten)
{
    ASSERT_EQ(take(CURRENT), 0);
    C_shm_buffer other("T_BUFFERS");
    ASSERT_FALSE(other.return_buffer(0));
    EXPECT_TRUE(part.return_buffer()) << "true is failure";
    EXPECT_EQ(take(CURRENT), 1);
}

TEST_F(Buffer, CurrentOneBeyondTheSegmentIsForgotten)
{
    ASSERT_EQ(take(CURRENT), 0);
    raw.put_int32(AT_NBUF, 0);
    EXPECT_TRUE(part.return_buffer()) << "true is failure";
    raw.put_int32(AT_NBUF, 3);
    EXPECT_TRUE(part.return_buffer()) << "no current one any more";
    EXPECT_FALSE(part.return_buffer(0));
}

TEST_F(Buffer, ReturnByNumberLeavesNoCurrentOne)
{
    ASSERT_EQ(take(MULTI), 0);
    ASSERT_EQ(take(CURRENT), 1);
    EXPECT_FALSE(part.return_buffer(0));
    EXPECT_EQ(take(CURRENT), 2) << "the number was the current one for the time of the return";
}

TEST_F(Buffer, ReturnTriesTheGateAgainAndIgnoresAFailedCount)
{
    ASSERT_EQ(take(), 0);
    {
        const fault signal = fault::fails("semop", EINTR, 1, 3);
        EXPECT_FALSE(part.return_buffer(0));
        EXPECT_EQ(signal.fired(), 3);
        EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
    }
    ASSERT_EQ(take(), 1);
    captured_output captured;
    const fault full = fault::fails("semop", ERANGE, 3, 2); // behind the gate's two; it is tried twice
    EXPECT_FALSE(part.return_buffer(1)) << "false is success";
    EXPECT_EQ(full.fired(), 2);
    EXPECT_EQ(captured.out() + captured.err(), "");
    ASSERT_TRUE(change_semaphore(semid, EMPTY, 1));
    EXPECT_EQ(free_ones(), (numbers{2, 0, 1}));
}

TEST_F(Buffer, ReturnAppendsBehindATailThatACrashLeftBehind)
{
    for (int i = 0; i < 3; ++i) ASSERT_EQ(take(), i);
    ASSERT_FALSE(part.return_buffer(0));
    ASSERT_FALSE(part.return_buffer(1));
    raw.put_int32(AT_FREE + 4, 0);
    EXPECT_FALSE(part.return_buffer(2));
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(Buffer, DestructorReturnsTheCurrentOne)
{
    auto other = std::make_unique<C_shm_buffer>("T_BUFFERS");
    ASSERT_NE(other->get_buffer(BM_NO_WAIT, CURRENT), nullptr);
    ASSERT_NE(other->get_buffer(BM_NO_WAIT, MULTI), nullptr);
    other.reset();
    EXPECT_EQ(free_ones(), (numbers{2, 0})) << "not those that were taken with multi";
}

TEST_F(Buffer, DestructorThatCannotReturnTheCurrentOneEndsTheProcess)
{
    captured_output captured;
    child leaving([&] {
        C_shm_buffer other("T_BUFFERS");
        ASSERT_NE(other.get_buffer(BM_NO_WAIT, CURRENT), nullptr);
        remove_set();
    });
    EXPECT_EQ(leaving.wait(), 128 + SIGABRT);
}

TEST_F(Buffer, SetIdWritesTheCurrentOneAlone)
{
    part.SetID(1);
    ASSERT_EQ(take(CURRENT), 0);
    part.SetID(-7);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_DATA_ID)), -7);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_DATA_ID)), 0);
    part.deaccess();
    part.SetID(9);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_DATA_ID)), -7) << "nothing without access";
    ASSERT_TRUE(part.access());
    EXPECT_EQ(take(CURRENT), 0);
}

TEST_F(Buffer, SetIdOfAReturnedOneForgetsIt)
{
    ASSERT_EQ(take(CURRENT), 0);
    C_shm_buffer other("T_BUFFERS");
    ASSERT_FALSE(other.return_buffer(0));
    part.SetID(5);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_DATA_ID)), 0);
    EXPECT_EQ(take(CURRENT), 1);
}

TEST_F(Buffer, ShortFormsDoWhatTheLongOnesDo)
{
    EXPECT_FALSE(!part);
    EXPECT_TRUE(!C_shm_buffer());
    ASSERT_EQ(take(), 0);
    EXPECT_EQ(part.get_buffer_id(part.get_buffer_addr(0)), 0);
    EXPECT_EQ(+part.get_bufptr()[0].boff, 444);
    EXPECT_FALSE(part.release(0, 0, 0)) << "false is success";
    EXPECT_TRUE(part.release(0, 0, 0));
    EXPECT_TRUE(part.bgate(true));
    EXPECT_EQ(value(GATE), 0);
    EXPECT_TRUE(part.bgate(false));
    EXPECT_EQ(out_of([&] { EXPECT_FALSE(part.bctrl(0, true)); }), "ctrl(): No additional semaphores available \n");
}

TEST_F(Buffer, BuffersOfLengthZeroAreReturnedByNumber)
{
    C_shm_buffer flat("T_FLAT", 3, 0, false);
    for (int i = 0; i < 3; ++i) EXPECT_NE(flat.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(flat.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(flat.return_buffer(i));
    EXPECT_EQ(flat.getStat("freebuf"), "3");
}

TEST_F(Buffer, PartitionWithoutBuffersGivesNone)
{
    C_shm_buffer none("T_NO_BUFFERS", 0, 100, false);
    EXPECT_EQ(none.valid(), 1);
    EXPECT_EQ(none.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_TRUE(none.return_buffer(0));
}

} // namespace
