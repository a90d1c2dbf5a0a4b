// The common clock and the agreement on the last tick; events of neighbouring ticks stay apart.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <thread>
#include <vector>

#include "plan.h"
#include "tick.h"

using namespace demo;

namespace {

constexpr int64_t SOME_START_US = 1'700'000'000 * int64_t{1'000'000};

time_stamp later(time_stamp key, uint32_t us) { return {key.timeup, key.timelow + us}; }

} // namespace

TEST(TickClock, GivesEveryTickItsExactTime)
{
    const tick_clock clock(SOME_START_US, 0);
    const time_stamp first = clock.key(0), last = clock.key(101);
    EXPECT_EQ(+first.timeup, 1'700'000'000U);
    EXPECT_EQ(+first.timelow, 0U);
    EXPECT_EQ(+last.timeup, 1'700'000'001U);
    EXPECT_EQ(+last.timelow, 10'000U);
}

TEST(TickClock, KnowsATickByItsExactTimeOnly)
{
    const tick_clock clock(SOME_START_US, 0);
    EXPECT_EQ(clock.tick_at(clock.key(1234)), 1234);
    EXPECT_FALSE(clock.tick_at(later(clock.key(5), 1)));
    EXPECT_FALSE(tick_clock(SOME_START_US + PERIOD_US, 0).tick_at(clock.key(0))) << "before the start";
}

TEST(TickClock, CountsIdsFromTheEpochAsFarAsTheRecordsHaveRoom)
{
    const tick_clock clock(SOME_START_US, 0);
    EXPECT_EQ(clock.event_id(7, true), 170'000'000'007);
    EXPECT_EQ(clock.event_id(7, false), 170'000'000'007 & 0x7FFFFFFF);
}

TEST(TickClock, StartsOnAMultipleOfThePeriodThatIsStillToCome)
{
    const int64_t before_ns = monotonic_ns();
    const tick_clock clock = tick_clock::starting_in(50'000);
    const time_stamp first = clock.key(0);
    EXPECT_EQ(first.timelow % PERIOD_US, 0);
    EXPECT_GE(clock.due_ns(0), before_ns + 50'000'000);
    EXPECT_EQ(clock.due_ns(3) - clock.due_ns(0), 3 * PERIOD_US * 1000);
}

TEST(TickGate, LetsEverybodyDoATickThatOneHasBegun)
{
    tick_gate gate;
    EXPECT_TRUE(gate.enter(4));
    gate.close();
    EXPECT_TRUE(gate.enter(3)) << "a writer that is behind";
    EXPECT_TRUE(gate.enter(4));
    EXPECT_FALSE(gate.enter(5));
    EXPECT_EQ(gate.begun(), 5);
}

TEST(TickGate, ClosedAtTheStartLetsNothingBegin)
{
    tick_gate gate;
    gate.close();
    EXPECT_FALSE(gate.enter(0));
    EXPECT_EQ(gate.begun(), 0);
}

TEST(TickGate, ClosedAtAnyMomentLeavesAllWritersWithTheSameTicks)
{
    for (int round = 0; round < 50; ++round) {
        tick_gate gate;
        std::vector<int64_t> done(3);
        std::vector<std::thread> writers;
        writers.reserve(done.size());
        for (int64_t& ticks : done) {
            writers.emplace_back([&gate, &ticks] {
                while (gate.enter(ticks)) ++ticks;
            });
        }
        while (gate.begun() < 100) std::this_thread::yield();
        gate.close();
        for (std::thread& writer : writers) writer.join();
        EXPECT_EQ(done, std::vector<int64_t>(3, gate.begun()));
    }
}

namespace {

/// A master that also writes: it begins events of the demonstration's ticks.
class one_writer : public BM {
  public:
    one_writer(bool records_2024, int mode)
    {
        settings how;
        how.records_2024 = records_2024;
        how.mode = mode;
        configure(*this, how);
        zrk4_client parameters{};
        std::list<std::string> names{"BLOCK"};
        if (set_master(true) || init() || subscribe(EVENT_TYPE, CLI_T_WRITER, &parameters, &names) < 1) std::abort();
    }
    ~one_writer() override { all_clean_up(); }
    int slot_of(time_stamp key, int64_t id)
    {
        zrk4_serv_block_head_2024 head{};
        head.pattern = SB_PATTERN_2024;
        head.time = key;
        head.mpulse = id;
        head.ltotal = sizeof head;
        return find_ev_slot(EVENT_TYPE, reinterpret_cast<char*>(&head));
    }
};

} // namespace

TEST(NeighbouringTicks, StayApartWithTheTimeMaskOfTheDemonstration)
{
    const tick_clock clock(SOME_START_US, 0);
    one_writer bm(true, BM_SYNCH_TIME);
    std::set<int> slots;
    for (int64_t tick = 0; tick < 10; ++tick) slots.insert(bm.slot_of(clock.key(tick), 1));
    EXPECT_EQ(slots.size(), 10U);
    EXPECT_EQ(slots.count(-1), 0U);
    EXPECT_EQ(bm.slot_of(later(clock.key(3), TIME_MASK_US), 1), bm.slot_of(clock.key(3), 1)) << "not exact equality";
}

TEST(NeighbouringTicks, AreOneEventWithTheDefaultTimeMask)
{
    const tick_clock clock(SOME_START_US, 0);
    one_writer bm(true, BM_SYNCH_TIME);
    bm.set_time_mask(20'000);
    EXPECT_EQ(bm.slot_of(clock.key(0), 1), bm.slot_of(clock.key(1), 2));
}

TEST(NeighbouringTicks, StayApartByTheirIds)
{
    const tick_clock clock(SOME_START_US, 0);
    for (const bool records_2024 : {false, true}) {
        one_writer bm(records_2024, BM_SYNCH_EVID);
        const time_stamp same_time = clock.key(0);
        const int first = bm.slot_of(same_time, clock.event_id(0, records_2024));
        EXPECT_NE(first, bm.slot_of(same_time, clock.event_id(1, records_2024)));
        EXPECT_EQ(first, bm.slot_of(same_time, clock.event_id(0, records_2024)));
    }
}
