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
        for_each_held_slot(part, [&](int n) { all.push_back(n); });
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

// Several descriptors are looked at at once: none may hide behind its neighbours.
TEST_F(HeldSlots, AreMetWhereverTheyStand)
{
    hold({});
    for (int n = 1; n < SLOTS; ++n) {
        part.get_bufptr()[n].status = 0;
        EXPECT_EQ(met(), std::vector<int>{n});
        part.get_bufptr()[n].status = BUF_QUEUED;
    }
}

// A process that was killed in between leaves count, queue and descriptor at odds.
TEST_F(HeldSlots, AreToldByTheDescriptorAlone)
{
    hold({0, 3, 70});
    part.get_bufptr()[500].status = 0;
    EXPECT_EQ(met(), (std::vector<int>{3, 70, 500}));
}

TEST_F(HeldSlots, AreMetWithoutAskingTheKernel)
{
    hold({0, 3, 599});
    const long before = calls_of("semctl");
    EXPECT_EQ(met(), (std::vector<int>{3, 599}));
    EXPECT_EQ(calls_of("semctl"), before);
}

TEST_F(HeldSlots, MayBeGivenBackAndTakenByTheVisit)
{
    hold({0, 3, 70, 599});
    std::vector<int> all;
    for_each_held_slot(part, [&](int n) {
        all.push_back(n);
        if (n == 3) part.return_buffer(n);
        if (n == 70) take(80);
    });
    EXPECT_EQ(all, (std::vector<int>{3, 70, 80, 599}));
}

TEST_F(HeldSlots, NameTheirOwner)
{
    hold({0, 7});
    EXPECT_TRUE(is_handed_out(part, 7));
    EXPECT_FALSE(is_handed_out(part, 8));
    EXPECT_EQ(owner_of(part, 7), getpid());
}

} // namespace
