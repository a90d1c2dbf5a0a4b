// Data channels of an event's server blocks.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <ctime>

#include <stdio_ext.h>

#include <gtest/gtest.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "reader_event.h"

using namespace zrk4::test;

namespace {

const sub_block A("A", ZRK4_BLOCK_1CHAN_2010, "aaaa");
const sub_block B("B", ZRK4_BLOCK_2CHAN_2010, "bbbbbbbb");
const sub_block C("C", ZRK4_BLOCK_3CHAN_2010);

class FastChannelBase : public reader_event {
  protected:
    zrk4_serv_block_subhead_2010* find_as(reader r, const char* channel, char* name)
    {
        char* const wanted = const_cast<char*>(channel);
        if (r == reader::of_2010) return get_fast_channel_data(&slot_2010, entries.data(), name, wanted, &bm, &h10);
        return get_fast_channel_data_2024(&slot_2024, entries.data(), name, wanted, &bm, &h10, &h24);
    }
};

class FastChannel : public FastChannelBase, public testing::WithParamInterface<reader> {
  protected:
    char* find(const char* channel, char* name = nullptr)
    {
        return reinterpret_cast<char*>(find_as(GetParam(), channel, name));
    }
    /// Searches in vain. @return what was printed.
    std::string report(const char* channel)
    {
        char* found = nullptr;
        const std::string text = out_of([&] { found = find(channel); });
        EXPECT_EQ(found, nullptr) << channel;
        return text;
    }
};

std::string outside(const std::string& channel, int64_t ltotal, int c, int nchan)
{
    return "CHANNEL corrupted: " + channel + "\nOUTSIDE  of the server block !!!: ltotal: " + std::to_string(ltotal) +
           "  channel:" + std::to_string(c) + " nchans:" + std::to_string(nchan) + " \n";
}

std::string negative(const std::string& channel, int ldata, int64_t left)
{
    return "CHANNEL corrupted: " + channel + "\nCorrupted data: ldata: " + std::to_string(ldata) +
           "   total_size (left): " + std::to_string(left) + "\n";
}

INSTANTIATE_TEST_SUITE_P(OfBothGenerations, FastChannel, testing::Values(reader::of_2010, reader::of_2024),
                         [](const auto& generation) {
                             return generation.param == reader::of_2010 ? "Readers2010" : "Readers2024";
                         });

} // namespace

TEST_P(FastChannel, IsFoundInPlaceAtEveryAlignment)
{
    for (int buffer = 0; buffer < 8; ++buffer) {
        next_event(ZRK4_EV_NORMAL);
        start_at_buffer(buffer);
        char* const block = put(block_of_2010({A, B, C}).bytes());
        EXPECT_EQ(find("A"), block + HEAD_2010);
        EXPECT_EQ(find("B"), block + HEAD_2010 + A.ldata);
        EXPECT_EQ(find("C"), block + HEAD_2010 + A.ldata + B.ldata);
        EXPECT_EQ(find("D"), nullptr);
        EXPECT_EQ(reinterpret_cast<char*>(h10), block);
        EXPECT_EQ(std::string(find("B") + SUBHEAD, 8), "bbbbbbbb");
    }
}

TEST_P(FastChannel, IsTakenFromTheFirstBlockThatHasIt)
{
    put(block_of_2010({A}).bytes());
    char* const second = put(block_of_2010({A, B}).bytes());
    put(block_of_2010({B}).bytes());
    EXPECT_EQ(find("B"), second + HEAD_2010 + A.ldata);
    EXPECT_EQ(reinterpret_cast<char*>(h10), second);
}

TEST_P(FastChannel, SearchNeedsNoOutputs)
{
    char* const block = put(block_of_2010({A}).bytes());
    char channel[] = "A";
    char* found = nullptr;
    if (GetParam() == reader::of_2010) {
        found =
            reinterpret_cast<char*>(get_fast_channel_data(&slot_2010, entries.data(), nullptr, channel, &bm, nullptr));
    } else {
        found = reinterpret_cast<char*>(
            get_fast_channel_data_2024(&slot_2024, entries.data(), nullptr, channel, &bm, nullptr, nullptr));
    }
    EXPECT_EQ(found, block + HEAD_2010);
}

