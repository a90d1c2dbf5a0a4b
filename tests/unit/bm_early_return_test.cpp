// One block of an event goes back early.
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "event_host.h"
#include "eventually.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

using entries = std::vector<seen_entry>;

class EarlyReturn : public EventHost {
  protected:
    /// An event with one block per name; block i is buffer i when it is the first.
    int event_of(const std::vector<std::string>& names, time_stamp key = {1000, 500}, int64_t id = 7, int type = TYPE)
    {
        const int n = used_slot(key, id, type);
        slot(n).put_time(&slot_layout::start, {1000, 1});
        for (const std::string& name : names)
            slot(n).add_entry(name, data_id, put({.server = name, .time = key, .mpulse = id}));
        return n;
    }
    bool give_back(int bnum) { return bm.return_buffer_in_pool_ext(TYPE, bnum, data_id); }
    seen_entry entry(const std::string& name, int bnum) const { return {name, data_id, bnum}; }
    bool is_free(int n) const { return control(n).status() == EVT_C_FREE && slot_is_free(n); }
};
IN_BOTH_GENERATIONS(EarlyReturn);

TEST_P(EarlyReturn, TakesTheEntryOutAndClosesTheGap)
{
    const int n = event_of({"A", "B", "C", "D"});
    EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(1)) << "false is success"; }), "");
    EXPECT_EQ(slot(n).entries(), (entries{entry("A", 0), entry("C", 2), entry("D", 3)}));
    EXPECT_TRUE(block_is_free(1));
    EXPECT_FALSE(give_back(3)) << "the last one: nothing moves";
    EXPECT_EQ(slot(n).entries(), (entries{entry("A", 0), entry("C", 2)}));
    EXPECT_FALSE(give_back(0)) << "the first one: all move";
    EXPECT_EQ(slot(n).entries(), (entries{entry("C", 2)}));
    EXPECT_EQ(control(n).status(), EVT_C_USED);
}

TEST_P(EarlyReturn, LeavesNothingBehindTheEntries)
{
    const int n = event_of({"A", "B", "C"});
    give_back(0);
    EXPECT_EQ(slot(n).first_dirty(slot(n).used()), slot(n).length());
}

TEST_P(EarlyReturn, LeavesTheClientsAndTheHeadAlone)
{
    const int n = used_slot();
    slot(n).add_client(client({}), PROC);
    slot(n).put(&slot_layout::nsblocks, 2);
    for (const char* name : {"A", "B"}) slot(n).add_entry(name, data_id, put({.server = name}));
    give_back(0);
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{1, PROC}}));
    EXPECT_EQ(slot(n).nsblocks(), 2);
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

TEST_P(EarlyReturn, LastBlockEndsTheEvent)
{
    const int n = event_of({"A", "B"});
    EXPECT_FALSE(give_back(0));
    EXPECT_FALSE(is_free(n));
    EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(1)); }), "");
    EXPECT_TRUE(is_free(n));
    EXPECT_TRUE(block_is_free(1));
    EXPECT_EQ(events_part.getStat("freebuf"), "9");
}

TEST_P(EarlyReturn, HolesCountAsEntries)
{
    const int n = event_of({"A"});
    slot(n).add_entry("PLACEHOLDER", 0, -1);
    EXPECT_FALSE(give_back(0));
    EXPECT_EQ(slot(n).entries(), (entries{{"PLACEHOLDER", 0, -1}}));
    EXPECT_FALSE(is_free(n));
}

TEST_P(EarlyReturn, FirstOfTwoEqualEntriesGoes)
{
    const int n = event_of({"A"});
    slot(n).add_entry("B", data_id, 0);
    EXPECT_FALSE(give_back(0));
    EXPECT_EQ(slot(n).entries(), (entries{entry("B", 0)}));
}

TEST_P(EarlyReturn, LastBlockOfASlotThatIsInTheQueueAlready)
{
    const int n = event_of({"A"});
    ASSERT_FALSE(events_part.return_buffer(n));
    EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(0)) << "the block's own way back decides"; }),
              "DATE return_buffer_in_pool_ext(): failed to free event slot: " + std::to_string(n) + " \n");
    EXPECT_EQ(control(n).status(), EVT_C_FREE);
    EXPECT_TRUE(block_is_free(0));
}

