// Quantiles, medians and ratios.
#include <gtest/gtest.h>

#include "statistics.h"

namespace bench {
namespace {

TEST(Quantile, IsTheSmallestValueThatEnoughDoNotExceed)
{
    const std::vector<double> values{5, 1, 4, 2, 3, 10, 9, 8, 7, 6};
    EXPECT_DOUBLE_EQ(quantile(values, 0.5), 5);
    EXPECT_DOUBLE_EQ(quantile(values, 0.51), 6);
    EXPECT_DOUBLE_EQ(quantile(values, 0.99), 10);
    EXPECT_DOUBLE_EQ(quantile(values, 1), 10);
    EXPECT_DOUBLE_EQ(quantile(values, 0), 1);
}

TEST(Quantile, OfNoValuesIsZero) { EXPECT_DOUBLE_EQ(quantile({}, 0.5), 0); }

TEST(Spread, MedianOfAnOddNumberIsTheMiddleOne)
{
    const spread s = spread_of({9, 1, 5});
    EXPECT_DOUBLE_EQ(s.median, 5);
    EXPECT_DOUBLE_EQ(s.lowest, 1);
    EXPECT_DOUBLE_EQ(s.highest, 9);
}

TEST(Spread, MedianOfAnEvenNumberIsTheMeanOfTheMiddleTwo) { EXPECT_DOUBLE_EQ(spread_of({1, 2, 4, 100}).median, 3); }

TEST(Spread, OfNoValuesIsZero) { EXPECT_DOUBLE_EQ(spread_of({}).median, 0); }

TEST(Comparison, RatiosAreFormedInsideEachRound)
{
    const comparison c{"f", "u", "s", "a", "b", {2, 30, 4}, {1, 10, 8}};
    EXPECT_EQ(c.ratios(), (std::vector<double>{2, 3, 0.5}));
}

TEST(Slope, IsThatOfTheLineThroughThePoints) { EXPECT_DOUBLE_EQ(slope({{1, 5}, {3, 11}, {2, 8}}), 3); }

TEST(Slope, IsThatOfLeastSquaresWhereThereIsNoSuchLine) { EXPECT_DOUBLE_EQ(slope({{0, 0}, {1, 2}, {2, 2}}), 1); }

TEST(Slope, OfOnePointIsZero) { EXPECT_DOUBLE_EQ(slope({{4, 4}}), 0); }

} // namespace
} // namespace bench