TEST_P(FastChannel, OutputsStayWhenNothingIsFound)
{
    put(block_of_2010({A}).bytes());
    auto* const before_10 = h10 = reinterpret_cast<zrk4_serv_block_head_2010*>(&slot_2010);
    auto* const before_24 = h24 = reinterpret_cast<zrk4_serv_block_head_2024*>(&slot_2024);
    char name[256] = "";
    EXPECT_EQ(find("B", name), nullptr);
    EXPECT_EQ(h10, before_10);
    EXPECT_EQ(h24, before_24);
    EXPECT_STREQ(name, "");
}

TEST_P(FastChannel, WithoutANameNeverMatches)
{
    put(block_of_2010({{"", 41}, A}).bytes());
    EXPECT_EQ(report(""), "");
    EXPECT_EQ(find(nullptr), nullptr);
    EXPECT_NE(find("A"), nullptr) << "an empty name is stepped over";
}

TEST_P(FastChannel, NameCountsOver256Characters)
{
    const std::string full(256, 'n');
    char* const block = put(block_of_2010({{full.substr(0, 255), 41}, {full, 41}}).bytes());
    EXPECT_EQ(find(full.c_str()), block + HEAD_2010 + SUBHEAD);
    EXPECT_EQ(find((full + "beyond").c_str()), block + HEAD_2010 + SUBHEAD);
    EXPECT_EQ(find(full.substr(0, 255).c_str()), block + HEAD_2010);
    EXPECT_EQ(find(full.substr(0, 254).c_str()), nullptr);
}

TEST_P(FastChannel, IsNotSearchedInRunControlEventsAndOnlyNotThere)
{
    put(block_of_2010({A}).bytes());
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        set_type(type);
        const bool skipped = type == ZRK4_EV_BOR || type == ZRK4_EV_EOR || type == ZRK4_EV_ENV || type == ZRK4_EV_UPD;
        EXPECT_EQ(find("A") == nullptr, skipped) << type;
    }
}

TEST_P(FastChannel, IsSearchedInAsManyEntriesAsAreFilled)
{
    put(block_of_2010({A}).bytes());
    put(block_of_2010({B}).bytes());
    set_filled(1);
    EXPECT_NE(find("A"), nullptr);
    EXPECT_EQ(find("B"), nullptr);
    for (const int filled : {0, -1, INT_MIN}) {
        set_filled(filled);
        EXPECT_EQ(find("A"), nullptr) << filled;
    }
}

TEST_P(FastChannel, HolesAreSkipped)
{
    add_entry("SERVER", 0, 0);
    add_entry("SERVER", id, -1);
    start_at_buffer(0);
    char* const block = put(block_of_2010({A}).bytes());
    EXPECT_EQ(find("A"), block + HEAD_2010);
    entries.pop_back();
    set_filled(2);
    EXPECT_EQ(report("A"), "");
}

TEST_P(FastChannel, BlocksThatCannotBeHadAreSkipped)
{
    add_entry("SERVER", id, BUFFERS);
    add_entry("SERVER", id, -2);
    add_entry("SERVER", id + 1000, 0);
    char* const block = put(block_of_2010({A}).bytes());
    EXPECT_EQ(find("A"), block + HEAD_2010);
}

TEST_P(FastChannel, PartitionThatIsNotInThePoolIsAttached)
{
    C_shm_buffer writers("T_WRITERS", 1, LENGTH, /*sems=*/false);
    const std::string block = block_of_2010({A}).bytes();
    std::memcpy(writers.buffer_addr(0), block.data(), block.size());
    const int writers_id = std::stoi(writers.getStat("shmid"));
    add_entry("SERVER", writers_id, 0);
    ASSERT_EQ(bm.find_by_id(writers_id), nullptr);
    char* const found = find("A");
    EXPECT_NE(bm.find_by_id(writers_id), nullptr);
    EXPECT_EQ(found, bm.get_buffer_address(0, writers_id) + HEAD_2010);
}

