// Parameters of an event's server blocks, and blocks without any sub-block.
#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "reader_event.h"

using namespace zrk4::test;

namespace {

const sub_block A("A", ZRK4_BLOCK_1CHAN_2010, "aaaa");
const sub_block B("B", ZRK4_BLOCK_2CHAN_2010, "bbbbbbbb");

struct parameters {
    time_stamp time{};
    int length = 0;
    long evid = 0;
    int tmask = 0, status = 0, nchan = 0;
};

class BlockParameters : public reader_event {
  protected:
    /// @return 0 found, 1 not found.
    int ask(const char* name, zrk4_event_slot_head_2024* slot = nullptr)
    {
        if (slot == nullptr) slot = &slot_2024;
        return get_sb_param(slot, entries.data(), const_cast<char*>(name), &bm, &got.time, &got.length, &got.evid,
                            &got.tmask, &got.status, &got.nchan);
    }
    parameters got;
};

using EmptyBlocks = reader_event;

} // namespace

TEST_F(BlockParameters, AreReadByTheBlocksForm)
{
    for (int buffer = 0; buffer < 8; ++buffer) {
        next_event(ZRK4_EV_NORMAL);
        start_at_buffer(buffer);
        put(block_of_2010({A, B}).bytes(), "OLD");
        block_of_2024 wide({A});
        wide.head.mpulse = int64_t{1} << 40;
        wide.head.tmask = 0x0F;
        put(wide.bytes(), "NEW");

        EXPECT_EQ(ask("OLD"), 0) << "0 is found";
        EXPECT_EQ(+got.time.timeup, 1700000000U);
        EXPECT_EQ(+got.time.timelow, 123456U);
        EXPECT_EQ(got.length, A.ldata + B.ldata);
        EXPECT_EQ(got.evid, -42) << "widened with its sign";
        EXPECT_EQ(got.tmask, 0xF0);
        EXPECT_EQ(got.status, 3);
        EXPECT_EQ(got.nchan, 2);

        EXPECT_EQ(ask("NEW"), 0);
        EXPECT_EQ(+got.time.timeup, 1700000000U);
        EXPECT_EQ(got.length, A.ldata);
        EXPECT_EQ(got.evid, int64_t{1} << 40);
        EXPECT_EQ(got.tmask, 0x0F);
        EXPECT_EQ(got.nchan, 1);
    }
}

TEST_F(BlockParameters, AreFoundFromASlotOfEitherForm)
{
    put(block_of_2024({A}).bytes(), "NEW");
    slot_2024.sbfilled = 0;
    EXPECT_EQ(ask("NEW"), 1);
    EXPECT_EQ(ask("NEW", either_2010()), 0);
    set_filled(0);
    slot_2024.sbfilled = 1;
    EXPECT_EQ(ask("NEW"), 0);
    EXPECT_EQ(ask("NEW", either_2010()), 1);
}

TEST_F(BlockParameters, OfSeveralBlocksOfANameAreTheFirstOnes)
{
    add_entry("TWICE", id, -1);
    add_entry("TWICE", 0, 1);
    start_at_buffer(2);
    put(block_of_2010({A}).bytes(), "TWICE");
    put(block_of_2010({A, B}).bytes(), "TWICE");
    EXPECT_EQ(ask("TWICE"), 0);
    EXPECT_EQ(got.nchan, 1);
}