// ---- arguments ---------------------------------------------------------------------------------------------------------

TEST_P(EarlyReturn, InvalidArguments)
{
    event_of({"A"});
    const auto answer = [&](int type, int bnum, int id) {
        return said([&] {
            EXPECT_TRUE(bm.return_buffer_in_pool_ext(static_cast<ZRK4_EVTYPE>(type), bnum, id)) << "true is failure";
        });
    };
    const std::string text = "DATE return_buffer_in_pool_ext(): invalid parameter(s) evtype: ";
    EXPECT_EQ(answer(1, 0, 0), text + "1 id: 0 bnum: 0\n");
    EXPECT_EQ(answer(1, 0, -3), text + "1 id: -3 bnum: 0\n");
    EXPECT_EQ(answer(32, 0, data_id), text + "32 id: " + std::to_string(data_id) + " bnum: 0\n");
    EXPECT_EQ(answer(-1, 0, data_id), text + "-1 id: " + std::to_string(data_id) + " bnum: 0\n");
    EXPECT_EQ(answer(1, -1, data_id), text + "1 id: " + std::to_string(data_id) + " bnum: -1\n");
    EXPECT_FALSE(block_is_free(0));
}

TEST_P(EarlyReturn, BlockThatHasNoAddress)
{
    event_of({"A"});
    const std::string refused = "DATE return_buffer_in_pool_ext(): failed to get the buffer address\n";
    for (const int bnum : {BLOCKS, INT_MAX})
        EXPECT_EQ(said([&] { EXPECT_TRUE(bm.return_buffer_in_pool_ext(TYPE, bnum, data_id)); }), refused);
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.return_buffer_in_pool_ext(TYPE, 0, 123456789)); }), "SYSERROR: 22\n" + refused);
}

TEST_P(EarlyReturn, ControlRecordsAreNotReturned)
{
    for (const int id : {shmid_of(events_part), shmid_of(clients_part)}) {
        const std::string events = events_part.getStat("freebuf");
        const std::string clients = clients_part.getStat("freebuf");
        EXPECT_TRUE(bm.return_buffer_in_pool_ext(TYPE, 0, id)) << "nothing was given back";
        EXPECT_EQ(events_part.getStat("freebuf"), events);
        EXPECT_EQ(clients_part.getStat("freebuf"), clients);
    }
}

TEST_P(EarlyReturn, PartitionThatWasNotInThePoolIsAttached)
{
    BM other;
    join(other);
    const int n = event_of({"A", "B"});
    EXPECT_FALSE(other.return_buffer_in_pool_ext(TYPE, 0, data_id));
    EXPECT_EQ(slot(n).entries(), (entries{entry("B", 1)}));
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(EarlyReturn, WithoutAHeadReaderNothingIsReturned)
{
    const int n = event_of({"A"});
    for (int which = 0; which < 2; ++which) {
        const auto key = bm.get_key_f[TYPE];
        const auto id = bm.get_evid_f[TYPE];
        if (which == 0) bm.get_key_f.erase(TYPE);
        if (which == 1) bm.get_evid_f.erase(TYPE);
        EXPECT_EQ(said([&] { EXPECT_TRUE(give_back(0)); }), "");
        bm.get_key_f[TYPE] = key;
        bm.get_evid_f[TYPE] = id;
    }
    bm.set_get_key_func(TYPE, [](char*) -> time_stamp* { return nullptr; });
    EXPECT_TRUE(give_back(0));
    EXPECT_FALSE(block_is_free(0));
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

// ---- the event of a block -----------------------------------------------------------------------------------------------

TEST_P(EarlyReturn, BlockWithoutAnEventIsJustReturned)
{
    const int n = event_of({"A"});
    const int lone = put({.server = "A", .time = {5000, 0}});
    EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(lone)); }), "");
    EXPECT_TRUE(block_is_free(lone));
    EXPECT_EQ(slot(n).sbfilled(), 1);
    EXPECT_EQ(said([&] { EXPECT_TRUE(give_back(lone)) << "a second time"; }), "");
}