TEST_P(FastChannel, IsSearchedInBlocksOfTheNameGiven)
{
    put(block_of_2010({A}).bytes(), "ONE");
    char* const second = put(block_of_2010({A}).bytes(), "TWO");
    char name[] = "TWO\0and what stands behind";
    const std::string before(name, sizeof name);
    EXPECT_EQ(find("A", name), second + HEAD_2010);
    EXPECT_EQ(std::string(name, sizeof name), before) << "only an empty name is written to";
    char other[256] = "TW";
    EXPECT_EQ(find("A", other), nullptr);
    EXPECT_STREQ(other, "TW");
}

TEST_P(FastChannel, EmptyNameReceivesTheBlocksName)
{
    put(block_of_2010({B}).bytes(), "ONE");
    put(block_of_2010({A}).bytes(), "TWO");
    char name[257];
    std::memset(name, 'x', sizeof name);
    name[0] = '\0';
    EXPECT_NE(find("A", name), nullptr);
    EXPECT_EQ(std::string(name, 256), "TWO" + std::string(253, '\0')) << "padded over 256 bytes";
    EXPECT_EQ(name[256], 'x');
}

TEST_P(FastChannel, NameOf256CharactersIsReceivedWithoutANul)
{
    const std::string full(256, 'n');
    put(block_of_2010({A}).bytes(), full);
    char name[257];
    std::memset(name, 'x', sizeof name);
    name[0] = '\0';
    EXPECT_NE(find("A", name), nullptr);
    EXPECT_EQ(std::string(name, 257), full + "x");
}

TEST_P(FastChannel, BlocksWithoutSubBlocksArePassedOverSilently)
{
    for (const int nchan : {0, -1, INT_MIN}) {
        block_of_2010 none({A});
        none.head.nchan = nchan;
        put(none.bytes());
    }
    for (const int ltotal : {HEAD_2010, HEAD_2010 - 1, 0, -1, INT_MIN}) {
        block_of_2010 none({A});
        none.head.ltotal = ltotal;
        put(none.bytes());
    }
    EXPECT_EQ(report("A"), "");
    char* const sound = put(block_of_2010({A}).bytes());
    EXPECT_EQ(find("A"), sound + HEAD_2010);
}

TEST_P(FastChannel, BlockTooShortForItsFirstSubHeadIsReported)
{
    for (const int behind : {1, SUBHEAD - 1}) {
        next_event(ZRK4_EV_NORMAL);
        block_of_2010 shortened({A, B});
        shortened.head.ltotal = HEAD_2010 + behind;
        put(shortened.bytes());
        EXPECT_EQ(report("A"), outside("A", HEAD_2010 + behind, 0, 2));
    }
    next_event(ZRK4_EV_NORMAL);
    block_of_2010 just({C});
    just.head.ltotal = HEAD_2010 + SUBHEAD;
    put(just.bytes());
    EXPECT_NE(find("C"), nullptr);
}

TEST_P(FastChannel, NegativeLengthIsReportedWithTheBytesLeft)
{
    put(block_of_2010({A.says(-1), B}).bytes());
    EXPECT_EQ(report("B"), negative("B", -1, A.ldata + B.ldata));
    next_event(ZRK4_EV_NORMAL);
    put(block_of_2010({A, B.says(INT_MIN), C}).bytes());
    EXPECT_EQ(report("C"), negative("C", INT_MIN, B.ldata + C.ldata));
}

TEST_P(FastChannel, NegativeLengthIsSeenBeforeTheName)
{
    put(block_of_2010({A.says(-5)}).bytes());
    EXPECT_EQ(report("A"), negative("A", -5, A.ldata));
}

TEST_P(FastChannel, NegativeLengthBehindTheChannelDoesNotMatter)
{
    char* const block = put(block_of_2010({A, B.says(-1)}).bytes());
    EXPECT_EQ(find("A"), block + HEAD_2010);
}

