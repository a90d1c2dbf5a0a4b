// Walks over server blocks whose fields say anything.
#include "sb_view.h"

#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "C_shm_mpool.h"
#include "clean_namespace.h"
#include "sb_write.h"

using namespace zrk4;
using namespace zrk4::test;

namespace {

constexpr size_t SUBHEAD = sizeof(zrk4_serv_block_subhead_2010);

/// A block of three sub-blocks A, B, C of 8 bytes each, in a buffer of just its length.
class SbView : public ::testing::TestWithParam<sb_form> {
  protected:
    SbView() : bytes_(5000, '\0')
    {
        sb_write block(bytes_.data() + 1, bytes_.size() - 1, GetParam(), {"ADC", {1, 2}, 3});
        for (const char* name : {"A", "B", "C"}) {
            block.sub_block(name, ZRK4_BLOCK_1CHAN_2010);
            const double number = name[0];
            block.append(&number, sizeof number);
        }
        size_ = block.finish();
        bytes_.resize(1 + size_);
        bytes_.shrink_to_fit(); // a sanitizer sees the first byte behind it
    }
    char* at() { return bytes_.data() + 1; }
    void set_total(int64_t bytes) { std::memcpy(at() + 8, &bytes, GetParam() == sb_form::of_2024 ? 8 : 4); }
    void set_length(int sub, int32_t bytes)
    {
        const size_t head = size_ - 3 * (SUBHEAD + 8);
        std::memcpy(at() + head + static_cast<size_t>(sub) * (SUBHEAD + 8) + 264, &bytes, 4);
    }
    void set_count(int32_t count) { std::memcpy(at() + (GetParam() == sb_form::of_2024 ? 296 : 280), &count, 4); }
    std::string names(size_t room)
    {
        std::string all;
        for (const sb_sub& sub : sb_view(at(), room)) all += sub.name();
        return all;
    }
    std::string names() { return names(size_); }

    size_t size_ = 0;

