// Names of points, and the lines of a record.
#include <gtest/gtest.h>

#include "point.h"
#include "record.h"

using namespace sweep;

namespace {

TEST(PointName, SaysWhoIsKilledWhere)
{
    EXPECT_EQ(name_of({"writer", {false, false, 2}, moment::before, 17}), "writer:2010:time:2:before:17");
    EXPECT_EQ(name_of({"init_new", {true, true, 3}, moment::after, 1}), "init_new:2024:evid:3:after:1");
}

TEST(PointName, GivesInstructionsInHexadecimal)
{
    EXPECT_EQ(name_of({"pop", {true, false, 1}, moment::at, 0x1a2b}), "pop:2024:time:1:at:0x1a2b");
}

TEST(PointName, IsReadBackAsThePointThatItNames)
{
    for (const char* name :
         {"writer:2010:time:2:before:17", "reader:2024:evid:1:after:0", "pop:2024:time:1:at:0x1a2b"}) {
        const auto at = point_named(name);
        ASSERT_TRUE(at) << name;
        EXPECT_EQ(name_of(*at), name);
    }
}

TEST(PointName, IsRefusedWhereAPartIsMissingOrWrong)
{
    for (const char* name :
         {"", "writer", "writer:2010:time:2:before", "writer:2011:time:2:before:1", "writer:2010:date:2:before:1",
          "writer:2010:time:4:before:1", "writer:2010:time:0:before:1", "writer:2010:time:2:during:1",
          "writer:2010:time:2:before:x", "writer:2010:time:2:before:-1", ":2010:time:2:before:1",
          "writer:2010:time:2:before:1:1"})
        EXPECT_FALSE(point_named(name)) << name;
}

result a_result()
{
    return {{"reader", {true, true, 3}, moment::after, 9},
            "semtimedop",
            "signal 9",
            outcome::repair,
            "a | b",
            "DATA: buffer 3 is out, owner 7",
            "1 2",
            "1 0 0"};
}

TEST(RecordLine, HoldsAColumnForEachPart)
{
    EXPECT_EQ(line_of(a_result()), "reader\t2024\tevid\t3\tafter\t9\tsemtimedop\tsignal 9\trepair\ta | b\t"
                                   "DATA: buffer 3 is out, owner 7\t1 2\t1 0 0");
}

TEST(RecordLine, IsReadBackWhole)
{
    const auto read = result_of(line_of(a_result()));
    ASSERT_TRUE(read);
    EXPECT_EQ(line_of(*read), line_of(a_result()));
}

TEST(RecordLine, StaysOneLineWhateverATextHolds)
{
    result r = a_result();
    r.findings = "one\ttwo\nthree\rfour";
    const auto read = result_of(line_of(r));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->findings, "one two three four");
}

TEST(RecordLine, IsRefusedWhereItIsCutOrItsOutcomeUnknown)
{
    const std::string whole = line_of(a_result());
    EXPECT_FALSE(result_of(""));
    EXPECT_FALSE(result_of(whole.substr(0, whole.rfind('\t'))));
    EXPECT_FALSE(result_of(whole + "\tmore"));
    std::string other = whole;
    other.replace(other.find("repair"), 6, "fine");
    EXPECT_FALSE(result_of(other));
}

} // namespace