TEST_P(EarlyReturn, BlockThatIsNotInItsEventIsJustReturned)
{
    const int n = event_of({"A"});
    const int lone = put({.server = "B"});
    EXPECT_FALSE(give_back(lone));
    EXPECT_TRUE(block_is_free(lone));
    EXPECT_EQ(slot(n).entries(), (entries{entry("A", 0)}));
}

TEST_P(EarlyReturn, SameNumberOfAnotherPartitionIsAnotherBlock)
{
    const int other_id = bm.add("T_OTHER", 4, BLOCK_LENGTH);
    const int n = event_of({"A"});
    slot(n).put(&slot_layout::sbfilled, 0);
    slot(n).add_entry("A", other_id, 0);
    EXPECT_FALSE(give_back(0));
    EXPECT_EQ(slot(n).entries(), (entries{{"A", other_id, 0}}));
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(EarlyReturn, EventWithoutEntriesIsLeftAsItIs)
{
    const int n = event_of({});
    const int lone = put({});
    EXPECT_FALSE(give_back(lone));
    EXPECT_TRUE(block_is_free(lone));
    EXPECT_FALSE(is_free(n)) << "it has lost nothing";
}

TEST_P(EarlyReturn, EventsAreToldByTypeAndTimeWithinTheMask)
{
    const int foreign = event_of({}, {1000, 500}, 7, TYPE + 1);
    const int free_one = event_of({});
    control(free_one).put_status(EVT_C_FREE);
    const int n = event_of({"A", "B"}, {1000, 20500});
    const int first = std::get<2>(slot(n).entries().at(0));
    for (const int other : {foreign, free_one}) slot(other).add_entry("A", data_id, first);
    std::memcpy(block(first), head_bytes({.server = "A", .time = {1000, 500}}, form).data(), 40);
    EXPECT_FALSE(give_back(first)) << "exactly as far off as the mask allows";
    EXPECT_EQ(slot(n).sbfilled(), 1);
    EXPECT_EQ(slot(foreign).sbfilled(), 1);
    EXPECT_EQ(slot(free_one).sbfilled(), 1);
}

TEST_P(EarlyReturn, EventJustOutsideTheMaskIsAnother)
{
    const int n = event_of({"A"}, {1000, 20501});
    std::memcpy(block(0), head_bytes({.server = "A", .time = {1000, 500}}, form).data(), 40);
    EXPECT_FALSE(give_back(0));
    EXPECT_EQ(slot(n).sbfilled(), 1) << "not its event";
    EXPECT_TRUE(block_is_free(0)) << "and returned all the same";
}

TEST_P(EarlyReturn, UnknownModeIsReportedAndTheBlockReturned)
{
    const int n = event_of({"A"});
    bm.smode = 2;
    EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(0)); }), "DATE return_buffer_in_pool_ext(): invalid smode: 2\n");
    EXPECT_TRUE(block_is_free(0));
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

TEST_P(EarlyReturn, BeforeInitTheBlockIsJustReturned)
{
    BM detached;
    join(detached);
    detached.all_clean_up();
    ASSERT_FALSE(detached.add("T_DATA"));
    const int lone = put({});
    EXPECT_EQ(said([&] { EXPECT_FALSE(detached.return_buffer_in_pool_ext(TYPE, lone, data_id)); }), "");
    EXPECT_TRUE(block_is_free(lone));
}

// ---- by event id --------------------------------------------------------------------------------------------------------

struct id_rule {
    int64_t stored; // in the control entry
    int64_t block;  // in the block
    bool found;
    int64_t after; // in the control entry, 2024
    int32_t after_2010;
};

