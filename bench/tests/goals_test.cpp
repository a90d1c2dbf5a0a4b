// What the judge makes of a record.
#include <gtest/gtest.h>

#include "goals.h"

namespace bench {
namespace {

const bound TWICE{"twice", {{{"s", "library", "f"}}, {{"s", "strict", "f"}}}, /*at_most=*/false, 2, 3};

record rounds(const std::vector<double>& library, double strict = 1)
{
    record r;
    for (size_t i = 0; i < library.size(); ++i) {
        const int round = static_cast<int>(i) + 1;
        r.add({round, "s", "library", "f", library[i]});
        r.add({round, "s", "strict", "f", strict});
    }
    return r;
}

TEST(Judge, RatiosAreFormedInsideEachRound)
{
    record r = rounds({4, 9});
    r.add({2, "s", "strict", "f", 3});
    EXPECT_EQ(judge(TWICE, r).values, (std::vector<double>{4, 3}));
}

TEST(Judge, FourOfFiveRoundsAreEnough)
{
    EXPECT_TRUE(judge(TWICE, rounds({2, 2.5, 1, 2.1, 2})).met);
    EXPECT_FALSE(judge(TWICE, rounds({2, 2.5, 1, 2.1, 1.9})).met);
}

TEST(Judge, SixOfNineRoundsAreEnough)
{
    EXPECT_TRUE(judge(TWICE, rounds({2, 2, 2, 2, 2, 2, 1, 1, 1})).met);
    EXPECT_FALSE(judge(TWICE, rounds({2, 2, 2, 2, 2, 1, 1, 1, 1})).met);
}

TEST(Judge, StretchIsByTheMedian)
{
    EXPECT_TRUE(judge(TWICE, rounds({3, 3, 2})).stretch_met);
    EXPECT_FALSE(judge(TWICE, rounds({3, 2, 2})).stretch_met);
}

TEST(Judge, NothingIsMetWhereACounterpartIsMissing)
{
    record r;
    r.add({1, "s", "library", "f", 5});
    EXPECT_FALSE(judge(TWICE, r).met);
    EXPECT_FALSE(judge(TWICE, record{}).met);
}

TEST(Judge, NothingIsMetWhereACounterpartIsMissingInOneRound)
{
    record r = rounds({5, 5, 5, 5});
    r.add({5, "s", "library", "f", 5});
    EXPECT_FALSE(judge(TWICE, r).met);
}

TEST(Judge, OfSeveralCounterpartsTheBestCounts)
{
    bound b = TWICE;
    b.value.below.front().subject = "strict|other";
    record r = rounds({6});
    r.add({1, "s", "other", "f", 4});
    EXPECT_EQ(judge(b, r).values, (std::vector<double>{1.5}));
}

TEST(Judge, SlopeIsThatOverAllSizes)
{
    record r;
    for (const int n : {1, 101, 201}) r.add({1, "g/r/" + std::to_string(n), "library", "c", 7 + 13.0 * n});
    const bound b{"slope", {{{"g/r/", "library", "c", /*is_slope=*/true}}, {}, 1.0 / 13}, true, 1.1, 0};
    ASSERT_EQ(judge(b, r).values.size(), 1U);
    EXPECT_DOUBLE_EQ(judge(b, r).values.front(), 1);
}

TEST(Judge, OnePointHasNoSlope)
{
    record r;
    r.add({1, "g/r/1", "library", "c", 20});
    EXPECT_FALSE(judge({"slope", {{{"g/r/", "library", "c", true}}, {}}, true, 1.1, 0}, r).met);
}

TEST(Goal, NeedsEveryFigure)
{
    const bound other{"other", {{{"s", "library", "f"}}, {}}, /*at_most=*/true, 4, 0};
    const goal g{1, "both", {TWICE, other}};
    EXPECT_TRUE(is_met(g, rounds({3})));
    EXPECT_FALSE(is_met(g, rounds({5})));
}

TEST(Goals, AreFourteenWithFiguresEach)
{
    ASSERT_EQ(all_goals().size(), 14U);
    for (size_t i = 0; i < all_goals().size(); ++i) {
        EXPECT_EQ(all_goals()[i].number, static_cast<int>(i) + 1);
        EXPECT_FALSE(all_goals()[i].bounds.empty());
    }
}

TEST(Goals, NothingIsMetByNothing)
{
    for (const goal& g : all_goals()) EXPECT_FALSE(is_met(g, record{})) << g.number;
}

} // namespace
} // namespace bench
