// The verdict over a sweep is what its record says.
#include "summary.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace call_faults;

namespace {

std::string point_line(const std::string& where, const std::string& changes = "")
{
    const std::string all_well = " met=1 victim=exit:0 crashed=0 hung=0 strange=0 stuck=0 missing=0 gave_up=0 left=0 "
                                 "sent=4 heard=4 kept_back=1 ms=70\n";
    // The last value of a key counts.
    return "point t=1.000 where=" + where + all_well.substr(0, all_well.size() - 1) + " " + changes + "\n";
}
figures of(const std::string& points, int planned = 1)
{
    std::istringstream in("run t=0.000 points=" + std::to_string(planned) + " careless=0\n" + points + "end t=9.000\n");
    return figures_of(in);
}
std::string line_of(const std::string& changes, const std::string& where = "writer:semop:7:22")
{
    return last_line(of(point_line(where, changes)));
}

TEST(CallFaultsSummary, AGoodPointHasNoComplaints)
{
    const figures seen = of(point_line("writer:semop:7:22"));
    EXPECT_EQ(complaints(seen), "");
    EXPECT_EQ(last_line(seen), "points: 1, met: 1, crashed: 0, hung: 0, wrong: 0, leaked: 0");
}

TEST(CallFaultsSummary, EachKindOfHarmIsCounted)
{
    EXPECT_EQ(line_of("crashed=1"), "points: 1, met: 1, crashed: 1, hung: 0, wrong: 0, leaked: 0");
    EXPECT_EQ(line_of("hung=1"), "points: 1, met: 1, crashed: 0, hung: 1, wrong: 0, leaked: 0");
    EXPECT_EQ(line_of("stuck=1"), "points: 1, met: 1, crashed: 0, hung: 1, wrong: 0, leaked: 0");
    EXPECT_EQ(line_of("strange=1"), "points: 1, met: 1, crashed: 0, hung: 0, wrong: 1, leaked: 0");
    EXPECT_EQ(line_of("missing=1"), "points: 1, met: 1, crashed: 0, hung: 0, wrong: 0, leaked: 1");
    EXPECT_EQ(line_of("left=1"), "points: 1, met: 1, crashed: 0, hung: 0, wrong: 0, leaked: 1");
}

TEST(CallFaultsSummary, ABadPointIsNamed)
{
    EXPECT_EQ(complaints(of(point_line("reader:recv:2:4", "victim=signal:11 crashed=1"))),
              "bad: reader:recv:2:4 victim signal:11\n");
}

TEST(CallFaultsSummary, AProgramThatGivesUpTakesOneThingAlong)
{
    EXPECT_EQ(complaints(of(point_line("writer:semop:7:22", "gave_up=1 missing=1"))), "");
    EXPECT_NE(complaints(of(point_line("writer:semop:7:22", "gave_up=1 missing=2"))), "");
}

TEST(CallFaultsSummary, WhatCouldNotBeRemovedIsLeft)
{
    EXPECT_EQ(complaints(of(point_line("master:shmctl:2:1", "left=1"))), "");
    EXPECT_NE(complaints(of(point_line("master:shmctl:2:1", "left=2"))), "");
}

TEST(CallFaultsSummary, OnlyDroppedDatagramsMayBeMissed)
{
    EXPECT_EQ(complaints(of(point_line("writer:datagram:drop:20:1", "sent=400 heard=320 kept_back=80"))), "");
    EXPECT_NE(complaints(of(point_line("writer:datagram:drop:20:1", "sent=400 heard=319 kept_back=80"))), "");
}

TEST(CallFaultsSummary, ASweepThatMissesAPointIsNotGood)
{
    EXPECT_EQ(complaints(of(point_line("writer:semop:7:22"), 2)), "2 points were planned\n");
}

TEST(CallFaultsSummary, ASweepInWhichNothingFailedIsNotGood)
{
    EXPECT_EQ(complaints(of(point_line("writer:semop:7:22", "met=0"))), "no call has failed\n");
}

TEST(CallFaultsSummary, WhatCouldNotBeLookedAtIsBad)
{
    EXPECT_NE(complaints(of(point_line("writer:semop:7:22") + "broken t=2.000 status=14\n")), "");
}

TEST(CallFaultsSummary, ACutRecordIsNotGood)
{
    std::istringstream in("run t=0.000 points=1\n" + point_line("writer:semop:7:22"));
    EXPECT_EQ(complaints(figures_of(in)), "the sweep did not come to its end\n");
}

} // namespace
