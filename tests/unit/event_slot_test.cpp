// Views on event slots and on their table, wherever they begin and whatever their heads say.
#include "event_slot.h"

#include <climits>

#include <gtest/gtest.h>

#include "clean_namespace.h"
#include "slot_bytes.h"

using namespace zrk4::impl;
using namespace zrk4::test;

namespace {

template <class Form> constexpr generation of_form = Form::wide ? generation::of_2024 : generation::of_2010;

/// A partition whose buffer `n` begins `n` bytes behind the alignment of its buffer 0.
class EventSlot : public CleanNamespace, public testing::WithParamInterface<int> {
  protected:
    static constexpr int LENGTH = 1025;

    int number() const { return 1 + GetParam(); }
    char* at() const { return part.buffer_addr(number()); }
    template <class Form> slot_bytes bytes() const { return {at(), LENGTH, of_form<Form>}; }
    template <class Form> event_slot<Form> view() const { return {part, number()}; }
    template <class Test> static void in_both_forms(Test test)
    {
        test(slots_2010{});
        test(slots_2024{});
    }

    C_shm_buffer part{"T_SLOTS", 9, LENGTH, false};
};

INSTANTIATE_TEST_SUITE_P(Alignments, EventSlot, testing::Range(0, 8));

TEST_P(EventSlot, BeginsAtEveryAlignmentInTurn)
{
    const auto address = reinterpret_cast<uintptr_t>(at());
    EXPECT_EQ(address % 8,
              (reinterpret_cast<uintptr_t>(part.buffer_addr(0)) + 1 + static_cast<unsigned>(GetParam())) % 8);
}

TEST_P(EventSlot, EntriesBeginBehindTheClients)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        for (int i = 0; i < 3; ++i) raw.add_client(10 + i, CLI_S_WAIT);
        raw.add_entry("FIRST", 5, 6);
        const auto slot = view<Form>();
        EXPECT_EQ(reinterpret_cast<char*>(slot.entries()) - at(), Form::wide ? 104 : 84);
        EXPECT_EQ(slot.nclients(), 3);
        EXPECT_EQ(slot.filled(), 1);
        EXPECT_EQ(slot.used(), (Form::wide ? 104 : 84) + 264);
        EXPECT_STREQ(slot.entries()[0].name, "FIRST");
        EXPECT_EQ(+slot.entries()[0].shmid, 5);
        EXPECT_EQ(+slot.entries()[0].bnum, 6);
        EXPECT_EQ(+slot.clients()[2].snum, 12);
    });
}

TEST_P(EventSlot, ReadsEveryFieldOfTheHead)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        raw.put_time(&slot_layout::time, {1, 2});
        raw.put_wide(&slot_layout::eventid, -3);
        raw.put(&slot_layout::evtype, 4);
        raw.put_time(&slot_layout::start, {5, 6});
        raw.put(&slot_layout::pid, 7);
        raw.put_wide(&slot_layout::evsize, -8);
        const auto head = view<Form>().head_now();
        EXPECT_EQ(head.time, (time_stamp{1, 2}));
        EXPECT_EQ(+head.eventid, -3);
        EXPECT_EQ(+head.evtype, 4);
        EXPECT_EQ(head.start, (time_stamp{5, 6}));
        EXPECT_EQ(+head.pid, 7);
        EXPECT_EQ(+head.evsize, -8);
    });
}

TEST_P(EventSlot, CountsOfAHostileHeadAreCutToTheRoom)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        const int head = Form::wide ? 80 : 60;
        for (const int clients : {INT_MIN, -1, 0, 1, 7, (LENGTH - head) / 8, (LENGTH - head) / 8 + 1, INT_MAX}) {
            for (const int filled : {INT_MIN, -1, 0, 1, 3, 4, INT_MAX / 264 + 1, INT_MAX}) {
                auto raw = bytes<Form>();
                raw.put(&slot_layout::nclients, clients);
                raw.put(&slot_layout::sbfilled, filled);
                const auto slot = view<Form>();
                const int seen_clients = std::clamp(clients, 0, (LENGTH - head) / 8);
                const int seen_entries = std::clamp(filled, 0, (LENGTH - head - 8 * seen_clients) / 264);
                EXPECT_EQ(slot.nclients(), seen_clients) << clients << " clients, " << filled << " entries";
                EXPECT_EQ(slot.filled(), seen_entries) << clients << " clients, " << filled << " entries";
                EXPECT_EQ(slot.used(), head + 8 * seen_clients + 264 * seen_entries);
                EXPECT_LE(slot.used(), LENGTH);
            }
        }
    });
}

