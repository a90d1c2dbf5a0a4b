// A slot is zero behind what a new event wrote, whoever left what in it; and clearing it costs what was in use.
#include "event_host.h"

using namespace zrk4::test;

namespace {

constexpr int LENGTH = 200001; // many pages, and an odd number of bytes

class BmClearSlot : public EventHost {
  protected:
    BmClearSlot() : EventHost({.event_slots = 3, .event_length = LENGTH})
    {
        writer({"A", "B", "C"});
        for (int n = 1; n <= 3; ++n) events_part.get_buffer(BM_NO_WAIT, true);
    }
    void init(int n, open_bm& by)
    {
        EXPECT_FALSE(by.init_ev_slot(TYPE, n, by.get_buffer_address(at, data_id, true))) << "false is success";
    }
    void init(int n) { init(n, bm); }
    /// Everything behind the head and the client block of the writer.
    void expect_clean(int n) const
    {
        EXPECT_EQ(slot(n).nclients(), 1);
        EXPECT_EQ(slot(n).sbfilled(), 0);
        EXPECT_EQ(slot(n).first_dirty(slot(n).used()), LENGTH);
    }
    /// An event as one with many blocks left it: a sound head, entries, and nothing behind them.
    void leave_event(int n, int clients, int entries)
    {
        auto s = slot(n);
        s.fill(0);
        if (wide()) s.put_first_word(0xFF77FF77FF77FF77);
        for (int i = 0; i < clients; ++i) s.add_client(i + 1, CLI_S_DONE);
        for (int i = 0; i < entries; ++i) s.add_entry(std::string(256, 'e'), 0, -1);
    }

    int at = put({});
};
IN_BOTH_GENERATIONS(BmClearSlot);

TEST_P(BmClearSlot, IsWholeTheFirstTime)
{
    slot(1).fill('x');
    init(1);
    expect_clean(1);
}

TEST_P(BmClearSlot, IsWholeTheFirstTimeAlsoWhenTheHeadLooksSound)
{
    leave_event(1, 2, 3);
    slot(1).byte(LENGTH / 2) = 'x'; // far behind the extent, far before the end
    init(1);
    expect_clean(1);
}

TEST_P(BmClearSlot, IsWholeTheFirstTimeForEverySlotAndEveryObject)
{
    init(1);
    slot(2).byte(LENGTH / 2) = 'x';
    init(2);
    expect_clean(2);
    open_bm other;
    join(other);
    zrk4_client none{};
    ASSERT_GT(other.subscribe(TYPE, CLI_T_WRITER, &none, nullptr), 0);
    slot(1).byte(LENGTH / 2) = 'x';
    init(1, other);
    EXPECT_EQ(slot(1).first_dirty(slot(1).used()), LENGTH);
}

TEST_P(BmClearSlot, IsWholeAgainAfterANewInit)
{
    init(1);
    bm.all_clean_up();
    join(bm);
    data_id = bm.add("T_DATA", BLOCKS, BLOCK_LENGTH);
    at = put({});
    writer({"A"});
    slot(1).byte(LENGTH / 2) = 'x';
    init(1);
    expect_clean(1);
}

TEST_P(BmClearSlot, CoversWhatTheLastEventWrote)
{
    init(1);
    for (const int entries : {0, 1, 3, 200, 600}) {
        leave_event(1, 40, entries);
        init(1);
        expect_clean(1);
    }
}

// The cost of an event must not follow the length of a slot.
TEST_P(BmClearSlot, LeavesTheRestAloneWhenTheOldHeadIsSound)
{
    init(1);
    leave_event(1, 2, 3);
    const int behind = slot(1).used() + 264;
    slot(1).byte(behind) = 'x';
    slot(1).byte(LENGTH - 65) = 'y';
    init(1);
    EXPECT_EQ(slot(1).first_dirty(slot(1).used()), behind) << "neither written nor looked at";
    EXPECT_EQ(slot(1).first_dirty(behind + 1), LENGTH - 65);
}

TEST_P(BmClearSlot, IsWholeWhenThereIsAnythingRightBehindTheExtent)
{
    init(1);
    for (const int offset : {0, 1, 131, 263}) {
        leave_event(1, 2, 3);
        slot(1).byte(slot(1).used() + offset) = 'x';
        slot(1).byte(LENGTH / 2) = 'y';
        init(1);
        expect_clean(1);
    }
}

TEST_P(BmClearSlot, IsWholeWhenThereIsAnythingAtItsEnd)
{
    init(1);
    for (const int offset : {1, 33, 64}) {
        leave_event(1, 2, 3);
        slot(1).byte(LENGTH - offset) = 'x';
        slot(1).byte(LENGTH / 2) = 'y';
        init(1);
        expect_clean(1);
    }
}

TEST_P(BmClearSlot, IsWholeWhenTheCountsCannotBeRight)
{
    init(1);
    for (const auto count : {&slot_layout::nclients, &slot_layout::sbfilled}) {
        for (const int value : {-1, INT32_MIN, INT32_MAX, LENGTH}) {
            leave_event(1, 0, 0);
            slot(1).put(count, value);
            slot(1).byte(LENGTH / 2) = 'y';
            init(1);
            expect_clean(1);
        }
    }
}

TEST_P(BmClearSlot, IsWholeWhenTheExtentReachesTheEnd)
{
    init(1);
    const int fit = (LENGTH - layout_of(GetParam()).head) / 264;
    for (const int entries : {fit, fit - 1}) {
        leave_event(1, 0, entries);
        init(1);
        expect_clean(1);
    }
}

TEST_P(BmClearSlot, IsWholeWhenTheHeadIsOfNoEvent)
{
    init(1);
    slot(1).fill('x');
    init(1);
    expect_clean(1);
    slot(1).fill(0);
    slot(1).byte(LENGTH / 2) = 'x';
    init(1);
    // Only the 2024 head can be told from one that was never written.
    EXPECT_EQ(slot(1).first_dirty(slot(1).used()), wide() ? LENGTH : LENGTH / 2);
}

TEST_P(BmClearSlot, TouchesNeitherNeighbour)
{
    for (int round = 0; round < 2; ++round) { // whole, and by the extent
        slot(1).fill('x');
        slot(3).fill('z');
        leave_event(2, 2, 3);
        init(2);
        EXPECT_EQ(slot(1).byte(LENGTH - 1), 'x');
        EXPECT_EQ(slot(3).byte(0), 'z');
    }
}

class BmClearShortSlot : public EventHost {
  protected:
    BmClearShortSlot() : EventHost({.event_length = layout_of(GetParam()).head + 8 + 264 + 63}) { writer({"A"}); }
};
IN_BOTH_GENERATIONS(BmClearShortSlot);

TEST_P(BmClearShortSlot, IsAlwaysWhole)
{
    char* at = block(put({}));
    const int n = events_part.buffer_id(events_part.get_buffer(BM_NO_WAIT, true));
    for (int round = 0; round < 3; ++round) {
        slot(n).byte(slot(n).length() - 1) = 'x';
        EXPECT_FALSE(bm.init_ev_slot(TYPE, n, at));
        EXPECT_EQ(slot(n).first_dirty(slot(n).used()), slot(n).length());
    }
}

} // namespace
