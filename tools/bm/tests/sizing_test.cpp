// The calculator by itself: its numbers are those of the library's own formulas, and its limits are kept.
#include <gtest/gtest.h>

#include "geometry.h"
#include "model/kernel_plan.h"

namespace bm::test {
namespace {

sizing of(const load& wanted) { return sized(wanted, "C", "E"); }

load small()
{
    load wanted;
    wanted.clients = 16;
    wanted.blocks = 16;
    wanted.rate = 10;
    return wanted;
}

TEST(Sizing, SlotPartitionsAreThoseThatAMasterMakes)
{
    const sizing plan = of(small());
    EXPECT_TRUE(plan.possible());
    EXPECT_EQ(plan.clients.buffers, 1025);
    EXPECT_EQ(plan.clients.length, 4144);
    EXPECT_EQ(plan.events.buffers, 321);
    EXPECT_EQ(plan.events.length, 6420) << "the table of slots is longer than a slot needs";
    EXPECT_EQ(plan.set_rate, 10);
    EXPECT_EQ(plan.set_client_slots, 0);
    EXPECT_EQ(plan.clients.semaphores(), 1029);
}

TEST(Sizing, TheLongerRecordsTakeMore)
{
    load wanted = small();
    wanted.form = records::of_2024;
    EXPECT_EQ(of(wanted).events.length, 7704);
}

TEST(Sizing, ABufferIsThereForEveryBlockOfTheEventsInFlight)
{
    load wanted = small();
    wanted.reader_s = 2;
    wanted.stall_s = 1;
    wanted.groups = {{1000, 3}};
    const sizing plan = of(wanted);
    ASSERT_EQ(plan.data.size(), 1U);
    EXPECT_EQ(plan.data[0].buffers, (30 + 1) * 3);
    EXPECT_EQ(plan.data[0].length, 1000);
    EXPECT_FALSE(plan.data[0].locks);
    EXPECT_EQ(plan.data[0].semaphores(), 4);
}

TEST(Sizing, WhatPasses2GiBBecomesSeveralPartitions)
{
    load wanted = small();
    wanted.groups = {{64 << 20, 1}};
    const sizing plan = of(wanted); // 71 buffers, of which 32 begin below 2 GiB
    ASSERT_EQ(plan.data.size(), 3U);
    int64_t buffers = 0;
    for (const planned_partition& part : plan.data) {
        EXPECT_TRUE(zrk4::impl::offsets_fit(part.buffers, part.length)) << part.name;
        buffers += part.buffers;
    }
    EXPECT_GE(buffers, 71);
    EXPECT_EQ(plan.data[2].name, "DATA_1_3");
    EXPECT_TRUE(plan.possible());
}

TEST(Sizing, NoPartitionHasMoreBuffersThanASemaphoreCounts)
{
    load wanted = small();
    wanted.rate = 100;
    wanted.blocks = 100;
    wanted.groups = {{100, 100}};
    const sizing plan = of(wanted); // 70,100 buffers
    ASSERT_EQ(plan.data.size(), 3U);
    for (const planned_partition& part : plan.data) EXPECT_LE(part.buffers, 32767);
}

TEST(Sizing, ClientSlotsShrinkToWhatOneSetHasRoomFor)
{
    load wanted = small();
    wanted.clients = 1024;
    const sizing plan = of(wanted);
    EXPECT_TRUE(plan.possible());
    EXPECT_EQ(plan.set_client_slots, 31995);
    EXPECT_EQ(plan.clients.semaphores(), 32000);
}

TEST(Sizing, TheLibrarysDefaultsFitWithFewerSlots)
{
    load wanted;
    wanted.clients = 1024;
    wanted.blocks = 4094;
    wanted.groups = {{100, 1}};
    const sizing plan = of(wanted);
    EXPECT_TRUE(plan.possible());
    EXPECT_TRUE(zrk4::impl::offsets_fit(plan.clients.buffers, plan.clients.length));
    EXPECT_FALSE(zrk4::impl::offsets_fit(plan.clients.buffers + 1, plan.clients.length)) << "the most that fit";
}

TEST(Sizing, TooManyClientsAreImpossible)
{
    load wanted = small();
    wanted.clients = 20000;
    const sizing plan = of(wanted);
    ASSERT_EQ(plan.impossible.size(), 1U);
    EXPECT_EQ(plan.impossible[0].what, "client slots: they pass the semaphores of one set or 2 GiB");
    EXPECT_EQ(plan.impossible[0].seen, "40000 slots of 4144 bytes");
    EXPECT_EQ(plan.impossible[0].instead, "at most 15997 clients with 16 blocks");
}

TEST(Sizing, AFastSourceGetsFewerSecondsOfSlots)
{
    load wanted = small();
    wanted.rate = 1000;
    const sizing plan = of(wanted);
    EXPECT_TRUE(plan.possible());
    EXPECT_LT(plan.set_rate, 1000);
    EXPECT_GE(plan.event_span_s, 7);
    EXPECT_TRUE(zrk4::impl::offsets_fit(plan.events.buffers, plan.events.length));
    EXPECT_GE(plan.events.length, 20 * plan.events.buffers) << "the table has an entry for every slot";
}

TEST(Sizing, MoreOpenEventsThanAPartitionHoldsAreImpossible)
{
    load wanted = small();
    wanted.rate = 1000;
    wanted.reader_s = 60;
    const sizing plan = of(wanted);
    ASSERT_FALSE(plan.possible());
    EXPECT_EQ(plan.impossible[0].what, "event slots: they pass the semaphores of one set or 2 GiB");
}

TEST(Sizing, BlocksBeyondAnEventsRoomAreImpossible)
{
    load wanted = small();
    wanted.groups = {{100, 10}, {200, 7}};
    const sizing plan = of(wanted);
    ASSERT_EQ(plan.impossible.size(), 1U);
    EXPECT_EQ(plan.impossible[0].seen, "17 blocks");
    EXPECT_EQ(plan.impossible[0].needed, "at most 16");
}

TEST(Sizing, MorePartitionsThanKeysAreImpossible)
{
    load wanted = small();
    wanted.rate = 100;
    wanted.blocks = 4;
    wanted.groups = {{1 << 30, 4}};
    const sizing plan = of(wanted);
    ASSERT_EQ(plan.impossible.size(), 1U);
    EXPECT_EQ(plan.impossible[0].needed, "at most 1024");
}

TEST(Sizing, EveryPresetIsPossible)
{
    for (const std::string& name : preset_names()) EXPECT_TRUE(of(preset(name)).possible()) << name;
}

TEST(KernelPlan, OneSettingRaisedLowersNoOther)
{
    kernel_settings now;
    now.sem = {250, 32000, 32, 4000};
    now.sets_used = 3;
    now.semaphores_used = 31900;
    kernel_needs needs;
    needs.semaphores_per_set = 1029;
    needs.semaphores = 1300;
    needs.sets = 3;
    const std::vector<kernel_demand> all = demands(needs, now);
    EXPECT_EQ(all[0].line, "kernel.sem = 1029 33200 32 4000");
    EXPECT_FALSE(all[0].met());
    EXPECT_FALSE(all[1].met());
    EXPECT_TRUE(all[2].met());
    EXPECT_FALSE(all[3].met()) << "what could not be read is not taken for enough";
}

} // namespace
} // namespace bm::test