TEST_P(EventSlot, WhatFitsIsCountedInBytes)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        raw.add_client(1, CLI_S_WAIT);
        raw.add_entry("A", 1, 1);
        const int used = (Form::wide ? 80 : 60) + 8 + 264;
        const auto slot = view<Form>();
        EXPECT_TRUE(slot.fits(LENGTH - used));
        EXPECT_FALSE(slot.fits(LENGTH - used + 1));
    });
}

TEST_P(EventSlot, FindsTheFirstBlockOfAClient)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        raw.add_client(4, CLI_S_WAIT);
        raw.add_client(9, CLI_S_NTF);
        raw.add_client(9, CLI_S_DONE);
        const auto slot = view<Form>();
        ASSERT_NE(slot.client(9), nullptr);
        EXPECT_EQ(slot.client(9), slot.clients() + 1);
        EXPECT_EQ(slot.client(5), nullptr);
        EXPECT_EQ(slot.client(0), nullptr) << "what lies behind the last block is no block";
    });
}

TEST_P(EventSlot, MovesItsEntriesWithARefresh)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        auto slot = view<Form>();
        const char* before = reinterpret_cast<char*>(slot.entries());
        slot.head().nclients += 2;
        slot.head().sbfilled += 1;
        EXPECT_EQ(reinterpret_cast<char*>(slot.entries()), before) << "the counts are read once";
        slot.refresh();
        EXPECT_EQ(reinterpret_cast<char*>(slot.entries()), before + 16);
        EXPECT_EQ(slot.filled(), 1);
    });
}

TEST_P(EventSlot, IsToldFromTheNextEventByTimeStartAndProcess)
{
    in_both_forms([&](auto form) {
        using Form = decltype(form);
        auto raw = bytes<Form>();
        raw.fill(0);
        raw.put_time(&slot_layout::time, {1, 2});
        raw.put_time(&slot_layout::start, {3, 4});
        raw.put(&slot_layout::pid, 5);
        const slot_identity before = view<Form>().identity();
        raw.put_wide(&slot_layout::eventid, 77);
        raw.put_time(&slot_layout::lupdate, {8, 8});
        raw.put(&slot_layout::sbfilled, 1);
        EXPECT_TRUE(view<Form>().identity() == before) << "changes with every block";
        const auto other_with = [&](auto change) {
            auto copy = bytes<Form>();
            const std::string kept(at(), LENGTH);
            change(copy);
            const bool other = !(view<Form>().identity() == before);
            std::memcpy(at(), kept.data(), kept.size());
            return other;
        };
        EXPECT_TRUE(other_with([](auto& s) { s.put_time(&slot_layout::time, {1, 3}); }));
        EXPECT_TRUE(other_with([](auto& s) { s.put_time(&slot_layout::time, {2, 2}); }));
        EXPECT_TRUE(other_with([](auto& s) { s.put_time(&slot_layout::start, {3, 5}); }));
        EXPECT_TRUE(other_with([](auto& s) { s.put_time(&slot_layout::start, {4, 4}); }));
        EXPECT_TRUE(other_with([](auto& s) { s.put(&slot_layout::pid, 6); }));
    });
}

using EventSlotOf = CleanNamespace;

TEST_F(EventSlotOf, NumbersThatAreNoSlotIsEmpty)
{
    const C_shm_buffer part("T_SLOTS", 3, 200, false);
    for (const int n : {INT_MIN, -1, 0, 3, INT_MAX}) {
        EXPECT_FALSE(event_slot<slots_2010>(part, n)) << n;
        EXPECT_FALSE(event_slot<slots_2024>(part, n)) << n;
    }
    EXPECT_TRUE(event_slot<slots_2010>(part, 2));
    EXPECT_TRUE(event_slot<slots_2024>(part, 2));
}

TEST_F(EventSlotOf, APartitionTooShortForAHeadIsEmpty)
{
    const C_shm_buffer part("T_SLOTS", 3, 79, false);
    EXPECT_TRUE(event_slot<slots_2010>(part, 1));
    EXPECT_FALSE(event_slot<slots_2024>(part, 1));
    const C_shm_buffer shorter("T_SHORTER", 3, 59, false);
    EXPECT_FALSE(event_slot<slots_2010>(shorter, 1));
}

