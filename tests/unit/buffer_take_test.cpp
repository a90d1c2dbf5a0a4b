// Taking of buffers, step by step; every failure of a semaphore that tells one result from another.
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "buffer_host.h"
#include "captured_output.h"
#include "child.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

TEST_F(Buffer, NewPartitionGivesThemInOrderUntilNoneIsLeft)
{
    EXPECT_EQ(take(), 0);
    EXPECT_EQ(take(), 1);
    EXPECT_EQ(take(), 2);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(value(EMPTY), 0);
    EXPECT_FALSE(part.return_buffer(1)) << "false is success";
    EXPECT_EQ(take(), 1);
}

TEST_F(Buffer, ReturnedOneIsGivenAfterAllThatWereFreeBefore)
{
    EXPECT_EQ(take(), 0);
    EXPECT_FALSE(part.return_buffer(0));
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
    EXPECT_EQ(take(), 1);
}

TEST_F(Buffer, AddressIsThatOfTheDescriptor)
{
    char* const addr = part.get_buffer(BM_NO_WAIT, MULTI);
    EXPECT_EQ(addr, part.get_buffer_addr(0));
    std::memset(addr, 0x55, 100);
    EXPECT_EQ(raw.bytes(444, 100), std::string(100, 0x55));
    EXPECT_EQ(raw.byte(544), 0);
}

TEST_F(Buffer, TakenOneIsMarkedAndNothingElseOfItIsTouched)
{
    raw.put_int32(at_descriptor(0, IN_STATUS), 1 + 8);
    raw.put_int32(at_descriptor(0, IN_USE_COUNT), 11);
    raw.put_int32(at_descriptor(0, IN_LDATA), 12);
    raw.put_int32(at_descriptor(0, IN_TRIG), 13);
    raw.put_int32(at_descriptor(0, IN_FILL_TIME), 14);
    raw.put_int32(at_descriptor(0, IN_DATA_ID), 15);
    raw.put_int32(at_descriptor(0, IN_EVT_COUNT), 16);
    ASSERT_EQ(take(), 0);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_STATUS)), 0) << "the whole word";
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_OWNER)), getpid());
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_LINK)), -1);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_USE_COUNT)), 11);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_LDATA)), 12);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_TRIG)), 13);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_FILL_TIME)), 14);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_DATA_ID)), 15);
    EXPECT_EQ(raw.int32(at_descriptor(0, IN_EVT_COUNT)), 16);
}

TEST_F(Buffer, OwnerIsTheProcessThatTakesItAlsoAfterAFork)
{
    ASSERT_EQ(take(), 0); // this process's id is known now
    child forked([&] {
        ASSERT_EQ(take(), 1);
        EXPECT_EQ(raw.int32(at_descriptor(1, IN_OWNER)), getpid());
    });
    EXPECT_EQ(forked.wait(), 0);
    EXPECT_EQ(raw.int32(at_descriptor(1, IN_OWNER)), forked.pid());
}

TEST_F(Buffer, CurrentOneIsGivenAgainWithoutASemaphore)
{
    ASSERT_EQ(take(CURRENT), 0);
    const long before = calls_of("semop");
    EXPECT_EQ(part.get_buffer(0, CURRENT), part.get_buffer_addr(0));
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, CURRENT), part.get_buffer_addr(0));
    EXPECT_EQ(calls_of("semop"), before);
    EXPECT_EQ(take(MULTI), 1) << "leaves the current one alone";
    EXPECT_EQ(take(CURRENT), 0);
}

TEST_F(Buffer, OtherFlagBitsMeanNothing)
{
    EXPECT_EQ(part.buffer_id(part.get_buffer(BM_NO_WAIT | 1 | 2 | 8 | 16, MULTI)), 0);
    EXPECT_EQ(part.buffer_id(part.get_buffer(BM_NO_WAIT, MULTI)), 1);
    EXPECT_EQ(part.buffer_id(part.get_buffer(BM_NO_WAIT, MULTI)), 2);
    EXPECT_EQ(part.get_buffer(~0, MULTI), nullptr) << "4 is among them";
}

TEST_F(Buffer, WithoutAccessIsALogicError)
{
    C_shm_buffer none;
    try {
        none.get_buffer(BM_NO_WAIT, MULTI);
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Partition not attached");
    }
    part.deaccess();
    EXPECT_THROW(part.get_buffer(BM_NO_WAIT, CURRENT), std::logic_error);
}

TEST_F(Buffer, CurrentOneIsGivenAgainWithoutAccessToo)
{
    ASSERT_EQ(take(CURRENT), 0);
    char* const current = part.get_buffer_addr(0);
    part.deaccess();
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, CURRENT), current);
    EXPECT_THROW(part.get_buffer(BM_NO_WAIT, MULTI), std::logic_error);
    EXPECT_TRUE(part.return_buffer()) << "true is failure";
    ASSERT_TRUE(part.access());
    EXPECT_FALSE(part.return_buffer()) << "it is still the current one";
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
}

TEST_F(Buffer, CurrentOneOfADetachedHandleHasNoAddress)
{
    ASSERT_EQ(take(CURRENT), 0);
    part.release();
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, CURRENT), nullptr);
}

