// What the last line says of a record, and whether a run was good.
#include <sstream>

#include <gtest/gtest.h>

#include "summary.h"

using namespace sweep;

namespace {

result killed(const char* role, int number, outcome what)
{
    return {{role, {}, moment::before, number}, "semtimedop", KILLED, what, "", "", "", ""};
}

summary of(const std::vector<result>& results, const std::string& more = "")
{
    std::stringstream record;
    for (const result& r : results) record << line_of(r) << '\n';
    record << more;
    return summary::of(record);
}

std::string printed(const summary& s)
{
    std::ostringstream os;
    s.print(os);
    return os.str();
}

std::string last_line(const summary& s)
{
    const std::string text = printed(s);
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

TEST(SweepSummary, CountsEveryOutcomeInItsLastLine)
{
    const summary s = of({killed("writer", 1, outcome::monitor), killed("writer", 2, outcome::monitor),
                          killed("reader", 1, outcome::repair), killed("reader", 2, outcome::undecidable),
                          killed("reader", 3, outcome::not_back)});
    EXPECT_EQ(last_line(s), "kill points: 5, back by the monitor: 2, back by repair: 1, undecidable: 1, not back: 1\n");
}

TEST(SweepSummary, IsGoodWhenEverythingCameBack)
{
    EXPECT_TRUE(of({killed("writer", 1, outcome::monitor), killed("reader", 2, outcome::undecidable)}).good());
}

TEST(SweepSummary, IsBadWithoutAPoint) { EXPECT_FALSE(of({}).good()); }

TEST(SweepSummary, IsBadWhenSomethingIsNotBack) { EXPECT_FALSE(of({killed("writer", 1, outcome::not_back)}).good()); }

TEST(SweepSummary, IsBadWhenAClaimDidNotHold)
{
    result r = killed("writer", 1, outcome::monitor);
    r.broken = "reader 1 crashed";
    const summary s = of({r});
    EXPECT_FALSE(s.good());
    EXPECT_NE(printed(s).find("writer:2010:time:1:before:1 semtimedop, signal 9, monitor: reader 1 crashed"),
              std::string::npos);
}

TEST(SweepSummary, IsBadWhenAVictimEndedOtherwiseThanByTheKill)
{
    result r = killed("writer", 1, outcome::monitor);
    r.status = "signal 11";
    EXPECT_FALSE(of({r}).good());
}

TEST(SweepSummary, IsBadWhenALineCannotBeRead)
{
    const summary s = of({killed("writer", 1, outcome::monitor)}, "writer\t2010\n");
    EXPECT_EQ(s.unreadable(), 1);
    EXPECT_FALSE(s.good());
}

TEST(SweepSummary, CountsARunInWhichNobodyDiedAside)
{
    result whole = killed("writer", 0, outcome::ended);
    whole.status = LIVES;
    const summary s = of({whole, killed("writer", 1, outcome::monitor)});
    EXPECT_EQ(s.all().points, 1);
    EXPECT_EQ(s.all().ended, 1);
    EXPECT_TRUE(s.good());
}

TEST(SweepSummary, IsBadWhenSomethingIsMissingAlthoughNobodyDied)
{
    result whole = killed("writer", 0, outcome::not_back);
    whole.status = LIVES;
    const summary s = of({whole, killed("writer", 1, outcome::monitor)});
    EXPECT_EQ(s.all().points, 1);
    EXPECT_FALSE(s.good());
}

TEST(SweepSummary, CountsAPointThatDidNotComeToItsEndAsNotBack)
{
    result r = killed("writer", 1, outcome::not_back);
    r.status = "";
    const summary s = of({r});
    EXPECT_EQ(s.all().not_back, 1);
    EXPECT_FALSE(s.good());
}

TEST(SweepSummary, TakesThePointThatStandsTwiceOnce)
{
    const summary s = of({killed("writer", 1, outcome::not_back), killed("writer", 1, outcome::monitor)});
    EXPECT_EQ(s.all().points, 1);
    EXPECT_EQ(s.all().not_back, 0) << "the later line counts";
}

TEST(SweepSummary, CountsWhereTheCommandLookedAndWhereItFoundSomething)
{
    result fine = killed("writer", 1, outcome::monitor);
    fine.command = "0 0 0";
    result found = killed("writer", 2, outcome::repair);
    found.command = "1 0 0";
    const std::string text = printed(of({fine, found, killed("writer", 3, outcome::monitor)}));
    EXPECT_NE(text.find("\nlooked at by the command: 2, in need of attention: 1\nkill points: 3,"), std::string::npos)
        << text;
    EXPECT_EQ(printed(of({killed("writer", 1, outcome::monitor)})).find("command"), std::string::npos);
}

TEST(SweepSummary, CountsLostEventsByTheirKeys)
{
    result r = killed("reader", 1, outcome::monitor);
    r.lost = "100000003 100000004";
    EXPECT_EQ(of({r}).by_role().at("reader").lost, 2);
    EXPECT_EQ(of({killed("reader", 1, outcome::monitor)}).all().lost, 0);
}

} // namespace
