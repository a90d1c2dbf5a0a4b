// Blocks are written and read in place, in both forms, at any address, and never past their end.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "BM.h"
#include "blocks.h"

using namespace demo;
using namespace zrk4;

namespace {

int64_t fixed_clock() { return 12'000'000'034; }

class blocks : public testing::TestWithParam<std::tuple<bool, int>> {
  protected:
    bool form_2024() const { return std::get<0>(GetParam()); }
    char* at() { return memory_.data() + std::get<1>(GetParam()); }
    size_t head() const { return form_2024() ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010); }
    /// A block with two channels behind its stamp. @return its length.
    size_t written()
    {
        block_writer block(at(), 4096, form_2024(), {"HOST.TEST", {1'700'000'000, 20'000}, 4711, 3, 0});
        block.channel("one", {1.5});
        block.channel("four", {1, 2, 3, 4}, 5);
        return block.seal(fixed_clock);
    }

    std::vector<char> memory_ = std::vector<char>(5000, '\x5a');
};

} // namespace

INSTANTIATE_TEST_SUITE_P(FormsAndAlignments, blocks, testing::Combine(testing::Bool(), testing::Range(0, 8)));

TEST_P(blocks, AreReadByTheLibraryAsTheyWereWritten)
{
    const size_t length = written();
    EXPECT_STREQ(get_bname_known(at()), "HOST.TEST");
    EXPECT_EQ(get_len_known(at()), static_cast<int64_t>(length));
    EXPECT_EQ(get_evid_known(at()), 4711);
    EXPECT_EQ(get_trg_known(at()), 3);
    EXPECT_EQ(get_sts_known(at()), 0);
    EXPECT_EQ(+get_key_known(at())->timelow, 20'000U);
}

TEST_P(blocks, GiveBackEveryChannel)
{
    const size_t length = written();
    const sb_view block(at(), 4096);
    ASSERT_TRUE(block.sound());
    EXPECT_EQ(block.head().ltotal, static_cast<int64_t>(length));
    EXPECT_EQ(block.head().nchan, 3);
    std::map<std::string_view, sb_sub> seen;
    for (const sb_sub& channel : block) seen.emplace(channel.name(), channel);
    ASSERT_EQ(seen.count("one") + seen.count("four"), 2U);
    EXPECT_EQ(seen.at("one").value<double>(0), 1.5);
    EXPECT_EQ(seen.at("one").type(), ZRK4_BLOCK_1CHAN_2010);
    EXPECT_EQ(seen.at("four").value<double>(3), 4.0);
    EXPECT_EQ(seen.at("four").type(), ZRK4_BLOCK_4CHAN_2010);
    EXPECT_EQ(seen.at("four").error(), 5);
    EXPECT_EQ(seen.at("four").count<double>(), 4U) << "there is no fifth";
}

TEST_P(blocks, TellWhenTheyWereRegistered)
{
    written();
    EXPECT_EQ(registered_ns(sb_view(at(), 4096)), 12'000'000'034);
}

TEST_P(blocks, ShowAChangeOfAnyByteBehindTheStamp)
{
    const size_t length = written();
    at()[length - 1] ^= 1;
    EXPECT_FALSE(registered_ns(sb_view(at(), 4096)));
    at()[length - 1] ^= 1;
    EXPECT_TRUE(registered_ns(sb_view(at(), 4096)));
}

TEST_P(blocks, LeaveOutAndReportAChannelWithoutRoom)
{
    const size_t stamp = sizeof(zrk4_serv_block_subhead_2010) + 3 * sizeof(double);
    const size_t one = sizeof(zrk4_serv_block_subhead_2010) + sizeof(double);
    block_writer block(at(), head() + stamp + one, form_2024(), {"HOST.TEST", {1, 0}, 1, 1, 0});
    block.channel("fits", {1});
    block.channel("does not", {2});
    const size_t length = block.seal(fixed_clock);
    EXPECT_EQ(length, head() + stamp + one);
    EXPECT_EQ(at()[length], '\x5a') << "nothing is written behind the room";
    EXPECT_EQ(get_sts_known(at()), block_writer::CUT);
    EXPECT_EQ(sb_view(at(), length).head().nchan, 2);
}

TEST_P(blocks, HaveNoStampWhenALengthLeadsOutOfThem)
{
    const size_t length = written();
    EXPECT_FALSE(registered_ns(sb_view(at(), length - 1))) << "longer than its room";
    EXPECT_FALSE(registered_ns(sb_view(at(), head() - 1))) << "no room for a head";
    auto& sub = *reinterpret_cast<zrk4_serv_block_subhead_2010*>(at() + head());
    for (const int32_t wrong : {-1, 0, 267, static_cast<int32_t>(length), INT32_MAX}) {
        sub.ldata = wrong;
        EXPECT_FALSE(registered_ns(sb_view(at(), 4096))) << wrong;
    }
}