TEST_F(BlockParameters, AreNotFoundForBadArgumentsOrUnknownNames)
{
    put(block_of_2010({A}).bytes(), "ONE");
    got.nchan = -77;
    EXPECT_EQ(ask(nullptr), 1);
    EXPECT_EQ(ask(""), 1);
    EXPECT_EQ(ask("ON"), 1);
    EXPECT_EQ(ask("ONE "), 1);
    EXPECT_EQ(ask("TWO"), 1);
    for (const int filled : {0, -1, INT_MIN}) {
        set_filled(filled);
        EXPECT_EQ(ask("ONE"), 1) << filled;
    }
    EXPECT_EQ(got.nchan, -77) << "outputs stay";
    char name[] = "ONE";
    EXPECT_EQ(get_sb_param(nullptr, entries.data(), name, &bm, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              1);
}

TEST_F(BlockParameters, OfAnEmptyNameAreNotFoundEvenIfABlockHasNone)
{
    put(block_of_2010({A}).bytes(), "");
    EXPECT_EQ(ask(""), 1);
}

TEST_F(BlockParameters, AreNotFoundWhenTheBlockCannotBeHad)
{
    add_entry("ONE", id, BUFFERS);
    put(block_of_2010({A}).bytes(), "ONE");
    EXPECT_EQ(ask("ONE"), 1);
}

TEST_F(BlockParameters, OfABufferTooShortForTheHeadOfItsFormAreNotFound)
{
    const int short_id = bm.add("T_SHORT", 1, HEAD_2024 - 1, false);
    add_entry("SHORT", short_id, 0);
    EXPECT_EQ(ask("SHORT"), 0) << "long enough for the other form";
    std::memcpy(bm.get_buffer_address(0, short_id), &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    EXPECT_EQ(ask("SHORT"), 1);
}

TEST_F(BlockParameters, AreGivenForRunControlEventsToo)
{
    put(block_of_2010({A}).bytes(), "ONE");
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        set_type(type);
        EXPECT_EQ(ask("ONE"), 0) << type;
    }
}

TEST_F(BlockParameters, LengthIsCutTo32Bits)
{
    const std::pair<int64_t, int> lengths[] = {{0, -HEAD_2024},
                                               {-1, -HEAD_2024 - 1},
                                               {(int64_t{5} << 32) + HEAD_2024 + 7, 7},
                                               {INT64_MAX, -1 - HEAD_2024},
                                               {INT64_MIN, -HEAD_2024}};
    for (const auto& [ltotal, length] : lengths) {
        next_event(ZRK4_EV_NORMAL);
        block_of_2024 block({A});
        block.head.ltotal = ltotal;
        put(block.bytes(), "ONE");
        EXPECT_EQ(ask("ONE"), 0);
        EXPECT_EQ(got.length, length) << ltotal;
    }
    next_event(ZRK4_EV_NORMAL);
    block_of_2010 block({A});
    block.head.ltotal = INT_MIN;
    put(block.bytes(), "ONE");
    EXPECT_EQ(ask("ONE"), 0);
    EXPECT_EQ(got.length, INT_MAX - HEAD_2010 + 1);
}

TEST_F(BlockParameters, NeedNoOutputs)
{
    put(block_of_2010({A}).bytes(), "ONE");
    char name[] = "ONE";
    EXPECT_EQ(get_sb_param(&slot_2024, entries.data(), name, &bm, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
}

TEST_F(EmptyBlocks, AreThoseThatCountExactlyNone)
{
    put(block_of_2010({}).bytes());
    put(block_of_2024({}).bytes());
    put(block_of_2010({A}).bytes());
    put(block_of_2024({A, B}).bytes());
    block_of_2010 negative_count({A});
    negative_count.head.nchan = -1;
    put(negative_count.bytes());
    EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 2);
    EXPECT_EQ(check_bad_sb_data(either_2010(), entries.data(), &bm), 2);
}

TEST_F(EmptyBlocks, AreCountedInAsManyEntriesAsAreFilledByTheSlotsForm)
{
    put(block_of_2010({}).bytes());
    put(block_of_2010({}).bytes());
    slot_2010.sbfilled = 1;
    EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 2);
    EXPECT_EQ(check_bad_sb_data(either_2010(), entries.data(), &bm), 1);
    for (const int filled : {0, -1, INT_MIN}) {
        set_filled(filled);
        EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 0);
        EXPECT_EQ(check_bad_sb_data(either_2010(), entries.data(), &bm), 0);
    }
}

TEST_F(EmptyBlocks, AreNotCountedInRunControlEventsAndOnlyNotThere)
{
    put(block_of_2010({}).bytes());
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        set_type(type);
        const int counted = type >= ZRK4_EV_BOR && type <= ZRK4_EV_UPD ? 0 : 1;
        EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), counted) << type;
        EXPECT_EQ(check_bad_sb_data(either_2010(), entries.data(), &bm), counted) << type;
    }
}

TEST_F(EmptyBlocks, HolesAndBlocksThatCannotBeHadAreNone)
{
    put(block_of_2010({}).bytes());
    add_entry("SERVER", 0, 0);
    add_entry("SERVER", id, -1);
    add_entry("SERVER", id, BUFFERS);
    add_entry("SERVER", id + 1000, 0);
    EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 1);
    EXPECT_EQ(check_bad_sb_data(nullptr, entries.data(), &bm), 0);
    EXPECT_EQ(check_bad_sb_data(&slot_2024, nullptr, &bm), 0);
    EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), nullptr), 0);
}
