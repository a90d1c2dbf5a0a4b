// Which slots a walk meets, also when others take and give back slots meanwhile.
#include "partition_state.h"

#include <vector>

#include <gtest/gtest.h>

#include "clean_namespace.h"
#include "fault.h"

using namespace zrk4::impl;
using namespace zrk4::test;

namespace {

/// A partition of many slots, of which a case holds some.
class HeldSlots : public CleanNamespace {
  protected:
    static constexpr int SLOTS = 600;

    void hold(const std::vector<int>& wanted)
    {
        for (int n = 0; n < SLOTS; ++n) part.get_buffer(BM_NO_WAIT, true);
        std::vector<bool> kept(SLOTS, false);
        for (const int n : wanted) kept[static_cast<size_t>(n)] = true;
        for (int n = 0; n < SLOTS; ++n) {
            if (!kept[static_cast<size_t>(n)]) part.return_buffer(n);
        }
    }
    /// Takes slot `n`, wherever it stands in the queue.
    void take(int n)
    {
        std::vector<int> others;
        for (int taken = -1; taken != n;) {
            taken = part.buffer_id(part.get_buffer(BM_NO_WAIT, true));
            if (taken != n) others.push_back(taken);
        }
        for (const int other : others) part.return_buffer(other);
    }
    std::vector<int> met()
    {
        std::vector<int> all;
        for_each_held_slot(part, [&](int n) {
            all.push_back(n);
            return true;
        });
        return all;
    }

    C_shm_buffer part{"T_SLOTS", SLOTS, 64, true};
};

TEST_F(HeldSlots, AreMetInAscendingOrderWithoutTheControlRecord)
{
    hold({0, 3, 64, 65, 599});
    EXPECT_EQ(met(), (std::vector<int>{3, 64, 65, 599}));
}

TEST_F(HeldSlots, AreMetWhenTheControlRecordIsFree)
{
    hold({3, 599});
    EXPECT_EQ(met(), (std::vector<int>{3, 599}));
}

TEST_F(HeldSlots, AreAllMetWhenAllAreHeld)
{
    std::vector<int> all;
    for (int n = 0; n < SLOTS; ++n) all.push_back(n);
    hold(all);
    all.erase(all.begin());
    EXPECT_EQ(met(), all);
}

TEST_F(HeldSlots, AreNoneInAnEmptyPartition)
{
    hold({});
    EXPECT_EQ(met(), std::vector<int>());
}

// The cost of a walk follows what is held, not the room: behind the last held slot nothing is looked at.
TEST_F(HeldSlots, EndTheWalkOnceAllWereMet)
{
    hold({0, 3, 70});
    // One that left the queue without being counted: the walk would meet it if it went that far.
    part.get_bufptr()[500].status = 0;
    EXPECT_EQ(met(), (std::vector<int>{3, 70}));
}

// A process killed between the count and the queue leaves the count short for good: then the walk is a long one.
TEST_F(HeldSlots, AreAllMetWhenTheCountIsShort)
{
    hold({0, 3, 599});
    sembuf lost{gbl_empty, -1, 0};
    ASSERT_EQ(semop(control_of(part).gbl_semid, &lost, 1), 0);
    EXPECT_EQ(met(), (std::vector<int>{3, 599}));
}

TEST_F(HeldSlots, AreAllMetWhenTheSemaphoresAreGone)
{
    hold({0, 3, 599});
    const int semid = control_of(part).gbl_semid;
    semctl(semid, 0, IPC_RMID);
    EXPECT_EQ(met(), (std::vector<int>{3, 599}));
    clear_ipc_namespace(); // without its gate nobody can leave the partition
}

TEST_F(HeldSlots, ThatTheVisitGivesBackDoNotCount)
{
    hold({0, 3, 5, 599});
    std::vector<int> all;
    for_each_held_slot(part, [&](int n) {
        all.push_back(n);
        if (n == 599) return true;
        part.return_buffer(n);
        return false;
    });
    EXPECT_EQ(all, (std::vector<int>{3, 5, 599}));
}

TEST_F(HeldSlots, AreAllMetWhenOneIsTakenInFrontOfTheWalk)
{
    hold({0, 70, 599});
    std::vector<int> all;
    for_each_held_slot(part, [&](int n) {
        all.push_back(n);
        if (n == 70) take(80);
        return true;
    });
    EXPECT_EQ(all, (std::vector<int>{70, 80, 599}));
}

TEST_F(HeldSlots, AreAllMetWhenOneIsTakenBehindTheWalk)
{
    hold({0, 70, 599});
    std::vector<int> all;
    for_each_held_slot(part, [&](int n) {
        all.push_back(n);
        if (n == 70) take(3);
        return true;
    });
    EXPECT_EQ(all, (std::vector<int>{70, 599}));
}

TEST_F(HeldSlots, AreFewerLookedAtThanAskedForInASmallPartition)
{
    const C_shm_buffer small("T_SMALL", 100, 64, true);
    const long before = calls_of("semctl");
    int count = 0;
    for_each_held_slot(small, [&](int) { return ++count > 0; });
    EXPECT_EQ(count, 0);
    EXPECT_EQ(calls_of("semctl"), before) << "looking is cheaper than the kernel's answer";
}

TEST_F(HeldSlots, AreToldByTheirDescriptors)
{
    hold({0, 7});
    EXPECT_TRUE(is_handed_out(part, 7));
    EXPECT_FALSE(is_handed_out(part, 8));
    EXPECT_EQ(owner_of(part, 7), getpid());
    EXPECT_EQ(handed_out(part), 2);
}

} // namespace
