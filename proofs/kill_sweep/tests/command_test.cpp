// What a report of the operator's command says, and where it contradicts itself.
#include <gtest/gtest.h>

#include "command.h"

using namespace sweep;

namespace {

std::string report(const std::string& findings, const std::string& partitions = "")
{
    return R"({"schema": "bm.check", "version": 1, "findings": [)" + findings + R"(], "partitions": [)" + partitions +
           "]}";
}

std::string finding(const std::string& verdict)
{
    return R"({"verdict": ")" + verdict + R"(", "partition": "DATA", "number": 3, "text": "buffer 3 was taken"})";
}

constexpr const char* CLOSED = R"({"name": "DATA", "state": "busy", "text": "its lock"})";
constexpr const char* SOUND = R"({"name": "DATA", "state": "looked at", "text": ""})";

TEST(CommandReport, OfAHostThatIsFineHasNothing)
{
    const command_report seen = command_report_of(0, report("", SOUND));
    EXPECT_EQ(seen.wrong, "");
    EXPECT_TRUE(seen.lines.empty());
    EXPECT_EQ(seen.broken, 0);
}

TEST(CommandReport, HasEveryFindingWithItsVerdict)
{
    const command_report seen = command_report_of(1, report(finding("broken") + ", " + finding("undecidable")));
    EXPECT_EQ(seen.wrong, "");
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"broken: buffer 3 was taken", "undecidable: buffer 3 was taken"}));
    EXPECT_EQ(seen.broken, 1);
    EXPECT_EQ(seen.undecided, std::set<std::string>{"DATA: buffer 3"});
}

TEST(CommandReport, OfWhatWasMendedNeedsNoAttention)
{
    const command_report seen = command_report_of(0, report(finding("repaired")));
    EXPECT_EQ(seen.wrong, "");
    EXPECT_EQ(seen.lines.size(), 1U);
}

TEST(CommandReport, CountsAPartitionThatWasNotLookedAt)
{
    const command_report seen = command_report_of(4, report("", CLOSED));
    EXPECT_EQ(seen.wrong, "");
    EXPECT_EQ(seen.lines, std::vector<std::string>{"not looked at: DATA its lock"});
    EXPECT_EQ(seen.broken, 1);
}

TEST(CommandReport, IsWrongWhereItsStatusSaysSomethingElse)
{
    EXPECT_EQ(command_report_of(0, report(finding("broken"))).wrong, "ended with 0 after 1 findings");
    EXPECT_EQ(command_report_of(1, report("")).wrong, "ended with 1 after 0 findings");
    EXPECT_EQ(command_report_of(1, report(finding("repaired"))).wrong, "ended with 1 after 1 findings");
}

TEST(CommandReport, IsWrongWhereItIsNone)
{
    for (const char* text : {"", "3 partitions looked at", R"({"schema": "bm.check"})"})
        EXPECT_EQ(command_report_of(139, text).wrong.substr(0, 18), "printed no report:") << text;
}

TEST(Command, ThatCannotBeRunIsSaid)
{
    const checked seen = check_with_command("/no/such/command", false, true);
    ASSERT_EQ(seen.wrong.size(), 3U);
    EXPECT_EQ(seen.wrong[0].substr(0, 27), "bm check printed no report:");
    EXPECT_EQ(seen.statuses, "127 127 127");
}

} // namespace
