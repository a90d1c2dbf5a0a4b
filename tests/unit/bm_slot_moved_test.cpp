// The moment between the search for an event's slot and the slot's own lock: the event may end there, and the slot be
// another one's.
#include <cerrno>

#include "event_host.h"
#include "eventually.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class BmSlotMoved : public EventHost {
  protected:
    BmSlotMoved() { writer({"A", "B"}); }

    /// Runs `action` before each call into the kernel that takes a lock right after the event partition's lock 0 was
    /// given back, at most `times` times: between search and entry.
    auto between(std::function<void()> action, int times = 1)
    {
        return fault::preceded(
            "semop",
            [this, action = std::move(action), left = times, was_held = false]() mutable {
                const bool held = event_lock_is_held(0);
                if (was_held && !held && left-- > 0) action();
                was_held = held;
            },
            1, FOR_EVER);
    }
    /// An event of two blocks in slot 1, of which this process delivers both.
    void begin(time_stamp key, int64_t id = 7)
    {
        ASSERT_EQ(used_slot(key, id), 1);
        slot(1).add_client(1, PROC);
        slot(1).put(&slot_layout::nsblocks, 2);
    }
    bool enter(int bnum) { return bm.ev_update(TYPE, data_id, bnum); }
    int used_slots() const
    {
        int used = 0;
        for (int n = 1; n < events_part.getBufferCount(); ++n) used += control(n).status() == EVT_C_USED ? 1 : 0;
        return used;
    }
};
IN_BOTH_GENERATIONS(BmSlotMoved);

TEST_P(BmSlotMoved, SearchesAgainWhenTheEventHasEnded)
{
    const int first = put({.server = "A"});
    ASSERT_FALSE(enter(first));
    const int second = put({.server = "B"});
    const fault ends = between([&] { bm.free_ev_slot(1); });
    EXPECT_FALSE(enter(second)) << "false is success";
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
    EXPECT_TRUE(block_is_free(first));
    EXPECT_EQ(control(2).status(), EVT_C_USED);
    EXPECT_EQ(slot(2).entries(), (std::vector<seen_entry>{{"B", data_id, second}}));
    EXPECT_EQ(slot(2).nsblocks(), 2) << "a new event that is initialised";
}

TEST_P(BmSlotMoved, SearchesAgainWhenTheSlotIsAnotherEventsByKey)
{
    const int bnum = put({.server = "A", .time = {1000, 0}});
    begin({1000, 0});
    const fault reused = between([&] { control(1).put(EVT_C_USED, TYPE, {2000, 0}, 7); });
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 0);
    EXPECT_EQ(slot(2).sbfilled(), 1);
}

TEST_P(BmSlotMoved, SearchesAgainWhenTheSlotIsAnotherEventsByType)
{
    const int bnum = put({.server = "A", .time = {1000, 0}});
    begin({1000, 0});
    const fault reused = between([&] { control(1).put(EVT_C_USED, TYPE + 1, {1000, 0}, 7); });
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 0);
    EXPECT_EQ(slot(2).sbfilled(), 1);
}

TEST_P(BmSlotMoved, SearchesAgainWhenTheSlotIsAnotherEventsById)
{
    bm.set_smode(BM_SYNCH_EVID);
    const int bnum = put({.server = "A", .time = {1000, 0}, .mpulse = 7});
    begin({1000, 0}, 7);
    const fault reused = between([&] { control(1).put(EVT_C_USED, TYPE, {1000, 0}, 8); });
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 0);
    EXPECT_EQ(slot(2).sbfilled(), 1);
}

TEST_P(BmSlotMoved, StaysWhenAnotherWriterHasRaisedTheId)
{
    bm.set_smode(BM_SYNCH_EVID);
    const int bnum = put({.server = "A", .time = {1000, 0}, .mpulse = 5});
    begin({1000, 0}, 5);
    const fault raised = between([&] { control(1).put(EVT_C_USED, TYPE, {1000, 0}, 0x80000005); });
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 1);
    EXPECT_EQ(used_slots(), 1);
}

TEST_P(BmSlotMoved, StaysWhenOnlyTheHeadSaysOtherwise)
{
    const int bnum = put({.server = "A", .time = {1000, 0}});
    begin({1000, 0});
    const fault changed = between([&] { slot(1).put_time(&slot_layout::time, {2000, 0}); });
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 1) << "the control entry decides";
}

