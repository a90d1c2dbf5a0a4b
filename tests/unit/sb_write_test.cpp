// Building of server blocks in place: their bytes, and what is left out where room ends.
#include "sb_write.h"

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sb_view.h"

using namespace zrk4;

namespace {

constexpr size_t SUBHEAD = sizeof(zrk4_serv_block_subhead_2010);

class SbWrite : public ::testing::TestWithParam<sb_form> {
  protected:
    static constexpr size_t ROOM = 4096;
    static constexpr char UNTOUCHED = '\x5a';

    // At an odd address, between bytes that must stay.
    explicit SbWrite() : bytes_(ROOM + 64, UNTOUCHED) {}
    ~SbWrite() override
    {
        EXPECT_EQ(bytes_[0], UNTOUCHED);
        EXPECT_EQ(bytes_.substr(1 + room_), std::string(bytes_.size() - 1 - room_, UNTOUCHED)) << "behind the room";
    }
    char* at() { return bytes_.data() + 1; }
    size_t head() const
    {
        return GetParam() == sb_form::of_2024 ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
    }
    sb_write block_of(size_t room)
    {
        bytes_.assign(ROOM + 64, UNTOUCHED);
        room_ = room;
        return {at(), room, GetParam(), {"ADC", {11, 12}, -13, 14, 15}};
    }
    sb_view seen() { return {at(), room_}; }