  private:
    std::string bytes_;
};

INSTANTIATE_TEST_SUITE_P(Records, SbView, ::testing::Values(sb_form::of_2010, sb_form::of_2024),
                         [](const auto& form) { return form.param == sb_form::of_2010 ? "Of2010" : "Of2024"; });

TEST_P(SbView, ShowsHeadAndSubBlocks)
{
    const sb_view block(at(), size_);
    ASSERT_TRUE(block);
    EXPECT_TRUE(block.sound());
    EXPECT_EQ(block.server(), "ADC");
    EXPECT_EQ(block.head().mpulse, 3);
    EXPECT_EQ(names(), "ABC");
    EXPECT_EQ(std::next(block.begin(), 2)->value<double>(0), 'C');
    EXPECT_EQ(block.begin()->value<double>(1), 0.0) << "beyond the last value";
    EXPECT_EQ(block.begin()->record<zrk4_upd_data_block_2010>(0), nullptr) << "no whole record";
}

TEST_P(SbView, PlacesInAWalkAreToldApartAlsoWhereSubBlocksAreAlike)
{
    const sb_view block(at(), size_);
    auto walk = block.begin();
    const auto first = walk++;
    EXPECT_TRUE(first == block.begin());
    EXPECT_TRUE(walk != first) << "the next one is as long";
    EXPECT_TRUE(walk == std::next(first));
    EXPECT_TRUE(std::next(first, 3) == block.end());
}

TEST_P(SbView, RoomWithoutAWholeHeadIsNoBlock)
{
    const size_t head = size_ - 3 * (SUBHEAD + 8);
    for (size_t room = 0; room < head; ++room) {
        const sb_view block(at(), room);
        EXPECT_FALSE(block) << room;
        EXPECT_FALSE(block.sound());
        EXPECT_EQ(block.begin(), block.end());
        EXPECT_EQ(block.server(), "");
    }
    EXPECT_FALSE(sb_view());
    EXPECT_FALSE(sb_view(nullptr, 1000));
}

TEST_P(SbView, RoomEndsTheWalk)
{
    EXPECT_EQ(names(size_ - 1), "AB");
    EXPECT_EQ(names(size_ - SUBHEAD - 8), "AB");
    EXPECT_EQ(names(size_ - SUBHEAD - 9), "A");
    EXPECT_FALSE(sb_view(at(), size_ - 1).sound());
}

TEST_P(SbView, LengthOfTheBlockEndsTheWalk)
{
    for (const int64_t total : {int64_t{INT_MIN}, int64_t{-1}, int64_t{0}, int64_t{300}}) {
        set_total(total);
        EXPECT_EQ(names(), "") << total;
        EXPECT_FALSE(sb_view(at(), size_).sound()) << total;
    }
    set_total(static_cast<int64_t>(size_ - 1));
    EXPECT_EQ(names(), "AB");
    set_total(INT_MAX);
    EXPECT_EQ(names(), "ABC");
    EXPECT_FALSE(sb_view(at(), size_).sound()) << "longer than its room";
}

TEST_P(SbView, CountEndsTheWalk)
{
    for (const int32_t count : {INT_MIN, -1, 0}) {
        set_count(count);
        EXPECT_EQ(names(), "") << count;
        EXPECT_TRUE(sb_view(at(), size_).sound()) << count;
    }
    set_count(2);
    EXPECT_EQ(names(), "AB");
    set_count(INT_MAX);
    EXPECT_EQ(names(), "ABC");
    EXPECT_FALSE(sb_view(at(), size_).sound()) << "counts more than there are";
}

TEST_P(SbView, SubBlockOfALengthThatCannotBeEndsTheWalk)
{
    for (const int32_t length : {INT_MIN, -1, 0, 1, 267, 553, INT_MAX}) {
        set_length(1, length);
        EXPECT_EQ(names(), "A") << length;
        EXPECT_FALSE(sb_view(at(), size_).sound()) << length;
    }
    set_length(1, static_cast<int32_t>(2 * (SUBHEAD + 8)));
    EXPECT_EQ(names(), "AB") << "up to the last byte";
}

TEST_P(SbView, BlockOfTheSmallestLengthThereIsHasNoSubBlocks)
{
    const int64_t smallest = GetParam() == sb_form::of_2024 ? INT64_MIN : INT_MIN;
    for (const int64_t total : {int64_t{-1}, smallest, smallest + 1, smallest + 571}) {
        set_total(total);
        EXPECT_EQ(names(), "") << total;
        EXPECT_FALSE(sb_view(at(), size_).sound()) << total;
    }
}

TEST_P(SbView, NamesWithoutAnEndHave256Characters)
{
    std::memset(at() + (GetParam() == sb_form::of_2024 ? 32 : 16), 's', 256);
    std::memset(at() + size_ - SUBHEAD - 8, 'c', 256);
    EXPECT_EQ(sb_view(at(), size_).server(), std::string(256, 's'));
    EXPECT_EQ(names(), "AB" + std::string(256, 'c'));
}

// ---- blocks of an event

class SbOf : public CleanNamespace {};

TEST_F(SbOf, BlockOfAnEntryIsReadWithinItsBuffer)
{
    C_shm_mpool pool;
    const int id = pool.add("T_DATA", 2, 400, false);
    ASSERT_GT(id, 0);
    const C_shm_buffer* part = pool.find_by_id(id);
    sb_write block(part->buffer_addr(1), 400, sb_form::of_2010, {"ADC"});
    block.sub_block("A", ZRK4_BLOCK_1CHAN_2010);
    EXPECT_FALSE(block.complete()) << "284 and 268 bytes do not fit into 400";
    block.finish();
    reinterpret_cast<zrk4_serv_block_head_2010*>(part->buffer_addr(1))->ltotal = 552; // as if they did
    reinterpret_cast<zrk4_serv_block_head_2010*>(part->buffer_addr(1))->nchan = 1;
    const sb_view seen = sb_of(pool, {"T_DATA", id, 1});
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen.server(), "ADC");
    EXPECT_EQ(seen.begin(), seen.end());
    EXPECT_FALSE(seen.sound());
}

TEST_F(SbOf, HoleAndUnknownBuffersAreNoBlocks)
{
    C_shm_mpool pool;
    const int id = pool.add("T_DATA", 2, 400, false);
    EXPECT_FALSE(sb_of(pool, {"T_DATA", 0, 1}));
    EXPECT_FALSE(sb_of(pool, {"T_DATA", id, -1}));
    EXPECT_FALSE(sb_of(pool, {"T_DATA", id, 2}));
    EXPECT_FALSE(sb_of(pool, {"T_DATA", id + 1, 0}));
    C_shm_mpool empty;
    EXPECT_FALSE(sb_of(empty, {"T_DATA", id, 0}));
}

} // namespace