TEST_F(Buffer, EachHandleHasItsOwnCurrentOne)
{
    C_shm_buffer other("T_BUFFERS");
    ASSERT_EQ(take(CURRENT), 0);
    EXPECT_EQ(other.get_buffer_id(other.get_buffer(BM_NO_WAIT, CURRENT)), 1);
    EXPECT_FALSE(part.return_buffer());
    EXPECT_FALSE(other.return_buffer());
    EXPECT_EQ(free_ones(), (numbers{2, 0, 1}));
}

// --- semaphore errors while taking

TEST_F(Buffer, NoBufferErrorsGiveNullWithoutAWord)
{
    for (const int error : {EAGAIN, EIDRM, EINTR}) {
        captured_output captured;
        const fault plan = fault::fails("semop", error);
        EXPECT_EQ(part.get_buffer(0, MULTI), nullptr) << strerror(error);
        EXPECT_EQ(plan.fired(), 1);
        EXPECT_EQ(captured.out() + captured.err(), "");
    }
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(Buffer, NullForTheCurrentOneLeavesNoCurrentOne)
{
    const fault plan = fault::fails("semop", EAGAIN);
    EXPECT_EQ(part.get_buffer(0, CURRENT), nullptr);
    EXPECT_TRUE(part.return_buffer()) << "true is failure: nothing to return";
}

TEST_F(Buffer, OtherErrorsOfTheCountThrow)
{
    for (const int error : {EINVAL, EACCES, ERANGE}) {
        captured_output captured;
        const fault plan = fault::fails("semop", error);
        try {
            part.get_buffer(BM_NO_WAIT, MULTI);
            ADD_FAILURE() << "no exception";
        } catch (const SysError& e) {
            EXPECT_STREQ(e.what(), strerror(error));
        }
        EXPECT_EQ(captured.out(),
                  "139_C_shm_buffer::get_buffer() errno:" + std::to_string(error) + " before SysErrot()\n");
        EXPECT_EQ(captured.err(), "");
    }
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(Buffer, RemovedSetThrows)
{
    remove_set();
    captured_output captured;
    EXPECT_THROW(part.get_buffer(BM_NO_WAIT, MULTI), SysError);
    EXPECT_EQ(captured.out(), "139_C_shm_buffer::get_buffer() errno:22 before SysErrot()\n");
}

TEST_F(Buffer, InterruptedGateIsTriedAgainUntilTheBufferIsTaken)
{
    const fault signal = fault::fails("semop", EINTR, 2, 3); // the first is the count
    EXPECT_EQ(take(), 0);
    EXPECT_EQ(signal.fired(), 3);
    EXPECT_EQ(free_ones(), (numbers{1, 2}));
}

// Between the look at the queue and the gate another process takes the last one; the count it took is not given back.
TEST_F(Buffer, QueueThatEmptiesMeanwhileIsAskedAgain)
{
    ASSERT_EQ(take(), 0);
    ASSERT_EQ(take(), 1);
    ASSERT_TRUE(change_semaphore(semid, EMPTY, 1)); // one more than there are buffers
    part.bufmode(1);
    C_shm_buffer other("T_BUFFERS");
    int theirs = -1;
    const fault race = fault::preceded(
        "semop", [&] { theirs = other.get_buffer_id(other.get_buffer(BM_NO_WAIT, MULTI)); }, 2);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(theirs, 2);
    EXPECT_EQ(value(EMPTY), 0);
}

// --- synch mode

TEST_F(Buffer, SynchModeWithoutACountGivesNullAtOnce)
{
    part.rqsynch(true);
    captured_output captured;
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
    EXPECT_EQ(value(GATE), 1);
}

TEST_F(Buffer, SynchModeEatsAllCountsAndNeverGivesABuffer)
{
    part.rqsynch(true);
    ASSERT_TRUE(change_semaphore(semid, SYNCH, 4));
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(value(SYNCH), 0);
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(Buffer, SynchModeEndsWithNullWhenTheGateOrTheCountIsInterrupted)
{
    part.rqsynch(true);
    ASSERT_TRUE(change_semaphore(semid, SYNCH, 4));
    {
        const fault gate = fault::fails("semop", EINTR);
        EXPECT_EQ(part.get_buffer(0, MULTI), nullptr);
        EXPECT_EQ(value(SYNCH), 4);
    }
    for (const int error : {EAGAIN, EIDRM, EINTR}) {
        const fault count = fault::fails("semop", error, 3); // behind the gate's two
        EXPECT_EQ(part.get_buffer(0, MULTI), nullptr);
        EXPECT_EQ(count.fired(), 1);
        EXPECT_EQ(value(SYNCH), 4);
    }
}

TEST_F(Buffer, OtherErrorsInSynchModeThrow)
{
    part.rqsynch(true);
    captured_output captured;
    const fault plan = fault::fails("semop", EFBIG, 3);
    try {
        part.get_buffer(BM_NO_WAIT, MULTI);
        ADD_FAILURE() << "no exception";
    } catch (const SysError& e) {
        EXPECT_STREQ(e.what(), strerror(EFBIG));
    }
    EXPECT_EQ(captured.out(), "120_C_shm_buffer::get_buffer() errno:27 before SysErrot()\n");
}

} // namespace
