// Which calls fail, and how.
#include "points.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace call_faults;

namespace {

std::vector<traced_call> traced(const std::string& lines)
{
    std::istringstream in(lines);
    return trace_of(in);
}

TEST(CallFaultsPoints, ReadFromTheirTextAgain)
{
    for (const char* text : {"writer:semop:17:22", "reader:datagram:drop:20:7", "master:shmget:1024:28"}) {
        const auto made = point::of(text);
        ASSERT_TRUE(made.has_value()) << text;
        EXPECT_EQ(made->text(), text);
    }
    for (const char* text : {"", "nobody:semop:1:22", "writer:semop", "writer:semop:1", "writer:datagram"})
        EXPECT_FALSE(point::of(text).has_value()) << text;
}

TEST(CallFaultsPoints, EveryDocumentedErrorOfEveryCall)
{
    const auto points =
        points_of("reader", traced("call=shmdt n=1 result=0 errno=0\ncall=shmat n=1 result=9 errno=0\n"));
    std::string texts;
    for (const point& one : points) texts += one.text() + " ";
    EXPECT_EQ(texts, "reader:shmdt:1:22 reader:shmat:1:13 reader:shmat:1:43 reader:shmat:1:22 reader:shmat:1:12 ");
}

TEST(CallFaultsPoints, CallsThatFailAnywayAreThinnedOut)
{
    std::string lines;
    for (int n = 1; n <= 250; ++n) lines += "call=shmget n=" + std::to_string(n) + " result=-1 errno=2\n";
    const auto points = points_of("master", traced(lines + "call=shmget n=251 result=5 errno=0\n"));
    const size_t errors = documented_errors("shmget").size();
    EXPECT_EQ(points.size(), 5 * errors - 1) << "1, 101, 201, 250 and the one that did not fail, which was there";
    EXPECT_EQ(points.back().n, 251);
}

TEST(CallFaultsPoints, AnUnknownCallHasNone)
{
    EXPECT_TRUE(points_of("master", traced("call=geteuid n=1 result=0 errno=0\n")).empty());
}

TEST(CallFaultsPoints, ASampleIsSpreadEvenly)
{
    std::vector<point> all(100);
    for (long i = 0; i < 100; ++i) all[static_cast<size_t>(i)].n = i;
    const auto some = sample_of(all, 4);
    ASSERT_EQ(some.size(), 4U);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(some[i].n, static_cast<long>(25 * i));
    EXPECT_EQ(sample_of(all, 1000).size(), 100U);
    EXPECT_EQ(sample_of(all, 0).size(), 100U);
}

} // namespace
