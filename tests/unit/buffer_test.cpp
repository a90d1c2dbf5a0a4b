// Taking and returning of buffers, step by step; every failure of a semaphore that tells one result from another.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

constexpr bool MULTI = true;
constexpr bool CURRENT = false;
enum semaphore { GATE, EMPTY, FULL, SYNCH };

class Buffer : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_BUFFERS", 3, 100, /*sems=*/false};
    const int shmid = shmid_of(part);
    const int semid = semid_of(part);
    live_segment raw{shmid, live_segment::WRITE};

    /// Number of the buffer that get_buffer gives, -1 for null.
    int take(bool multi = MULTI) { return part.buffer_id(part.get_buffer(BM_NO_WAIT, multi)); }
    int value(semaphore number) const { return semaphore_value(semid, number); }
    /// Free buffers by the queue, in order; the semaphore is asked for the same number.
    std::vector<int> free_ones() const
    {
        std::vector<int> found;
        for (int i = raw.int32(AT_FREE); i >= 0 && found.size() < 9; i = raw.int32(at_descriptor(i, IN_LINK))) {
            EXPECT_EQ(raw.int32(at_descriptor(i, IN_STATUS)), 1) << "buffer " << i;
            found.push_back(i);
        }
        EXPECT_EQ(value(EMPTY), static_cast<int>(found.size()));
        return found;
    }
    /// The set is removed; the segment goes with its last mapping.
    void remove_set() const
    {
        semctl(semid, 0, IPC_RMID);
        shmctl(shmid, IPC_RMID, nullptr);
    }
};

using numbers = std::vector<int>;

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

TEST_F(Buffer, CurrentOneWithoutAccessIsNoError)
{
    ASSERT_EQ(take(CURRENT), 0);
    part.deaccess();
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, CURRENT), nullptr);
    EXPECT_TRUE(part.return_buffer()) << "true is failure";
    ASSERT_TRUE(part.access());
    EXPECT_FALSE(part.return_buffer()) << "it is still the current one";
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
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

// --- reuse of full buffers

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
    count_empty(1);
    const fault signal = fault::fails("semop", EINTR, 2);
    EXPECT_EQ(part.get_buffer(BM_NO_WAIT, MULTI), nullptr);
    EXPECT_EQ(signal.fired(), 1);
    EXPECT_EQ(value(FULL), 1);
    EXPECT_EQ(value(EMPTY), 0) << "the count is gone";
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

// --- returning

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
    const fault full = fault::fails("semop", ERANGE, 3); // behind the gate's two
    EXPECT_FALSE(part.return_buffer(1)) << "false is success";
    EXPECT_EQ(full.fired(), 1);
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
