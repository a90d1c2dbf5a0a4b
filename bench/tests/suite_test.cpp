// Rounds of measurements that tell who was asked, and when.
#include <map>

#include <gtest/gtest.h>

#include "suite.h"

namespace bench {
namespace {

class Rounds : public testing::Test {
  protected:
    measurement member(const std::string& group, const std::string& subject, std::vector<double> answers = {1, 1, 1})
    {
        return {"scenario", subject, plan{},
                [this, subject, answers](const plan&) {
                    reading one;
                    one.events_per_second = answers[asked_[subject]++ % answers.size()];
                    order_ += subject;
                    return one;
                },
                group};
    }
    void run(const std::vector<measurement>& all, int rounds, int turns)
    {
        run_rounds(all, 1, rounds, turns, [this](const figure_line& line) {
            if (line.figure == "events_per_second") figures_[line.subject].push_back(line.value);
        });
    }

    std::map<std::string, size_t> asked_;
    std::map<std::string, std::vector<double>> figures_;
    std::string order_;
};

TEST_F(Rounds, FigureIsTheMedianOfItsTurns)
{
    run({member("one", "a", {5, 100, 7, 1, 2, 3})}, 2, 3);
    EXPECT_EQ(figures_["a"], (std::vector<double>{7, 2}));
}

TEST_F(Rounds, MembersOfAGroupAreAskedInTurnAndEachIsFirstOnce)
{
    run({member("one", "a"), member("one", "b"), member("one", "c")}, 1, 3);
    EXPECT_EQ(order_, "bca"
                      "cba"
                      "abc");
}

TEST_F(Rounds, EveryOtherTurnGoesTheOtherWayRoundAlsoWhereARoundHasOnlyOne)
{
    run({member("one", "a"), member("one", "b"), member("one", "c")}, 4, 1);
    EXPECT_EQ(order_, "bca"
                      "cba"
                      "abc"
                      "bac");
}

TEST_F(Rounds, GroupIsOverBeforeTheNextBegins)
{
    run({member("one", "a"), member("two", "b")}, 2, 2);
    EXPECT_EQ(order_, "aabbaabb");
}

} // namespace
} // namespace bench
