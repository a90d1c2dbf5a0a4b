// The live table, and the kernel's list of attached segments.
#include <gtest/gtest.h>

#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "C_shm_buffer.h"
#include "in_place.h"
#include "live_table.h"
#include "plan.h"

using namespace demo;

namespace {

void feed(live_table& table, int64_t tick, double counter, double gauge)
{
    char bytes[4096];
    block_writer block(bytes, sizeof bytes, true, {});
    block.channel("counter", {counter});
    block.channel("gauge", {gauge});
    block.seal([] { return int64_t{0}; });
    const zrk4::sb_view seen(bytes, sizeof bytes);
    for (const zrk4::sb_sub& channel : seen) table.channel("BLOCK", channel);
    table.channel("OTHER", *std::next(seen.begin(), 1)); // of another block: not shown
    table.event(tick, 2'000'000);
}

live_table two_quantities()
{
    return live_table(
        {{"rate", "/s", "BLOCK", "counter", 0, 2.0, true}, {"level", "MiB", "BLOCK", "gauge", 0, 0.5, false}},
        {{"warmth", "C"}, {"load", ""}});
}

} // namespace

TEST(Sparkline, ShowsTheLeastAsTheLowestAndTheMostAsTheHighestBar)
{
    EXPECT_EQ(live_table::sparkline({1, 2, 8}, false), "▁▂█");
    EXPECT_EQ(live_table::sparkline({4, 8}, true), "▅█") << "from zero";
    EXPECT_EQ(live_table::sparkline({3, 3}, false), "▁▁");
    EXPECT_EQ(live_table::sparkline({0, 0}, true), "▁▁");
    EXPECT_EQ(live_table::sparkline({}, true), "");
}

TEST(LiveTable, ShowsCountersAsRatesAndOthersAsTheyAre)
{
    live_table table = two_quantities();
    feed(table, 0, 1000, 10);
    table.log_line();
    feed(table, TICKS_PER_SECOND / 2, 1100, 30);
    const std::string line = table.log_line();
    EXPECT_NE(line.find("rate 400.0 /s"), std::string::npos) << line;
    EXPECT_NE(line.find("level 15.0 MiB"), std::string::npos) << line;
    EXPECT_NE(line.find("2 events  last block to callback   2000 us"), std::string::npos) << line;
}

TEST(LiveTable, IsDrawnOverItsLastPicture)
{
    live_table table = two_quantities();
    feed(table, 0, 0, 0);
    EXPECT_EQ(table.picture().find("\033[3A"), std::string::npos) << "nothing to draw over yet";
    feed(table, 10, 5, 5);
    const std::string second = table.picture();
    EXPECT_EQ(second.find("\033[3A"), 0U) << "a headline and two lines";
    EXPECT_EQ(std::count(second.begin(), second.end(), '\n'), 3);
}

TEST(LiveTable, ShowsTheNewestValueOfTheSlowChannelsThatHaveCome)
{
    live_table table = two_quantities();
    EXPECT_EQ(table.log_line().find("warmth"), std::string::npos);
    table.slow("warmth", 40);
    table.slow("warmth", 41.5F);
    table.slow("nobody's", 1);
    const std::string line = table.log_line();
    EXPECT_NE(line.find("  warmth 41.5 C"), std::string::npos) << line;
    EXPECT_EQ(line.find("load"), std::string::npos) << line;
    EXPECT_EQ(line.find("nobody's"), std::string::npos) << line;
}

TEST(LiveTable, GrowsByALineForASlowChannelThatComesLater)
{
    live_table table = two_quantities();
    table.picture();
    table.slow("load", 0.5F);
    const std::string second = table.picture(), third = table.picture();
    EXPECT_EQ(second.find("\033[3A"), 0U) << "over the first one's lines";
    EXPECT_EQ(std::count(second.begin(), second.end(), '\n'), 4);
    EXPECT_EQ(third.find("\033[4A"), 0U);
}

TEST(LiveTable, WaitsForTwoEventsBeforeItShowsRates)
{
    live_table table = two_quantities();
    EXPECT_EQ(table.log_line().find("rate"), std::string::npos);
    feed(table, 0, 1000, 10);
    EXPECT_EQ(table.log_line().find("rate"), std::string::npos);
    EXPECT_EQ(table.log_line().find("rate"), std::string::npos) << "no new event";
}

TEST(AttachedSegments, AreReadFromTheKernelsList)
{
    std::istringstream maps(
        "7f0000001000-7f0000003000 rw-s 00000000 00:01 5                          /SYSV00000022 (deleted)\n"
        "7f0000003000-7f0000005000 rw-p 00000000 fe:00 77                         /usr/lib/x.so\n"
        "7f0000005000-7f0000006000 rw-p 00000000 00:00 0 \n");
    const std::vector<attached_segments::extent> seen = attached_segments::parse(maps);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].begin, 0x7f0000001000U);
    EXPECT_EQ(seen[0].end, 0x7f0000003000U);
    EXPECT_EQ(seen[0].shmid, 5);
}

TEST(AttachedSegments, HoldABufferAndNoCopyOfIt)
{
    attached_segments segments;
    EXPECT_FALSE(segments.hold("anywhere", 1, 1));
    C_shm_buffer part("D_DATA", 2, 10'000, false);
    const int shmid = std::stoi(part.getStat("shmid"));
    const char* at = part.get_buffer(BM_NO_WAIT, true);
    ASSERT_NE(at, nullptr);
    EXPECT_TRUE(segments.hold(at, 10'000, shmid)) << "attached after the first question";
    EXPECT_FALSE(segments.hold(at, 10'000, shmid + 1)) << "another segment's";
    EXPECT_FALSE(segments.hold(at, 100'000, shmid)) << "more than there is";
    const std::vector<char> copy(at, at + 10'000);
    EXPECT_FALSE(segments.hold(copy.data(), copy.size(), shmid));
}
