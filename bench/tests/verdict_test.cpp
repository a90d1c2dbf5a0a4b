// What is said of the record of the look-ups.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "verdict.h"

namespace bench {
namespace {

/// Two rounds of one look-up and one query.
std::string plan(int cases, int rounds)
{
    return "plan t=0.0 cases=" + std::to_string(cases) + " rounds=" + std::to_string(rounds) + "\n";
}

std::string look_up(int call_ps, int program_ps, int loop_ps, const std::string& reader = "2010")
{
    return "lookup t=0.1 round=0 channels=16 data=8 reader=" + reader + " call_ps=" + std::to_string(call_ps) +
           " program_ps=" + std::to_string(program_ps) + " loop_ps=" + std::to_string(loop_ps) + "\n";
}

std::string query(const std::string& event, int query_ps, int names_ps)
{
    return "query t=0.1 round=0 channels=1000 event=" + event + " query_ps=" + std::to_string(query_ps) +
           " names_ps=" + std::to_string(names_ps) + "\n";
}

lookup_record read(const std::string& text)
{
    std::istringstream record(text);
    return read_lookups(record);
}

} // namespace

TEST(LookupVerdict, HoldsALookUpBesideBothLoopsInEveryRound)
{
    const lookup_record seen =
        read(plan(1, 3) + look_up(1000, 1000, 2000) + look_up(1300, 1000, 500) + look_up(900, 1000, 300));
    ASSERT_EQ(seen.rows.size(), 2U);
    EXPECT_EQ(seen.wrong, "");
    EXPECT_EQ(seen.rows[0].duel.ratios(), (std::vector<double>{1, 1.3, 0.9}));
    EXPECT_EQ(seen.rows[1].duel.ratios(), (std::vector<double>{0.5, 2.6, 3}));
    EXPECT_TRUE(seen.rows[0].met());
    EXPECT_FALSE(seen.rows[1].met()) << "by the median, which is 2.6";
    EXPECT_EQ(last_line(seen), "goals met: 1 of 2");
}

TEST(LookupVerdict, AllowsThirtyPercentAndNoMore)
{
    EXPECT_EQ(last_line(read(plan(1, 1) + look_up(1300, 1000, 1000))), "goals met: 2 of 2");
    EXPECT_EQ(last_line(read(plan(1, 1) + look_up(1301, 1000, 1001))), "goals met: 1 of 2");
}

TEST(LookupVerdict, AllowsAQueryAQuarterOfComparingAllNamesAndAMergeAllOfIt)
{
    EXPECT_EQ(last_line(read(plan(1, 1) + query("alone", 250, 1000))), "goals met: 1 of 1");
    EXPECT_EQ(last_line(read(plan(1, 1) + query("alone", 251, 1000))), "goals met: 0 of 1");
    EXPECT_EQ(last_line(read(plan(1, 1) + query("merged", 1000, 1000))), "goals met: 1 of 1");
    EXPECT_EQ(last_line(read(plan(1, 1) + query("merged", 1001, 1000))), "goals met: 0 of 1");
}

TEST(LookupVerdict, KeepsReadersApart)
{
    const lookup_record seen = read(plan(2, 1) + look_up(1, 1, 1, "2010") + look_up(1, 1, 1, "2024"));
    EXPECT_EQ(seen.rows.size(), 4U);
    EXPECT_EQ(seen.wrong, "");
}

TEST(LookupVerdict, ComplainsOfWhatIsMissing)
{
    EXPECT_EQ(read("").wrong, "0 of 0 measurements\n");
    EXPECT_EQ(read(plan(2, 1) + query("alone", 1, 1)).wrong, "1 of 2 measurements\n");
    EXPECT_EQ(read(plan(2, 1) + query("alone", 1, 1) + query("alone", 1, 1)).wrong,
              "query, 1000 channels, query, comparing all names: not one value per round\n");
    EXPECT_EQ(read(look_up(1, 1, 1)).wrong.find("1 of 0 measurements\n"), 0U);
}

TEST(LookupVerdict, ComplainsOfTimesThatCannotBe)
{
    EXPECT_EQ(read(plan(1, 1) + query("alone", 0, 1)).wrong,
              "query, 1000 channels, query, comparing all names: a time that cannot be\n");
    EXPECT_NE(read(plan(1, 1) + look_up(1, 1, 0)).wrong, "");
    EXPECT_EQ(last_line(read(plan(1, 1) + query("merged", 1, 0))), "goals met: 0 of 1");
}

TEST(LookupVerdict, EndsItsReportWithTheLineOfTheGoals)
{
    const std::string text = lookup_report(read(plan(1, 1) + query("alone", 100'000, 1'000'000)));
    EXPECT_NE(text.find("ratio  0.10 (0.10 to 0.10) met\n"), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.rfind("goals")), "goals met: 1 of 1\n");
}

TEST(LookupVerdict, SeesTheCanaryInEveryLookUpOrNotAtAll)
{
    EXPECT_TRUE(canary_seen(read(plan(2, 1) + look_up(4000, 1000, 1000) + query("alone", 1, 1000))));
    EXPECT_FALSE(canary_seen(read(plan(1, 1) + look_up(4000, 1000, 4000))));
    EXPECT_FALSE(canary_seen(read(plan(2, 1) + look_up(4000, 1000, 1000)))) << "a record that is not whole";
    EXPECT_FALSE(canary_seen(read("")));
}

} // namespace bench