class EarlyReturnById : public EarlyReturn {
  protected:
    EarlyReturnById() { bm.set_smode(BM_SYNCH_EVID); }
    void expect_rule(const id_rule& rule)
    {
        const int n = event_of({"A", "B"}, {1000, 500}, rule.stored);
        const int first = std::get<2>(slot(n).entries().at(0));
        const std::string head = head_bytes({.server = "A", .time = {9999, 0}, .mpulse = rule.block}, form);
        std::memcpy(block(first), head.data(), head.size());
        EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(first)); }), "");
        EXPECT_EQ(slot(n).sbfilled(), rule.found ? 1 : 2) << rule.stored << " meets " << rule.block;
        EXPECT_EQ(control(n).eventid(), wide() ? rule.after : rule.after_2010)
            << rule.stored << " after " << rule.block;
        EXPECT_TRUE(block_is_free(first));
        const captured_output quiet;
        EXPECT_EQ(bm.free_ev_slot(n), !rule.found) << "what went back without its entry cannot go back again";
    }
};
IN_BOTH_GENERATIONS(EarlyReturnById);

constexpr int64_t LARGEST = 0x7FFFFFFF;

TEST_P(EarlyReturnById, EqualIdsMeet)
{
    expect_rule({5, 5, true, 5, 5});
    expect_rule({0, 0, true, 0, 0});
    expect_rule({-5, -5, true, -5, -5});
    expect_rule({5, 6, false, 5, 5});
}

TEST_P(EarlyReturnById, OddOnesMeetTheLargestIdAndAreRaised)
{
    expect_rule({5, LARGEST, true, LARGEST, LARGEST});
    expect_rule({-7, LARGEST, true, LARGEST, LARGEST});
    expect_rule({4, LARGEST, false, 4, 4});
    expect_rule({5, LARGEST - 1, false, 5, 5});
    expect_rule({5, LARGEST - 2, false, 5, 5});
}

TEST_P(EarlyReturnById, CountersThatWrappedMeetAndAreRaised)
{
    // A block of 2010 has 32 bits for its id: the counter that wrapped is a negative one there, and not above 5.
    expect_rule({5, 0x80000005, true, 0x80000005, 5});
    expect_rule({0x80000005, 5, false, 0x80000005, static_cast<int32_t>(0x80000005)});
    if (!wide()) return;
    expect_rule({5, 0x300000005, true, 0x300000005, 0});
    expect_rule({0x80000005, 0x80000005, true, 0x80000005, 0});
    expect_rule({LARGEST + 2, LARGEST, true, LARGEST + 2, 0});
}

TEST_P(EarlyReturnById, TimeIsNotLookedAt)
{
    const int n = event_of({"A", "B"}, {1000, 500}, 5);
    bm.set_time_mask(0);
    const std::string head = head_bytes({.server = "A", .time = {77, 0}, .mpulse = 5}, form);
    std::memcpy(block(0), head.data(), head.size());
    EXPECT_FALSE(give_back(0));
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

TEST_P(EarlyReturnById, FirstMatchWinsAlsoWhenALaterOneIsEqual)
{
    const int odd = event_of({"X"}, {1000, 500}, 5);
    const int equal = event_of({"A", "B"}, {1000, 500}, LARGEST);
    EXPECT_FALSE(give_back(1));
    EXPECT_EQ(slot(equal).sbfilled(), 2) << "it was looked for in the odd one";
    EXPECT_EQ(slot(odd).sbfilled(), 1);
    EXPECT_EQ(control(odd).eventid(), LARGEST);
    EXPECT_TRUE(block_is_free(1));
}

// ---- what others do meanwhile -------------------------------------------------------------------------------------------

TEST_P(EarlyReturn, WaitsForTheTableThenForTheSlot)
{
    const int n = event_of({"A", "B"});
    ASSERT_TRUE(events_part.ctrl(0, true));
    ASSERT_TRUE(events_part.ctrl(n, true));
    std::thread returning([&] { EXPECT_FALSE(give_back(0)); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; }));
    ASSERT_TRUE(events_part.ctrl(0, false));
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4 + n) == 1; }));
    EXPECT_FALSE(event_lock_is_held(0)) << "let go before";
    EXPECT_FALSE(block_is_free(0));
    ASSERT_TRUE(events_part.ctrl(n, false));
    returning.join();
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