  private:
    std::string bytes_;
    size_t room_ = ROOM;
};

INSTANTIATE_TEST_SUITE_P(Records, SbWrite, ::testing::Values(sb_form::of_2010, sb_form::of_2024),
                         [](const auto& form) { return form.param == sb_form::of_2010 ? "Of2010" : "Of2024"; });

TEST_P(SbWrite, HeadIsThatOfItsForm)
{
    sb_write block = block_of(head());
    EXPECT_EQ(block.finish(), head());
    EXPECT_TRUE(block.complete());
    if (GetParam() == sb_form::of_2010) {
        const auto& h = *reinterpret_cast<const zrk4_serv_block_head_2010*>(at());
        EXPECT_EQ(+h.ltotal, 284);
        EXPECT_EQ(+h.mpulse, -13);
    } else {
        const auto& h = *reinterpret_cast<const zrk4_serv_block_head_2024*>(at());
        EXPECT_EQ(+h.pattern, SB_PATTERN_2024);
        EXPECT_EQ(+h.ltotal, 304);
        EXPECT_EQ(+h.mpulse, -13);
        EXPECT_EQ(+h.pad, 0);
    }
    const sb_head h = seen().head();
    EXPECT_EQ(h.time.timeup, 11U);
    EXPECT_EQ(h.time.timelow, 12U);
    EXPECT_EQ(h.tmask, 14);
    EXPECT_EQ(h.status, 15);
    EXPECT_EQ(h.nchan, 0);
    EXPECT_EQ(std::string(h.server, 256), "ADC" + std::string(253, '\0'));
}

TEST_P(SbWrite, SubBlocksFollowTheHeadOneBehindTheOther)
{
    sb_write block = block_of(ROOM);
    const double numbers[2] = {1.5, -2.5};
    block.sub_block("ADC.CH0", ZRK4_BLOCK_2CHAN_2010, 7);
    block.append(numbers, sizeof numbers);
    block.sub_block("EMPTY", ZRK4_BLOCK_BPM_2010);
    block.sub_block("TEXT", ZRK4_BLOCK_NAME_VALUE);
    block.append("ab", 2);
    block.append("c", 1);
    EXPECT_EQ(block.finish(), head() + 3 * SUBHEAD + 16 + 3);
    ASSERT_TRUE(seen().sound());
    const std::vector<sb_sub> subs(seen().begin(), seen().end());
    ASSERT_EQ(subs.size(), 3U);
    EXPECT_EQ(subs[0].name(), "ADC.CH0");
    EXPECT_EQ(subs[0].type(), ZRK4_BLOCK_2CHAN_2010);
    EXPECT_EQ(subs[0].error(), 7);
    EXPECT_EQ(subs[0].value<double>(1), -2.5);
    EXPECT_EQ(subs[0].data(), at() + head() + SUBHEAD);
    EXPECT_EQ(subs[1].bytes(), 0U);
    EXPECT_EQ(std::string(subs[2].data(), subs[2].bytes()), "abc");
}

TEST_P(SbWrite, RunRecordsLieAsTheirReadersExpectThem)
{
    sb_write block = block_of(ROOM);
    block.dictionary("DICT");
    block.dictionary_entry("TEMP.CPU", 42);
    block.environment("ENV");
    block.environment_value(42, {5, 6}, 1.25F);
    block.environment_value(43, {7, 8}, 2.5F, 9);
    block.update("UPD");
    block.update_value("UPTIME", {3, 4}, 0.5F, 1);
    block.begin_of_run("BOR");
    block.end_of_run("EOR");
    block.finish();
    ASSERT_TRUE(block.complete());
    const std::vector<sb_sub> subs(seen().begin(), seen().end());
    ASSERT_EQ(subs.size(), 5U);
    std::vector<int32_t> types;
    for (const sb_sub& sub : subs) types.push_back(sub.type());
    EXPECT_EQ(types, (std::vector<int32_t>{34, 35, 33, 36, 37}));
    ASSERT_EQ(subs[0].bytes(), 260U);
    EXPECT_EQ(std::string(subs[0].data(), 256), "TEMP.CPU" + std::string(248, '\0'));
    EXPECT_EQ(+subs[0].record<zrk4_dict_data_block_2010>(0)->dict_ch_idx, 42);
    ASSERT_EQ(subs[1].bytes(), 40U);
    const auto* value = subs[1].record<zrk4_env_data_block_2010>(1);
    EXPECT_EQ(+value->env_ch_idx, 43);
    EXPECT_EQ(+value->env_ch_status, 9);
    EXPECT_EQ(+value->env_ch_time.timelow, 8U);
    EXPECT_EQ(+value->env_ch_data, 2.5F);
    ASSERT_EQ(subs[2].bytes(), 272U);
    const auto* update = subs[2].record<zrk4_upd_data_block_2010>(0);
    EXPECT_STREQ(update->upd_prop, "UPTIME");
    EXPECT_EQ(+update->upd_ch_status, 1);
    EXPECT_EQ(+update->upd_ch_data, 0.5F);
}

TEST_P(SbWrite, RoomThatIsFilledInPlaceBelongsToTheOpenSubBlock)
{
    sb_write block = block_of(head() + SUBHEAD + 100);
    EXPECT_EQ(block.reserve(1), nullptr) << "no sub-block is open";
    EXPECT_FALSE(block.complete());
    block.sub_block("IMAGE", ZRK4_BLOCK_IMAGE);
    EXPECT_EQ(block.reserve(100), at() + head() + SUBHEAD);
    for (const size_t bytes : {size_t{1}, size_t{INT_MAX}, SIZE_MAX}) EXPECT_EQ(block.reserve(bytes), nullptr) << bytes;
    EXPECT_EQ(block.finish(), head() + SUBHEAD + 100);
    EXPECT_EQ(seen().begin()->bytes(), 100U);
}

TEST_P(SbWrite, WhatHasNoRoomIsLeftOutAndTheBlockStaysSound)
{
    for (size_t room = 0; room < head() + 2 * SUBHEAD + 40; ++room) {
        sb_write block = block_of(room);
        block.environment("A");
        block.environment_value(1, {}, 1);
        block.environment("B");
        block.environment_value(2, {}, 2);
        const size_t bytes = block.finish();
        EXPECT_FALSE(block.complete()) << room;
        EXPECT_LE(bytes, room);
        EXPECT_EQ(bytes != 0, room >= head()) << room;
        EXPECT_EQ(bytes != 0, seen().sound()) << room;
    }
}

TEST_P(SbWrite, SubBlockWithItsDataIsWrittenWholeOrNotAtAll)
{
    const double numbers[2] = {1.5, -2.5};
    for (const size_t missing : {0U, 1U, 16U, 17U, 283U, 284U}) {
        sb_write block = block_of(head() + SUBHEAD + 16 - missing);
        block.sub_block("A", ZRK4_BLOCK_2CHAN_2010, numbers, sizeof numbers, 3);
        block.append(numbers, 0);
        EXPECT_EQ(block.complete(), missing == 0) << missing;
        EXPECT_EQ(block.finish(), missing == 0 ? head() + SUBHEAD + 16 : head()) << missing;
        EXPECT_TRUE(seen().sound());
        if (missing != 0) continue;
        EXPECT_EQ(seen().begin()->error(), 3);
        EXPECT_EQ(seen().begin()->value<double>(1), -2.5);
    }
}

TEST_P(SbWrite, RecordOutsideItsKindOfSubBlockIsLeftOut)
{
    sb_write block = block_of(ROOM);
    block.update("UPD");
    block.environment_value(1, {}, 1);
    block.dictionary_entry("A", 1);
    EXPECT_FALSE(block.complete());
    EXPECT_EQ(block.finish(), head() + SUBHEAD);
}

TEST_P(SbWrite, NamesAreCutTo255Characters)
{
    const std::string name(300, 'x');
    sb_write block(at(), ROOM, GetParam(), {name});
    block.dictionary(name);
    block.dictionary_entry(name, 1);
    block.finish();
    EXPECT_EQ(seen().server(), std::string(255, 'x'));
    EXPECT_EQ(seen().begin()->name(), std::string(255, 'x'));
    EXPECT_EQ(std::string(seen().begin()->data(), 256), std::string(255, 'x') + '\0');
}

TEST_P(SbWrite, BufferThatIsNoneIsNeverWritten)
{
    sb_write block(nullptr, ROOM, GetParam(), {"ADC"});
    block.sub_block("A", ZRK4_BLOCK_1CHAN_2010);
    block.append("a", 1);
    block.set_status(1);
    EXPECT_EQ(block.finish(), 0U);
    EXPECT_FALSE(block.complete());
}

TEST_P(SbWrite, MoreCanBeAddedBehindAFinish)
{
    sb_write block = block_of(ROOM);
    block.sub_block("A", ZRK4_BLOCK_1CHAN_2010);
    block.finish();
    EXPECT_EQ(seen().head().nchan, 1);
    block.sub_block("B", ZRK4_BLOCK_1CHAN_2010);
    block.set_status(77);
    EXPECT_EQ(seen().head().nchan, 1) << "not told yet";
    block.finish();
    EXPECT_EQ(seen().head().nchan, 2);
    EXPECT_EQ(seen().head().status, 77);
}

} // namespace
