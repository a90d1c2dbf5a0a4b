#include "geometry.h"

#include <gtest/gtest.h>

using namespace zrk4::impl;

namespace {

constexpr int MAX = 2147483647;

TEST(Geometry, OffsetsAndSizesAreCountedIn64Bits)
{
    EXPECT_EQ(buffer_offset(3, 100, 1), 544);
    EXPECT_EQ(segment_size(3, 100), 744U);
    EXPECT_EQ(segment_size(0, 100), 300U);
    EXPECT_EQ(segment_size(65537, 1048112), 68693262220U);
    EXPECT_EQ(segment_size(MAX, MAX), 300U + 2147483647ULL * 2147483695ULL);
}

TEST(Geometry, LastBufferMustBeginWhereA32BitOffsetReaches)
{
    EXPECT_TRUE(offsets_fit(1, MAX)) << "one buffer may be as long as a length can say";
    EXPECT_TRUE(offsets_fit(2, MAX - 300 - 96));
    EXPECT_FALSE(offsets_fit(2, MAX - 300 - 96 + 1));
    EXPECT_TRUE(offsets_fit((MAX - 300) / 48, 0));
    EXPECT_FALSE(offsets_fit((MAX - 300) / 48 + 1, 0));
    EXPECT_FALSE(offsets_fit(MAX, MAX));
}

TEST(Geometry, NegativeNumbersDoNotFitAndNoBuffersAlwaysDo)
{
    EXPECT_FALSE(offsets_fit(-1, 10));
    EXPECT_FALSE(offsets_fit(1, -1));
    EXPECT_FALSE(offsets_fit(0, -1));
    EXPECT_TRUE(offsets_fit(0, MAX));
}

} // namespace
