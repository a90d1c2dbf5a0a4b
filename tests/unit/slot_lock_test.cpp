// A slot's lock as an object.
#include "slot_lock.h"

#include <cerrno>
#include <climits>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

#include "C_shm_kill.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "fault.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::impl;
using namespace zrk4::test;

namespace {

static_assert(!std::is_copy_constructible_v<slot_lock> && !std::is_copy_assignable_v<slot_lock>);
static_assert(std::is_nothrow_move_constructible_v<slot_lock> && std::is_nothrow_move_assignable_v<slot_lock>);

class SlotLock : public CleanNamespace {
  protected:
    bool held(int slot) const { return semaphore_value(semid_of(slots), 4 + slot) == 0; }

    C_shm_buffer slots{"T_SLOTS", 4, 64, true};
};

TEST_F(SlotLock, HoldsThatOneSlotForItsLife)
{
    {
        const slot_lock lock(slots, 2);
        EXPECT_TRUE(lock);
        EXPECT_TRUE(held(2));
        for (const int other : {0, 1, 3}) EXPECT_FALSE(held(other)) << other;
        EXPECT_EQ(semaphore_value(semid_of(slots), 0), 1) << "not the gate";
    }
    EXPECT_FALSE(held(2));
}

TEST_F(SlotLock, NumberZeroIsTheControlRecords)
{
    const slot_lock lock(slots, 0);
    EXPECT_TRUE(held(0));
}

TEST_F(SlotLock, IsGivenBackOnlyOnce)
{
    slot_lock lock(slots, 1);
    lock.unlock();
    EXPECT_FALSE(held(1));
    EXPECT_FALSE(lock);
    lock.unlock();
    EXPECT_EQ(semaphore_value(semid_of(slots), 4 + 1), 1);
}

TEST_F(SlotLock, IsGivenBackByAnException)
{
    EXPECT_THROW(
        {
            const slot_lock lock(slots, 1);
            throw 1;
        },
        int);
    EXPECT_FALSE(held(1));
}

TEST_F(SlotLock, MovesWithItsHold)
{
    slot_lock first(slots, 1);
    slot_lock second(std::move(first));
    EXPECT_TRUE(second);
    EXPECT_TRUE(held(1));
    slot_lock third(slots, 2);
    third = std::move(second);
    EXPECT_TRUE(held(1));
    third.unlock();
    EXPECT_FALSE(held(1));
}

TEST_F(SlotLock, SlotThatDoesNotExistIsRefusedAtOnceAndSilently)
{
    captured_output captured;
    for (const int slot : {-1, 4, 5, INT_MIN, INT_MAX}) EXPECT_THROW(slot_lock(slots, slot), std::logic_error) << slot;
    EXPECT_EQ(captured.out(), "") << "an endless loop would flood the output";
}

TEST_F(SlotLock, PartitionWithoutSuchLocksIsRefusedAtOnceAndSilently)
{
    const C_shm_buffer bare("T_BARE", 4, 64, false);
    captured_output captured;
    EXPECT_THROW(slot_lock(bare, 1), std::logic_error);
    EXPECT_EQ(captured.out(), "");
}

TEST_F(SlotLock, PartitionThatIsGoneIsRefusedAsOneWithoutItsSet)
{
    const C_shm_buffer lost("T_LOST", 4, 64, true);
    {
        const C_shm_kill removed("T_LOST");
    }
    captured_output captured;
    EXPECT_THROW(slot_lock(lost, 1), SysError);
    EXPECT_EQ(captured.out(), "");
}

TEST_F(SlotLock, SignalRepeatsTheTry)
{
    const fault interrupted = fault::fails("semop", EINTR, 1, 5);
    const slot_lock lock(slots, 1);
    EXPECT_TRUE(lock);
    EXPECT_EQ(interrupted.fired(), 5);
}

TEST_F(SlotLock, SignalEndsTheWaitOfOneWhoIsToStop)
{
    ASSERT_TRUE(slots.ctrl(1, true));
    int asked = 0;
    const fault interrupted = fault::fails("semop", EINTR, 2, FOR_EVER);
    const slot_lock lock(slots, 1, [&] { return ++asked < 3; });
    EXPECT_FALSE(lock);
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(held(1)) << "somebody else's hold is not given back";
}

TEST_F(SlotLock, IsTriedWithoutWaiting)
{
    {
        const slot_lock tried = slot_lock::try_once(slots, 1);
        EXPECT_TRUE(tried);
        EXPECT_TRUE(held(1));
        const slot_lock second = slot_lock::try_once(slots, 1);
        EXPECT_FALSE(second) << "busy, in this very process";
    }
    EXPECT_FALSE(held(1));
}

TEST_F(SlotLock, WaitsUntilItIsGiven)
{
    slot_lock first(slots, 1);
    std::thread second([&] {
        const slot_lock lock(slots, 1);
        EXPECT_TRUE(lock);
    });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(semid_of(slots), 4 + 1) == 1; }));
    first.unlock();
    second.join();
    EXPECT_FALSE(held(1));
}

class SlotLockAndProcesses : public SlotLock {
  protected:
    latch taken_;
    child holder_{[this] {
        const slot_lock lock(slots, 1);
        taken_.open();
        pause();
    }};
};

TEST_F(SlotLockAndProcesses, HeldByAKilledProcessIsGivenBack)
{
    taken_.wait();
    EXPECT_FALSE(slot_lock::try_once(slots, 1));
    holder_.kill_now();
    const slot_lock lock(slots, 1);
    EXPECT_TRUE(lock);
}

TEST_F(SlotLockAndProcesses, HeldByAStoppedProcessStaysHeld)
{
    taken_.wait();
    holder_.stop();
    EXPECT_FALSE(slot_lock::try_once(slots, 1));
    holder_.kill_now();
    EXPECT_TRUE(slot_lock::try_once(slots, 1));
}

class SlotLockAlone : public CleanNamespace {};

TEST_F(SlotLockAlone, RemovedSemaphoresAreAnErrorToTakeAndToUnlockButNotToDrop)
{
    child process([] {
        const C_shm_buffer slots("T_SLOTS", 4, 64, true);
        const captured_output quiet;
        {
            slot_lock unlocked(slots, 1);
            const slot_lock dropped(slots, 2);
            semctl(semid_of(slots), 0, IPC_RMID);
            EXPECT_THROW(slot_lock(slots, 3), SysError);
            EXPECT_THROW(unlocked.unlock(), SysError);
            EXPECT_FALSE(unlocked) << "there is nothing to give back any more";
            EXPECT_FALSE(slot_lock::try_once(slots, 3));
        }
    });
    EXPECT_EQ(process.wait(), 0);
    clear_ipc_namespace();
}

TEST_F(SlotLock, NumberZeroIsNoSlot)
{
    for (const int n : {0, -1, 4, 5, INT_MIN, INT_MAX}) EXPECT_FALSE(is_slot(&slots, n)) << n;
    for (const int n : {1, 2, 3}) EXPECT_TRUE(is_slot(&slots, n)) << n;
    EXPECT_FALSE(is_slot(nullptr, 1));
}

} // namespace
