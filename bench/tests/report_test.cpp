// The command line and the reports.
#include <initializer_list>

#include <gtest/gtest.h>

#include "options.h"
#include "report.h"
#include "suite.h"

namespace bench {
namespace {

std::optional<options> parsed(std::initializer_list<const char*> words)
{
    std::vector<char*> argv{const_cast<char*>("bm_bench")};
    for (const char* word : words) argv.push_back(const_cast<char*>(word));
    argv.push_back(nullptr);
    return parse(static_cast<int>(argv.size()) - 1, argv.data());
}

TEST(Options, AreUnderstood)
{
    const auto o = parsed({"--rounds", "7", "--seconds", "0.5", "--processors", "3,1", "--json", "out"});
    ASSERT_TRUE(o.has_value());
    EXPECT_EQ(o->rounds, 7);
    EXPECT_DOUBLE_EQ(o->seconds, 0.5);
    EXPECT_EQ(o->processors, (std::vector<int>{3, 1}));
    EXPECT_EQ(o->json, "out");
}

TEST(Options, ShortIsOneRound)
{
    const auto o = parsed({"--short"});
    ASSERT_TRUE(o.has_value());
    EXPECT_EQ(o->rounds, 1);
    EXPECT_LT(o->seconds, 0.1);
}

TEST(Options, NonsenseIsRefused)
{
    EXPECT_FALSE(parsed({"--rounds", "0"}).has_value());
    EXPECT_FALSE(parsed({"--rounds", "many"}).has_value());
    EXPECT_FALSE(parsed({"--seconds", "nan"}).has_value());
    EXPECT_FALSE(parsed({"--seconds", "21"}).has_value());
    EXPECT_FALSE(parsed({"--processors", "1,"}).has_value());
    EXPECT_FALSE(parsed({"--processors", "-1"}).has_value());
    EXPECT_FALSE(parsed({"--json", ""}).has_value());
    EXPECT_FALSE(parsed({"--trace", "both"}).has_value());
    EXPECT_FALSE(parsed({"--what"}).has_value());
    EXPECT_FALSE(parsed({"more"}).has_value());
}

const comparison FAST{EVENTS_PER_SECOND, "1/s",         "1 KiB, one processor", "library",
                      "reference",       {100, 90, 95}, {100, 100, 100}};
const comparison SLOW{EVENTS_PER_SECOND, "1/s",        "1 MiB, one processor", "library",
                      "reference",       {89, 95, 80}, {100, 100, 100}};
const comparison LATE{"p50", "us", "1 KiB, one processor", "library", "reference", {1, 1, 1}, {10, 10, 10}};

TEST(Goal, IsJudgedByTheMedianOfEveryRow)
{
    EXPECT_TRUE(goal_met({FAST, LATE})) << "other figures do not count";
    EXPECT_FALSE(goal_met({FAST, SLOW}));
}

TEST(TextReport, HasOneHeadingPerFigureAndOneRowPerComparison)
{
    const std::string text = text_report({}, {FAST, LATE, SLOW});
    EXPECT_NE(text.find("events per second [1/s]\n  1 KiB, one processor"), std::string::npos) << text;
    EXPECT_EQ(text.find(EVENTS_PER_SECOND), text.rfind("events per second [1/s]")) << text;
    EXPECT_NE(text.find("0.95  (0.90 to 1.00)"), std::string::npos) << text;
    EXPECT_NE(text.find("in every row: missed\n"), std::string::npos) << text;
}

TEST(JsonReport, HasEveryRound)
{
    const std::string json = json_report({}, {FAST});
    EXPECT_NE(json.find("\"subject_values\": [100, 90, 95]"), std::string::npos) << json;
    EXPECT_NE(json.find("\"ratios\": [1, 0.9, 0.95]"), std::string::npos) << json;
    EXPECT_NE(json.find("\"goal_met\": true"), std::string::npos) << json;
}

TEST(JsonReport, QuotesWhatTheSystemCallsItself)
{
    circumstances how;
    how.where.processor = "a \"fast\" one\\two\t";
    EXPECT_NE(json_report(how, {}).find(R"("a \"fast\" one\\two ")"), std::string::npos);
}

} // namespace
} // namespace bench