TEST_P(FastChannel, LengthThatLeadsOutOfTheBlockIsReported)
{
    // Fewer bytes are left than a sub-head has.
    put(block_of_2010({A, B.says(B.ldata + 1), C}).bytes());
    EXPECT_EQ(report("C"), outside("C", block_of_2010({A, B, C}).head.ltotal, 2, 3));
}

TEST_P(FastChannel, WalkEndsSilentlyWithTheCount)
{
    block_of_2010 block({A, B.says(B.ldata + 1), C});
    block.head.nchan = 2;
    put(block.bytes());
    EXPECT_EQ(report("C"), "") << "the count is tested before the place";
}

TEST_P(FastChannel, WalkEndsSilentlyWhenNothingIsLeft)
{
    block_of_2010 block({A, B});
    block.head.nchan = INT_MAX;
    put(block.bytes());
    EXPECT_EQ(report("C"), "");
    next_event(ZRK4_EV_NORMAL);
    put(block_of_2010({A.says(INT_MAX), B}).bytes());
    EXPECT_EQ(report("B"), "") << "a step far beyond the end leaves less than nothing";
}

TEST_P(FastChannel, LengthZeroEndsTheWalkOfItsBlockAlone)
{
    block_of_2010 block({A.says(0), B});
    block.head.nchan = INT_MAX;
    put(block.bytes());
    char* const next = put(block_of_2010({B}).bytes());
    EXPECT_NE(find("A"), nullptr) << "its name counts all the same";
    const std::clock_t before = std::clock();
    EXPECT_EQ(out_of([&] { EXPECT_EQ(find("B"), next + HEAD_2010); }), "");
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 4) << "one step, and not as many as are counted";
}

TEST_P(FastChannel, SubHeadsMayOverlap)
{
    constexpr int STEP = 100; // the second sub-head begins in the name field of the first
    block_of_2010 block({C.says(STEP)});
    block.behind.resize(SUBHEAD + STEP);
    block.behind.replace(STEP, 2, "X", 2);
    const int32_t ldata = SUBHEAD;
    std::memcpy(&block.behind[STEP + 264], &ldata, sizeof ldata);
    block.head.nchan = 2;
    block.head.ltotal = HEAD_2010 + SUBHEAD + STEP;
    char* const at = put(block.bytes());
    EXPECT_EQ(find("X"), at + HEAD_2010 + STEP);
}

TEST_P(FastChannel, CorruptBlockEndsTheSearchOfTheEvent)
{
    put(block_of_2010({A.says(-1)}).bytes());
    put(block_of_2010({B}).bytes());
    EXPECT_EQ(report("B"), negative("B", -1, A.ldata));
}

TEST_P(FastChannel, ReportsHoldNamesOfAnyLength)
{
    const std::string name(2000, 'n');
    put(block_of_2010({A.says(-1)}).bytes());
    EXPECT_EQ(report(name.c_str()), negative(name, -1, A.ldata));
}

TEST_P(FastChannel, ReportsAreFlushed)
{
    const captured_output captured;
    setvbuf(stdout, nullptr, _IOFBF, 4096);
    put(block_of_2010({A.says(-1)}).bytes());
    EXPECT_EQ(find("B"), nullptr);
    EXPECT_EQ(__fpending(stdout), 0U);
}

TEST_P(FastChannel, NothingIsReadBehindTheBuffer)
{
    // The next buffer holds what the block claims as its own: the walk must not get there.
    constexpr int LEFT = LENGTH - HEAD_2010;
    block_of_2010 liar({A.says(LEFT - SUBHEAD + 1)});
    liar.head.ltotal = INT_MAX;
    liar.head.nchan = INT_MAX;
    put(liar.bytes());
    char* const behind = bm.get_buffer_address(0, id) + HEAD_2010 + LEFT - SUBHEAD + 1;
    const std::string bait = B.bytes();
    std::memcpy(behind, bait.data(), bait.size());
    EXPECT_EQ(report("B"), "");
    // One byte earlier the sub-head is whole.
    std::memmove(behind - 1, bait.data(), bait.size());
    const int32_t to_it = LEFT - SUBHEAD;
    std::memcpy(bm.get_buffer_address(0, id) + HEAD_2010 + 264, &to_it, sizeof to_it);
    EXPECT_EQ(find("B"), behind - 1);
}

