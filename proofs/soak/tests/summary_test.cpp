// The verdict over a run is what its record says.
#include "summary.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace soak;

namespace {

figures of(const std::string& record)
{
    std::istringstream in(record);
    return figures_of(in);
}

const std::string KILL = "kill t=1.0 role=writer-1 pid=12 life=1 status=signal:9\n";
const std::string BLOCKS = "blocks t=9.0 role=reader-0 n=70\nblocks t=9.0 role=reader-1 n=30\n";
const std::string LOST = "lost t=9.0 partition=SOAK_DATA_0 buffer=7 owner=12 status=0\n";
const std::string REPAIR = "repair t=9.0 findings=1 repaired=1\n";
const std::string END = "end t=9.1 longest_gap_ms=8\n";

TEST(SoakSummary, CountsKillsBlocksWrongAndLost)
{
    const std::string wrong = "wrong t=2.0 what=bytes role=reader-0\n";
    const figures seen = of(KILL + KILL + KILL + wrong + wrong + BLOCKS + REPAIR + END);
    EXPECT_EQ(last_line(seen), "kills: 3, blocks: 100, wrong: 2, lost: 0");
    EXPECT_EQ(complaints(seen), "wrong: bytes, 2 times\n");
}

TEST(SoakSummary, AGoodRunHasNoComplaints) { EXPECT_EQ(complaints(of(KILL + BLOCKS + REPAIR + END)), ""); }

TEST(SoakSummary, AnEndThatWasNotTheKillIsNoKill)
{
    const figures seen = of("kill t=1.0 role=writer-1 pid=12 life=1 status=signal:11\n" + BLOCKS + REPAIR + END);
    EXPECT_EQ(seen.kills, 0U);
    EXPECT_EQ(complaints(seen), "nobody was killed\n");
}

TEST(SoakSummary, ARunWithoutARepairIsNotGood)
{
    EXPECT_EQ(complaints(of(KILL + BLOCKS + LOST + END)), "nothing was repaired in the end\n");
}

TEST(SoakSummary, AfterARepairNothingMayBeLost)
{
    const figures seen = of(KILL + BLOCKS + LOST + REPAIR + LOST + END);
    EXPECT_EQ(last_line(seen), "kills: 1, blocks: 100, wrong: 0, lost: 1");
    EXPECT_EQ(complaints(seen), "lost 1 buffers for good: the repair left them\n");
}

TEST(SoakSummary, WhatARepairBringsBackIsNotLostAndStillTakesAKillForEachBuffer)
{
    const figures seen = of(KILL + BLOCKS + LOST + REPAIR + END);
    EXPECT_EQ(last_line(seen), "kills: 1, blocks: 100, wrong: 0, lost: 0");
    EXPECT_EQ(complaints(seen), "");
    EXPECT_EQ(complaints(of(KILL + BLOCKS + LOST + LOST + REPAIR + END)),
              "lost 2 buffers, at most 1 can be explained\n");
}

TEST(SoakSummary, ARunThatWasCutShortIsNotGood)
{
    EXPECT_EQ(complaints(of(KILL + BLOCKS + REPAIR)), "the run did not come to its end\n");
}

TEST(SoakSummary, ARunInWhichNothingArrivedIsNotGood)
{
    EXPECT_EQ(complaints(of(KILL + REPAIR + END)), "no block arrived\n");
}

TEST(SoakSummary, ALostCountIsALostBuffer) { EXPECT_EQ(of("lost t=9.0 partition=SOAK_DATA_0 count\n").lost, 1U); }

} // namespace