TEST_P(EarlyReturn, EventThatCameIntoTheSlotMeanwhileKeepsItsBlocks)
{
    const int n = event_of({"A"});
    ASSERT_TRUE(events_part.ctrl(n, true));
    std::thread returning([&] { EXPECT_FALSE(give_back(0)); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4 + n) == 1; })) << "it has found the slot";
    const int other = put({.server = "NEW"});
    slot(n).put(&slot_layout::sbfilled, 0);
    slot(n).add_entry("NEW", data_id, other);
    ASSERT_TRUE(events_part.ctrl(n, false));
    returning.join();
    EXPECT_EQ(slot(n).entries(), (entries{entry("NEW", other)}));
    EXPECT_TRUE(block_is_free(0));
    EXPECT_FALSE(is_free(n));
}

/// The slot is empty, its lock is let go to take the table's first, and something happens in between.
class EarlyReturnOfTheLast : public EarlyReturn {
  protected:
    void return_while(const std::function<void(int)>& happens)
    {
        n = event_of({"A"});
        // The table's lock is taken for the second time: held from before the slot's lock was given.
        ASSERT_TRUE(events_part.ctrl(n, true));
        std::thread returning([&] { EXPECT_EQ(said([&] { EXPECT_FALSE(give_back(0)); }), ""); });
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4 + n) == 1; }));
        ASSERT_TRUE(events_part.ctrl(0, true));
        ASSERT_TRUE(events_part.ctrl(n, false));
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; }));
        EXPECT_FALSE(event_lock_is_held(n)) << "never the table's inside the slot's";
        ASSERT_TRUE(events_part.ctrl(n, true)); // to see what was written under it
        ASSERT_TRUE(events_part.ctrl(n, false));
        EXPECT_EQ(slot(n).sbfilled(), 0);
        happens(n);
        ASSERT_TRUE(events_part.ctrl(0, false));
        returning.join();
        EXPECT_TRUE(block_is_free(0)) << "the block goes back in any case";
    }
    int n = 0;
};
IN_BOTH_GENERATIONS(EarlyReturnOfTheLast);

TEST_P(EarlyReturnOfTheLast, EventEndsWhenNothingHappens)
{
    return_while([](int) {});
    EXPECT_TRUE(is_free(n));
}

TEST_P(EarlyReturnOfTheLast, EventThatGotABlockGoesOn)
{
    return_while([&](int s) { slot(s).add_entry("LATE", data_id, put({.server = "LATE"})); });
    EXPECT_FALSE(is_free(n));
    EXPECT_EQ(slot(n).sbfilled(), 1);
}

TEST_P(EarlyReturnOfTheLast, SlotThatWasFreedIsNotReturnedTwice)
{
    return_while([&](int s) {
        control(s).put_status(EVT_C_FREE);
        ASSERT_FALSE(events_part.return_buffer(s));
    });
    EXPECT_EQ(events_part.getStat("freebuf"), "9");
}

TEST_P(EarlyReturnOfTheLast, NextEventInTheSlotIsNotEnded)
{
    return_while([&](int s) { slot(s).put_time(&slot_layout::start, {1000, 2}); });
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_FALSE(slot_is_free(n));
}

TEST_P(EarlyReturnOfTheLast, EventWhoseIdMovedEndsAllTheSame)
{
    return_while([&](int s) {
        slot(s).put_wide(&slot_layout::eventid, 8);
        control(s).put(EVT_C_USED, TYPE, {1000, 500}, 8);
    });
    EXPECT_TRUE(is_free(n));
}

TEST_P(EarlyReturn, SignalsDoNotKeepItFromTheLocks)
{
    const int n = event_of({"A"});
    const fault interrupted = fault::fails("semop", EINTR, 1, 3);
    EXPECT_FALSE(give_back(0));
    EXPECT_TRUE(is_free(n));
}

class EarlyReturnAlone : public BothGenerations {};
IN_BOTH_GENERATIONS(EarlyReturnAlone);

TEST_P(EarlyReturnAlone, RemovedLocksReachTheCaller)
{
    in_own_process([](event_host& host) {
        const int n = host.used_slot();
        host.slot(n).add_entry("A", host.data_id, host.put({}));
        host.remove_locks(host.events_semid);
        const captured_output quiet;
        EXPECT_THROW(host.bm.return_buffer_in_pool_ext(event_host::TYPE, 0, host.data_id), SysError);
        clear_ipc_namespace();
    });
}

} // namespace
