// The gate and the buffers' locks as one process sees them. What other processes do to them: system tests.
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionLock : public CleanNamespace {
  protected:
    C_shm part{"T_LOCK", 3, 50, /*sems=*/true};
    int semid = semid_of(part);

    // Without its set the partition cannot be left any more, so its last user does not remove it.
    void remove_set()
    {
        semctl(semid, 0, IPC_RMID);
        shmctl(shmid_of(part), IPC_RMID, nullptr);
    }
    std::string state_text() const
    {
        return " Partition name:T_LOCK  buffers:3  size:50 status:3 version:102 count:1 semid:" +
               std::to_string(semid) + " sems:1\n";
    }
};

TEST_F(PartitionLock, GateIsTakenAndGiven)
{
    EXPECT_EQ(semaphore_value(semid, 0), 1);
    EXPECT_TRUE(part.gate(true));
    EXPECT_EQ(semaphore_value(semid, 0), 0);
    EXPECT_TRUE(part.gate(false));
    EXPECT_EQ(semaphore_value(semid, 0), 1);
    EXPECT_EQ(part.getLockCount(), 0);
}

TEST_F(PartitionLock, FreeGateCostsOneCallInEachDirection)
{
    const long before = calls_of("semop");
    part.gate(true);
    part.gate(false);
    EXPECT_EQ(calls_of("semop") - before, 2);
}

TEST_F(PartitionLock, BusyGateIsCountedOncePerTake)
{
    for (const int count : {1, 2}) {
        const fault busy = fault::fails("semop", EAGAIN);
        EXPECT_TRUE(part.gate(true));
        EXPECT_EQ(busy.fired(), 1);
        EXPECT_EQ(part.getLockCount(), count);
        part.gate(false);
    }
    part.clrLockCount();
    EXPECT_EQ(part.getLockCount(), 0);
}

TEST_F(PartitionLock, SignalMeansFalseAndNothingTaken)
{
    const fault signal = fault::fails("semop", EINTR);
    EXPECT_FALSE(part.gate(true));
    EXPECT_EQ(semaphore_value(semid, 0), 1);
    EXPECT_EQ(part.getLockCount(), 0);
}

TEST_F(PartitionLock, GateOfARemovedSetThrowsAndSaysSoInTwoLines)
{
    remove_set();
    captured_output captured;
    try {
        part.gate(true);
        ADD_FAILURE() << "no exception";
    } catch (const SysError& e) {
        EXPECT_STREQ(e.what(), "Invalid argument");
    }
    const std::string id = std::to_string(semid);
    EXPECT_EQ(captured.out(), "throw C_shm::gate UP sem: 0 errno: 22 semid: " + id +
                                  "\nthrow C_shm::gate DOWN sem: 0  rrno: 22 shmid: " + id + state_text());
    EXPECT_EQ(captured.err(), "");
}

TEST_F(PartitionLock, GivingTheGateFailsWithTheSameWords)
{
    captured_output captured;
    const fault full = fault::fails("semop", ERANGE);
    try {
        part.gate(false);
        ADD_FAILURE() << "no exception";
    } catch (const SysError& e) {
        EXPECT_EQ(e.what(), std::string(strerror(ERANGE)));
    }
    const std::string id = std::to_string(semid);
    EXPECT_EQ(captured.out(), "throw C_shm::gate UP sem: 0 errno: 34 semid: " + id +
                                  "\nthrow C_shm::gate DOWN sem: 0  rrno: 34 shmid: " + id + state_text());
}

TEST_F(PartitionLock, NameWithoutAnEndIsPrintedAsFarAsItMayReach)
{
    live_segment(shmid_of(part), live_segment::WRITE).put_bytes(AT_NAME, std::string(256, 'N'));
    captured_output captured;
    const fault failing = fault::fails("semop", EFBIG);
    EXPECT_THROW(part.gate(true), SysError);
    EXPECT_NE(captured.out().find(" Partition name:" + std::string(255, 'N') + "  buffers:3"), std::string::npos);
}

TEST_F(PartitionLock, GateOfADetachedHandleIsALogicError)
{
    const C_shm none;
    try {
        none.gate(true);
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Partition not attached");
    }
}

TEST_F(PartitionLock, BufferLocksAreIndependentOfEachOtherAndOfTheGate)
{
    EXPECT_TRUE(part.gate(true));
    EXPECT_TRUE(part.ctrl(0, true));
    EXPECT_TRUE(part.ctrl(2, true));
    const int expected[] = {0, 3, 0, 0, 0, 1, 0};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(semaphore_value(semid, i), expected[i]) << "semaphore " << i;
    EXPECT_TRUE(part.ctrl(2, false));
    EXPECT_TRUE(part.ctrl(0, false));
    EXPECT_TRUE(part.gate(false));
    EXPECT_EQ(semaphore_value(semid, 4), 1);
    EXPECT_EQ(semaphore_value(semid, 6), 1);
}

TEST_F(PartitionLock, SlotThatDoesNotExistIsRefusedWithAWord)
{
    for (const int slot : {3, -1, 1 << 30}) {
        for (const bool lock : {true, false}) {
            const long before = calls_of("semop");
            bool done = true;
            EXPECT_EQ(out_of([&] { done = part.ctrl(slot, lock); }),
                      "ctrl(): Wrong slot id: " + std::to_string(slot) + "\n");
            EXPECT_FALSE(done);
            EXPECT_EQ(calls_of("semop"), before);
        }
    }
}

TEST_F(PartitionLock, WithoutBufferLocksCtrlIsRefusedWithAWord)
{
    const C_shm plain("T_PLAIN", 2, 10, /*sems=*/false);
    bool done = true;
    EXPECT_EQ(out_of([&] { done = plain.ctrl(1, true); }), "ctrl(): No additional semaphores available \n");
    EXPECT_FALSE(done);
    EXPECT_EQ(out_of([&] { done = plain.ctrl(2, true); }), "ctrl(): Wrong slot id: 2\n") << "the number comes first";
}

TEST_F(PartitionLock, NumberOfSlotsIsTheOneAtAccess)
{
    live_segment(shmid_of(part), live_segment::WRITE).put_int32(AT_NBUF, 1);
    EXPECT_TRUE(part.ctrl(2, true));
    EXPECT_TRUE(part.ctrl(2, false));
}

TEST_F(PartitionLock, SignalMeansFalseForABufferLockToo)
{
    const fault signal = fault::fails("semop", EINTR);
    EXPECT_FALSE(part.ctrl(1, true));
    EXPECT_EQ(semaphore_value(semid, 5), 1);
    EXPECT_EQ(part.getLockCount(), 0);
}

TEST_F(PartitionLock, BusyBufferLockIsCounted)
{
    const fault busy = fault::fails("semop", EAGAIN);
    EXPECT_TRUE(part.ctrl(1, true));
    EXPECT_EQ(part.getLockCount(), 1);
    EXPECT_TRUE(part.ctrl(1, false));
}

TEST_F(PartitionLock, BufferLockOfARemovedSetThrowsAndSaysSoInOneLine)
{
    remove_set();
    for (const bool lock : {true, false}) {
        captured_output captured;
        try {
            part.ctrl(2, lock);
            ADD_FAILURE() << "no exception";
        } catch (const SysError& e) {
            EXPECT_STREQ(e.what(), "Invalid argument");
        }
        EXPECT_EQ(captured.out(), "throw C_shm::ctrl UP sem: 6   errno: 22  semid: " + std::to_string(semid) + "\n");
    }
}

} // namespace
