// The command line and the reports.
#include <initializer_list>
#include <sstream>

#include <gtest/gtest.h>

#include "options.h"
#include "report.h"

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
    const auto o = parsed({"--rounds", "7", "--first-round", "3", "--seconds", "0.5", "--processors", "3,1", "--record",
                           "out", "--only", "one,building"});
    ASSERT_TRUE(o.has_value());
    EXPECT_EQ(o->rounds, 7);
    EXPECT_DOUBLE_EQ(o->seconds, 0.5);
    EXPECT_EQ(o->processors, (std::vector<int>{3, 1}));
    EXPECT_EQ(o->first_round, 3);
    EXPECT_EQ(o->record, "out");
    EXPECT_EQ(o->only, "one,building");
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
    EXPECT_FALSE(parsed({"--record", ""}).has_value());
    EXPECT_FALSE(parsed({"--trace", "reference"}).has_value());
    EXPECT_FALSE(parsed({"--what"}).has_value());
    EXPECT_FALSE(parsed({"more"}).has_value());
}

record fast_and_slow()
{
    record r;
    for (const int round : {1, 2, 3}) {
        r.add({round, "one", "library", "p50_us", 10.0 * round});
        r.add({round, "one", "strict", "p50_us", 40});
    }
    return r;
}

const std::vector<goal> GOALS{
    {1, "met", {{"half", {{{"one", "library", "p50_us"}}, {{"one", "strict", "p50_us"}}}, true, 0.8, 0.5}}},
    {2, "missed", {{"tenth", {{{"one", "library", "p50_us"}}, {{"one", "strict", "p50_us"}}}, true, 0.1, 0}}}};

TEST(TextReport, HasEveryFigureAndEveryVerdict)
{
    const std::string text = text_report(fast_and_slow(), GOALS);
    EXPECT_NE(text.find("20.00  (10.00 to 30.00), 3 rounds\n"), std::string::npos) << text;
    EXPECT_NE(text.find("0.500  (0.250 to 0.750)  <= 0.80 in 3 of 3: met, stretch\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" 2 missed: missed\n"), std::string::npos) << text;
}

TEST(TextReport, SaysWhatWasNotMeasured)
{
    EXPECT_NE(text_report({}, GOALS).find("not measured: missed\n"), std::string::npos);
}

TEST(LastLine, CountsTheGoals) { EXPECT_EQ(last_line(fast_and_slow(), GOALS), "goals met: 1 of 2\n"); }

TEST(JsonReport, HasEveryRound)
{
    const std::string json = json_report(fast_and_slow(), GOALS);
    EXPECT_NE(json.find("\"values\": [10, 20, 30]"), std::string::npos) << json;
    EXPECT_NE(json.find("\"values\": [0.25, 0.5, 0.75], \"at_most\": 0.8, \"met\": true"), std::string::npos) << json;
    EXPECT_NE(json.find("\"goals_met\": 1"), std::string::npos) << json;
}

TEST(JsonReport, QuotesWhatTheSystemCallsItself)
{
    std::istringstream in("machine\ta \"fast\" one\\two\n");
    record r;
    r.read(in);
    EXPECT_NE(json_report(r, {}).find(R"("a \"fast\" one\\two")"), std::string::npos) << json_report(r, {});
}

} // namespace
} // namespace bench