// The copy of the entry decides, not the block: within the mask a block's key differs from its event's.
TEST_P(BmSlotMoved, StaysWhenTheBlocksKeyIsNotTheEventsOwn)
{
    const int bnum = put({.server = "A", .time = {1000, 20000}});
    begin({1000, 0});
    EXPECT_FALSE(enter(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 1);
}

TEST_P(BmSlotMoved, IsTakenAsItIsAfterThreeFurtherSearches)
{
    const int bnum = put({.server = "A"});
    ASSERT_EQ(bm.find_ev_slot(TYPE, block(bnum)), 1);
    int ended = 0;
    const fault ends = between(
        [&] {
            bm.free_ev_slot(++ended);
            EXPECT_EQ(bm.find_ev_slot(TYPE, block(bnum)), ended + 1) << "and is there again elsewhere";
        },
        100);
    EXPECT_FALSE(enter(bnum)) << "entered, by the letter, into an event that has ended";
    EXPECT_EQ(ended, 4);
    EXPECT_EQ(slot(5).sbfilled(), 0);
    EXPECT_EQ(slot(4).entries(), (std::vector<seen_entry>{{"A", data_id, bnum}}));
}

TEST_P(BmSlotMoved, IsNobodysConcernWhenTheCallerNamesIt)
{
    begin({1000, 500});
    control(1).put_status(EVT_C_FREE);
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"}), 1));
    EXPECT_EQ(slot(1).sbfilled(), 1);
}

// ---- the moment between the last look at an event's clients and its end

class BmEventEnded : public BmSlotMoved {
  protected:
    /// Ends the event of slot 1 and begins another one in it.
    void reuse_slot_1()
    {
        bm.free_ev_slot(1);
        while (bm.find_ev_slot(TYPE, block(other)) != 1) bm.free_ev_slot(bm.find_ev_slot(TYPE, block(other)));
    }
    const int other = put({.server = "B", .time = {2000, 0}});
};
IN_BOTH_GENERATIONS(BmEventEnded);

TEST_P(BmEventEnded, LeavesTheNextEventInTheSlotAlone)
{
    init_slot({.time = {1000, 0}});
    control(1).put(EVT_C_USED, TYPE, {1000, 0}, 7);
    slot(1).put_client_status(0, DONE);
    slot(1).put(&slot_layout::nsblocks, 0);
    // Take and give of the slot's lock, then lock 0 to end the event.
    const fault reused = fault::preceded(
        "semop", [&] { reuse_slot_1(); }, 3);
    EXPECT_EQ(bm.cl_notify(1), 0);
    EXPECT_EQ(reused.fired(), 1);
    EXPECT_EQ(control(1).status(), EVT_C_USED) << "the new event lives";
    EXPECT_EQ(slot(1).time(&slot_layout::time), (time_stamp{2000, 0}));
    EXPECT_FALSE(slot_is_free(1));
}

TEST_P(BmEventEnded, LeavesTheNextEventAloneWhenItsLastBlockCameIn)
{
    ASSERT_FALSE(enter(put({.server = "A", .time = {1000, 0}})));
    const int last = put({.server = "B", .time = {1000, 0}});
    // Lock 0, take and give; the slot's, take and give; lock 0 to end the event.
    const fault reused = fault::preceded(
        "semop", [&] { reuse_slot_1(); }, 5);
    EXPECT_FALSE(enter(last));
    EXPECT_EQ(reused.fired(), 1);
    EXPECT_EQ(control(1).status(), EVT_C_USED);
    EXPECT_EQ(slot(1).time(&slot_layout::time), (time_stamp{2000, 0}));
}

TEST_P(BmEventEnded, LeavesTheNextEventAloneThatCameInTheMiddleOfALook)
{
    ASSERT_EQ(used_slot({1000, 0}), 1);
    slot(1).put(&slot_layout::nsblocks, 1);
    slot(1).add_client(client({.names = {"A"}}), WAIT);
    slot(1).add_entry("A", data_id, put({.server = "A"}));
    // The last reader is forced to be done; before that another process has ended the event.
    const fault reused = fault::preceded("socket", [&] { reuse_slot_1(); });
    const fault unreachable = fault::fails("sendto", ENETUNREACH);
    said([&] { EXPECT_EQ(bm.cl_notify(1), 0); });
    EXPECT_EQ(reused.fired(), 1);
    EXPECT_EQ(unreachable.fired(), 1);
    EXPECT_EQ(control(1).status(), EVT_C_USED);
    EXPECT_EQ(slot(1).time(&slot_layout::time), (time_stamp{2000, 0}));
}

// A look at a slot while the next event is being made there would see no client yet, and nothing that is not done.
TEST_P(BmEventEnded, LeavesAnEventAloneThatIsJustBeingMade)
{
    latch half_made;
    child late([&] {
        open_bm own;
        join(own);
        half_made.wait();
        EXPECT_EQ(own.cl_notify(1), 0);
    });
    char* first = block(put({.server = "A", .time = {1000, 0}}));
    // Head written, clients not: the first lock inside is the one of the client control record.
    bool at_clients = false;
    const fault in_between = fault::preceded(
        "semop",
        [&] {
            if (at_clients || slot(1).time(&slot_layout::time).timeup != 1000) return;
            at_clients = true;
            half_made.open();
            EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4 + 1) == 1; })) << "it waits to look";
        },
        1, FOR_EVER);
    EXPECT_EQ(bm.find_ev_slot(TYPE, first), 1);
    EXPECT_TRUE(at_clients);
    EXPECT_EQ(late.wait(), 0);
    EXPECT_EQ(control(1).status(), EVT_C_USED);
    EXPECT_FALSE(slot_is_free(1));
    EXPECT_EQ(slot(1).word(&slot_layout::pid), getpid());
}