TEST_P(FastChannel, BlockOfOneChannelIsReadWithTheSameCare)
{
    const std::string full(256, 'n');
    char* const found = put(block_of_2010({{full, 41}}).bytes());
    EXPECT_EQ(find((full + "beyond").c_str()), found + HEAD_2010);
    EXPECT_EQ(report(full.substr(0, 255).c_str()), "");

    next_event(ZRK4_EV_NORMAL);
    block_of_2010 shortened({A});
    shortened.head.ltotal = HEAD_2010 + SUBHEAD - 1;
    put(shortened.bytes());
    EXPECT_EQ(report("A"), outside("A", HEAD_2010 + SUBHEAD - 1, 0, 1));

    next_event(ZRK4_EV_NORMAL);
    put(block_of_2010({A.says(0)}).bytes());
    EXPECT_EQ(report("B"), "");
    put(block_of_2010({A.says(INT_MAX)}).bytes());
    EXPECT_EQ(report("B"), "");

    next_event(ZRK4_EV_NORMAL);
    const int one_byte_short = bm.add("T_ONE", 2, HEAD_2010 + SUBHEAD - 1, false);
    block_of_2010 liar({C});
    liar.head.ltotal = INT_MAX;
    const std::string bytes = liar.bytes();
    std::memcpy(bm.get_buffer_address(0, one_byte_short), bytes.data(), bytes.size());
    add_entry("SERVER", one_byte_short, 0);
    EXPECT_EQ(report("C"), "") << "its sub-head reaches into the next buffer";
}

TEST_P(FastChannel, PartitionTooShortForAHeadHoldsNoBlock)
{
    for (const int length : {0, 7, 8, HEAD_2010 - 1}) {
        next_event(ZRK4_EV_NORMAL);
        const std::string name = "T_SHORT_" + std::to_string(length);
        add_entry("SERVER", bm.add(name.c_str(), 2, length, false), 0);
        EXPECT_EQ(report("A"), "") << length;
    }
}

TEST_P(FastChannel, BadArgumentsFindNothing)
{
    put(block_of_2010({A}).bytes());
    char channel[] = "A";
    EXPECT_EQ(get_fast_channel_data(nullptr, entries.data(), nullptr, channel, &bm, nullptr), nullptr);
    EXPECT_EQ(get_fast_channel_data(&slot_2010, nullptr, nullptr, channel, &bm, nullptr), nullptr);
    EXPECT_EQ(get_fast_channel_data(&slot_2010, entries.data(), nullptr, channel, nullptr, nullptr), nullptr);
    EXPECT_EQ(get_fast_channel_data_2024(nullptr, entries.data(), nullptr, channel, &bm, nullptr, nullptr), nullptr);
    EXPECT_EQ(get_fast_channel_data_2024(&slot_2024, nullptr, nullptr, channel, &bm, nullptr, nullptr), nullptr);
    EXPECT_EQ(get_fast_channel_data_2024(&slot_2024, entries.data(), nullptr, channel, nullptr, nullptr, nullptr),
              nullptr);
}

// ---- what the generations do differently ----------------------------------------------------------------------------

using FastChannel2024 = FastChannelBase;
using FastChannel2010 = FastChannelBase;

TEST_F(FastChannel2024, EachBlockIsReadByItsOwnForm)
{
    for (int buffer = 0; buffer < 8; ++buffer) {
        next_event(ZRK4_EV_NORMAL);
        start_at_buffer(buffer);
        char* const old_block = put(block_of_2010({A}).bytes());
        char* const new_block = put(block_of_2024({C, B}).bytes());
        auto* sub = find_as(reader::of_2024, "B", nullptr);
        EXPECT_EQ(reinterpret_cast<char*>(sub), new_block + HEAD_2024 + C.ldata);
        EXPECT_EQ(reinterpret_cast<char*>(h24), new_block);
        EXPECT_EQ(h10, nullptr);
        sub = find_as(reader::of_2024, "A", nullptr);
        EXPECT_EQ(reinterpret_cast<char*>(sub), old_block + HEAD_2010);
        EXPECT_EQ(reinterpret_cast<char*>(h10), old_block);
        EXPECT_EQ(h24, nullptr);
    }
}

