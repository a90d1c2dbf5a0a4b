// The same seed disturbs the same processes, in every run and on every machine.
#include "plan.h"

#include <set>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

using namespace soak;

namespace {

std::vector<std::tuple<int, int, int, int>> first_actions(uint64_t seed, int count)
{
    plan actions(seed, 40);
    std::vector<std::tuple<int, int, int, int>> made;
    for (int i = 0; i < count; ++i) {
        const action next = actions.next();
        made.emplace_back(next.delay_ms, next.what, next.victim, next.stop_ms);
    }
    return made;
}

TEST(SoakPlan, SameSeedMeansSameActions) { EXPECT_EQ(first_actions(7, 300), first_actions(7, 300)); }
TEST(SoakPlan, AnotherSeedMeansOtherActions) { EXPECT_NE(first_actions(7, 300), first_actions(8, 300)); }

TEST(SoakPlan, DelaysLieBetween20And500Milliseconds)
{
    for (const auto& [delay, what, victim, stop] : first_actions(1, 2000)) {
        EXPECT_GE(delay, 20);
        EXPECT_LE(delay, 500);
    }
}

TEST(SoakPlan, EverybodyIsKilledAndEverybodyIsStopped)
{
    std::set<int> killed, stopped;
    for (const auto& [delay, what, victim, stop] : first_actions(1, 1000))
        (what == action::KILL ? killed : stopped).insert(victim);
    EXPECT_EQ(killed.size(), static_cast<size_t>(MEMBERS));
    EXPECT_EQ(stopped.size(), static_cast<size_t>(MEMBERS));
}

TEST(SoakPlan, AWriterAndAReaderLiveThroughEveryWatch)
{
    const auto actions = first_actions(3, 400);
    for (size_t watch = 0; watch < 10; ++watch) {
        std::set<int> victims;
        for (size_t i = 0; i < 40; ++i) victims.insert(std::get<2>(actions[watch * 40 + i]));
        int writers = 0, readers = 0;
        for (const int victim : victims) {
            writers += is_writer(victim) ? 1 : 0;
            readers += is_reader(victim) ? 1 : 0;
        }
        EXPECT_LT(writers, WRITERS) << "watch " << watch;
        EXPECT_LT(readers, READERS) << "watch " << watch;
        if (watch % 2 == 1) {
            EXPECT_EQ(victims.count(MASTER), 0U) << "watch " << watch;
        }
    }
}

TEST(SoakPlan, LongRunsHaveLongWatches)
{
    EXPECT_EQ(plan::watch_of(10), 40);
    EXPECT_EQ(plan::watch_of(24 * 3600), 2000);
    EXPECT_GT(plan::watch_of(1800), 1000);
}

} // namespace