// A late look at the event before has the slot's lock: what it writes there belongs to that one.
TEST_P(BmEventEnded, NextEventIsMadeWhenALateLookIsOver)
{
    char* first = block(put({.server = "A", .time = {2000, 0}}));
    slot(1).put_time(&slot_layout::time, {1000, 0});
    ASSERT_TRUE(events_part.ctrl(1, true)); // by somebody who is late
    bool untouched = false;
    const fault late = fault::preceded(
        "semop",
        [&, calls = 0]() mutable {
            // Three calls take the slot out of the queue; the others wait, or make the event.
            if (!event_lock_is_held(0) || ++calls != 6) return;
            untouched = slot(1).time(&slot_layout::time) == time_stamp{1000, 0};
            EXPECT_TRUE(events_part.ctrl(1, false));
        },
        1, FOR_EVER);
    EXPECT_EQ(bm.find_ev_slot(TYPE, first), 1);
    EXPECT_TRUE(untouched);
    EXPECT_EQ(slot(1).time(&slot_layout::time), (time_stamp{2000, 0}));
    EXPECT_FALSE(event_lock_is_held(1));
}

TEST_P(BmEventEnded, NextEventIsMadeAlsoWhenTheSlotsLockIsNotToBeHad)
{
    char* first = block(put({.server = "A", .time = {2000, 0}}));
    ASSERT_TRUE(events_part.ctrl(1, true)); // by somebody who stands still
    EXPECT_EQ(bm.find_ev_slot(TYPE, first), 1);
    EXPECT_EQ(slot(1).time(&slot_layout::time), (time_stamp{2000, 0}));
    ASSERT_TRUE(events_part.ctrl(1, false));
}

// All clients are done although a block is missing: its writer has left, and comes back with it at the last moment.
TEST_P(BmEventEnded, TakesALateBlockAlong)
{
    ASSERT_EQ(used_slot({1000, 0}), 1);
    slot(1).add_client(client({}), DONE);
    slot(1).put(&slot_layout::nsblocks, 2);
    const int first = put({.server = "A"});
    const int late = put({.server = "B"});
    slot(1).add_entry("A", data_id, first);
    bool entered = false;
    const fault enters = fault::preceded(
        "semop",
        [&, calls = 0]() mutable {
            ++calls;
            const bool look_is_over = calls == 3; // and the end has not begun
            if (look_is_over) {
                EXPECT_TRUE(events_part.ctrl(1, true));
            }
            if (calls != 6) return;
            entered = true;
            slot(1).add_entry("B", data_id, late);
            EXPECT_TRUE(events_part.ctrl(1, false));
        },
        1, FOR_EVER);
    said([&] { EXPECT_EQ(bm.cl_notify(1), 0); });
    EXPECT_TRUE(entered);
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_TRUE(block_is_free(first));
    EXPECT_TRUE(block_is_free(late));
}

TEST_P(BmEventEnded, IsNotEndedTwice)
{
    ASSERT_FALSE(enter(put({.server = "A"})));
    const int last = put({.server = "B"});
    const fault ended = fault::preceded(
        "semop", [&] { bm.free_ev_slot(1); }, 5);
    EXPECT_EQ(said([&] { EXPECT_FALSE(enter(last)); }), "");
    EXPECT_EQ(ended.fired(), 1);
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_TRUE(block_is_free(last));
}

} // namespace