TEST_F(EventSlotOf, AHeadAndNothingBehindItHoldsNothing)
{
    const C_shm_buffer part("T_SLOTS", 3, 60, false);
    slot_bytes raw(part.buffer_addr(1), 60, generation::of_2010);
    raw.put(&slot_layout::nclients, 1);
    raw.put(&slot_layout::sbfilled, 1);
    const event_slot<slots_2010> slot(part, 1);
    EXPECT_EQ(slot.nclients(), 0);
    EXPECT_EQ(slot.filled(), 0);
    EXPECT_FALSE(slot.fits(8));
}

TEST(EventTable, HasAnEntryForEverySlot)
{
    clear_ipc_namespace();
    const C_shm_buffer part("T_SLOTS", 5, 200, false);
    const event_table<slots_2010> table(part);
    EXPECT_EQ(table.slots(), 4);
    EXPECT_FALSE(table.has(0));
    EXPECT_TRUE(table.has(1));
    EXPECT_TRUE(table.has(4));
    EXPECT_FALSE(table.has(5));
    EXPECT_EQ(reinterpret_cast<char*>(&table.of(3)) - part.buffer_addr(0), 40);
    const event_table<slots_2024> wide(part);
    EXPECT_EQ(reinterpret_cast<char*>(&wide.of(3)) - part.buffer_addr(0), 48);
    control_bytes(part.buffer_addr(0), 2, generation::of_2024).put_status(EVT_C_USED);
    EXPECT_TRUE(wide.used(2));
    EXPECT_FALSE(wide.used(1));
    control_bytes(part.buffer_addr(0), 1, generation::of_2024).put_status(EVT_C_INVALID);
    EXPECT_FALSE(wide.used(1));
}

TEST(EventTable, EndsWithItsBuffer)
{
    clear_ipc_namespace();
    const C_shm_buffer part("T_SLOTS", 50, 119, false);
    EXPECT_EQ(event_table<slots_2010>(part).slots(), 5) << "119 / 20";
    EXPECT_EQ(event_table<slots_2024>(part).slots(), 4) << "119 / 24";
}

TEST(EventTable, OfBuffer0AloneIsEmpty)
{
    clear_ipc_namespace();
    const C_shm_buffer part("T_SLOTS", 1, 200, false);
    EXPECT_EQ(event_table<slots_2010>(part).slots(), 0);
}

TEST(EventTable, UsedSlotsAreMetOneAfterTheOtherWhateverItsLength)
{
    for (int slots = 0; slots <= 35; ++slots) {
        clear_ipc_namespace();
        const C_shm_buffer part("T_SLOTS", slots + 1, 35 * 24, false);
        const event_table<slots_2024> table(part);
        for (int n = 1; n <= 35; ++n) // also behind the table's end
            control_bytes(part.buffer_addr(0), n, generation::of_2024)
                .put_status(n % 2 == 0 ? EVT_C_FREE : EVT_C_INVALID);
        EXPECT_EQ(table.next_used(1), 0) << slots;
        for (int used = 1; used <= 35; ++used) {
            auto entry = control_bytes(part.buffer_addr(0), used, generation::of_2024);
            entry.put_status(EVT_C_USED);
            EXPECT_EQ(table.next_used(1), used <= slots ? used : 0) << used << " of " << slots;
            EXPECT_EQ(table.next_used(used), used <= slots ? used : 0) << used << " of " << slots;
            EXPECT_EQ(table.next_used(used + 1), 0) << used << " of " << slots;
            entry.put_status(EVT_C_FREE);
        }
    }
}

TEST(ServerBlockEntry, WithoutSegmentOrNumberIsAHole)
{
    zrk4_client_sblock_data entry{};
    const auto hole = [&](int shmid, int bnum) {
        entry.shmid = shmid;
        entry.bnum = bnum;
        return is_hole(entry);
    };
    EXPECT_TRUE(hole(0, -1));
    EXPECT_TRUE(hole(0, 3));
    EXPECT_TRUE(hole(3, -1));
    EXPECT_FALSE(hole(3, 0));
    EXPECT_FALSE(hole(-3, -2)) << "odd, but not a hole";
}

} // namespace