TEST_F(FastChannel2024, SlotsPatternIsNotTested)
{
    put(block_of_2024({A}).bytes());
    slot_2024.pattern = 0;
    EXPECT_NE(find_as(reader::of_2024, "A", nullptr), nullptr);
}

TEST_F(FastChannel2024, LengthHas64Bits)
{
    block_of_2024 block({A, B.says(B.ldata + 1), C});
    block.head.nchan = 1;
    for (const int64_t ltotal : {INT64_MIN, int64_t{-1} << 32, int64_t{HEAD_2024}}) {
        next_event(ZRK4_EV_NORMAL);
        block.head.ltotal = ltotal;
        put(block.bytes());
        EXPECT_EQ(find_as(reader::of_2024, "A", nullptr), nullptr) << ltotal;
    }
    next_event(ZRK4_EV_NORMAL);
    block.head.ltotal = INT64_MAX;
    put(block.bytes());
    EXPECT_NE(find_as(reader::of_2024, "A", nullptr), nullptr);
    next_event(ZRK4_EV_NORMAL);
    block = block_of_2024({A.says(-7)});
    block.head.ltotal = INT64_MAX;
    put(block.bytes());
    EXPECT_EQ(out_of([&] { find_as(reader::of_2024, "A", nullptr); }), negative("A", -7, INT64_MAX - HEAD_2024));
}

TEST_F(FastChannel2024, CorruptionsAreReportedWithTheNumbersOfTheForm)
{
    block_of_2024 block({A, B.says(B.ldata + 1), C});
    put(block.bytes());
    const int64_t ltotal = block.head.ltotal;
    EXPECT_EQ(out_of([&] { find_as(reader::of_2024, "C", nullptr); }), outside("C", ltotal, 2, 3));
    next_event(ZRK4_EV_NORMAL);
    block.head.ltotal = HEAD_2024 + 1;
    put(block.bytes());
    EXPECT_EQ(out_of([&] { find_as(reader::of_2024, "A", nullptr); }), outside("A", HEAD_2024 + 1, 0, 3));
}

TEST_F(FastChannel2024, PatternAloneTellsTheForm)
{
    block_of_2010 block({A});
    block.head.time = {0xFBABBAFF, 0xFBABBAFE};
    char* const at = put(block.bytes());
    EXPECT_EQ(reinterpret_cast<char*>(find_as(reader::of_2024, "A", nullptr)), at + HEAD_2010);
    next_event(ZRK4_EV_NORMAL);
    block.head.time = {0, 0};
    put(block.bytes());
    EXPECT_NE(find_as(reader::of_2024, "A", nullptr), nullptr) << "all zeros are a 2010 block";
}

TEST_F(FastChannel2024, BufferTooShortForItsHeadHoldsNoBlock)
{
    const int short_id = bm.add("T_SHORT", 1, HEAD_2024 - 1, false);
    std::memcpy(bm.get_buffer_address(0, short_id), &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    add_entry("SERVER", short_id, 0);
    EXPECT_EQ(find_as(reader::of_2024, "A", nullptr), nullptr);
    EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 0);
}

TEST_F(FastChannel2010, EveryBlockIsReadInThe2010Form)
{
    // In a 2024 block the 2010 number of sub-blocks lies in the server's name.
    block_of_2024 block({A});
    std::memset(block.head.server, 0, sizeof block.head.server);
    put(block.bytes());
    EXPECT_EQ(find_as(reader::of_2010, "A", nullptr), nullptr);
    block_of_2010 old_block({A});
    std::memcpy(&old_block.head.time, &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    char* const at = put(old_block.bytes());
    EXPECT_EQ(reinterpret_cast<char*>(find_as(reader::of_2010, "A", nullptr)), at + HEAD_2010);
    EXPECT_EQ(reinterpret_cast<char*>(h10), at);
}
