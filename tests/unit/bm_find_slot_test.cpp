// The event slot of a block: found by key or id, or taken.
#include "event_host.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class BmFindSlot : public EventHost {
  protected:
    BmFindSlot() { writer({"A", "B"}); }

    int find(const block_spec& b) { return bm.find_ev_slot(TYPE, block(put(b))); }
    int find_at(time_stamp time) { return find({.time = time}); }
    int find_id(int64_t id, generation g = generation::of_2024)
    {
        return bm.find_ev_slot(TYPE, block(put({.time = {5, 5}, .mpulse = id}, g)));
    }
    int used_slots() const
    {
        int used = 0;
        for (int n = 1; n < events_part.getBufferCount(); ++n) used += slot_is_free(n) ? 0 : 1;
        return used;
    }
};
IN_BOTH_GENERATIONS(BmFindSlot);

// ---- a new event

TEST_P(BmFindSlot, TakesASlotAndEntersItInTheTable)
{
    const std::string text = said([&] {
        EXPECT_EQ(
            bm.find_ev_slot(TYPE, block(put({.time = {1000, 500}, .mpulse = 0x1'8000'0005}, generation::of_2024))), 1);
    });
    EXPECT_EQ(text, "");
    EXPECT_FALSE(slot_is_free(1));
    EXPECT_EQ(control(1).status(), EVT_C_USED);
    EXPECT_EQ(control(1).evtype(), TYPE);
    EXPECT_EQ(control(1).key(), (time_stamp{1000, 500}));
    EXPECT_EQ(control(1).eventid(), wide() ? 0x1'8000'0005 : int64_t{INT32_MIN} + 5) << "32 bits of it in 2010";
    EXPECT_EQ(slot(1).nclients(), 1) << "the slot is initialised";
    EXPECT_EQ(control(2).status(), EVT_C_FREE);
}

TEST_P(BmFindSlot, KeepsTheEventLockFromTheSearchToTheEnd)
{
    static bool at_key, at_trigger;
    bm.set_get_key_func(TYPE, [](char* b) {
        at_key = here->event_lock_is_held(0);
        return get_key_known(b);
    });
    bm.set_get_trg_func(TYPE, [](char* b) {
        at_trigger = here->event_lock_is_held(0);
        return get_trg_known(b);
    });
    EXPECT_EQ(find_at({1000, 0}), 1);
    EXPECT_TRUE(at_trigger) << "a new slot is filled under the lock";
    EXPECT_EQ(find_at({1000, 0}), 1);
    EXPECT_FALSE(at_key) << "the block is read before the lock is taken";
}

// ---- by time

TEST_P(BmFindSlot, FindsBlocksThatDifferByTheMask)
{
    const int first = find_at({1700000000, 500000});
    EXPECT_EQ(find_at({1700000000, 520000}), first);
    EXPECT_EQ(find_at({1700000000, 480000}), first);
    const int later = find_at({1700000000, 520001});
    EXPECT_NE(later, first);
    const int earlier = find_at({1700000000, 479999});
    EXPECT_NE(earlier, first);
    EXPECT_NE(earlier, later);
    EXPECT_EQ(used_slots(), 3);
}

TEST_P(BmFindSlot, ComparesWithTheKeyOfTheFirstBlock)
{
    const int first = find_at({1000, 0});
    EXPECT_EQ(find_at({1000, 20000}), first);
    EXPECT_NE(find_at({1000, 40000}), first) << "not with the latest one";
    EXPECT_EQ(control(first).key(), (time_stamp{1000, 0}));
}

TEST_P(BmFindSlot, TakesTheFirstOfTwoThatMatch)
{
    const int first = find_at({1000, 0});
    const int second = find_at({1000, 20001});
    ASSERT_LT(first, second);
    EXPECT_EQ(find_at({1000, 15000}), first) << "nearer to the second one";
}

TEST_P(BmFindSlot, IgnoresIdsInTimeMode)
{
    const int first = find({.time = {1000, 0}, .mpulse = 1});
    EXPECT_EQ(find({.time = {1000, 0}, .mpulse = 2}), first);
    EXPECT_EQ(control(first).eventid(), 1);
}

TEST_P(BmFindSlot, LooksAtUsedEntriesOfItsTypeOnly)
{
    control(1).put(EVT_C_INVALID, TYPE, {1000, 0}, 7);
    control(2).put(EVT_C_FREE, TYPE, {1000, 0}, 7);
    control(3).put(EVT_C_USED, TYPE + 1, {1000, 0}, 7);
    control(4).put(EVT_C_USED, TYPE, {1000, 0}, 7);
    EXPECT_EQ(find_at({1000, 0}), 4) << "also an entry that another process has written";
    EXPECT_EQ(used_slots(), 0);
}

TEST_P(BmFindSlot, LooksAtTheTableToItsEnd)
{
    const int last = events_part.getBufferCount() - 1;
    control(last).put(EVT_C_USED, TYPE, {1000, 0}, 7);
    EXPECT_EQ(find_at({1000, 0}), last);
}

// ---- by id

class BmFindSlotById : public BmFindSlot {
  protected:
    BmFindSlotById() { bm.set_smode(BM_SYNCH_EVID); }
};
IN_BOTH_GENERATIONS(BmFindSlotById);

TEST_P(BmFindSlotById, FindsTheSameIdWhateverTheTime)
{
    const int first = find({.time = {1000, 0}, .mpulse = 12});
    EXPECT_EQ(find({.time = {2000, 0}, .mpulse = 12}), first);
    EXPECT_NE(find({.time = {1000, 0}, .mpulse = 13}), first);
}

TEST_P(BmFindSlotById, FindsAWrappedIdByItsWideForm)
{
    control(3).put(EVT_C_USED, TYPE, {1, 1}, 5);
    EXPECT_EQ(find_id(0x80000005), 3);
    EXPECT_EQ(control(3).eventid(), wide() ? 0x80000005 : 5) << "the smaller stored id is raised, to 31 bits in 2010";
}

TEST_P(BmFindSlotById, FindsAWideIdByItsWrappedForm)
{
    control(3).put(EVT_C_USED, TYPE, {1, 1}, 0x80000005);
    EXPECT_EQ(find_id(5), 3);
    // In 32 bits the stored one is negative, and so the smaller one.
    EXPECT_EQ(control(3).eventid(), wide() ? 0x80000005 : 5);
}

TEST_P(BmFindSlotById, NeverLowersAnId)
{
    control(3).put(EVT_C_USED, TYPE, {1, 1}, 5);
    EXPECT_EQ(find_id(-0x7FFFFFFB, generation::of_2010), 3) << "0x80000005 in 32 bits";
    EXPECT_EQ(control(3).eventid(), 5);
}

TEST_P(BmFindSlotById, WidensIdsOf2010BlocksWithTheirSign)
{
    control(3).put(EVT_C_USED, TYPE, {1, 1}, -2);
    EXPECT_EQ(find_id(-2, generation::of_2010), 3);
    EXPECT_EQ(control(3).eventid(), -2);
}

TEST_P(BmFindSlotById, ComparesIdsAbove31BitsAsWideAsTheTable)
{
    control(3).put(EVT_C_USED, TYPE, {1, 1}, 0x1'0000'0005);
    EXPECT_EQ(find_id(0x1'0000'0005), 3);
    EXPECT_EQ(find_id(5), 3);
    EXPECT_EQ(find_id(0x2'0000'0005), wide() ? 1 : 3) << "32 bits of an id are stored in 2010";
}

TEST_P(BmFindSlotById, TakesTheFirstThatMatchesNotTheBest)
{
    control(2).put(EVT_C_USED, TYPE, {1, 1}, 5);
    control(3).put(EVT_C_USED, TYPE, {1, 1}, wide() ? 0x80000005 : INT32_MIN + 5);
    EXPECT_EQ(find_id(0x80000005), 2);
}

TEST_P(BmFindSlotById, LooksAtUsedEntriesOfItsTypeOnly)
{
    control(1).put(EVT_C_INVALID, TYPE, {1, 1}, 7);
    control(2).put(EVT_C_FREE, TYPE, {1, 1}, 7);
    control(3).put(EVT_C_USED, TYPE + 1, {1, 1}, 7);
    const int last = events_part.getBufferCount() - 1;
    control(last).put(EVT_C_USED, TYPE, {1, 1}, 7);
    EXPECT_EQ(find_id(7), last);
    EXPECT_EQ(control(1).eventid(), 7);
}

TEST_P(BmFindSlotById, RaisesNoIdOfAnotherType)
{
    control(3).put(EVT_C_USED, TYPE + 1, {1, 1}, 5);
    EXPECT_EQ(find_id(0x80000005), 1);
    EXPECT_EQ(control(3).eventid(), 5);
}

// ---- refusals

TEST_P(BmFindSlot, FailsSilentlyWithoutAKeyOrIdReader)
{
    char* at = block(put({}));
    EXPECT_EQ(said([&] {
                  bm.get_key_f.erase(TYPE);
                  EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1) << "no key reader";
                  bm.get_key_f[TYPE] = nullptr;
                  EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1) << "a null one";
                  bm.get_key_f[TYPE] = get_key_known;
                  bm.get_evid_f.erase(TYPE);
                  EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1) << "no id reader";
                  bm.get_evid_f[TYPE] = nullptr;
                  EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1) << "a null one";
                  EXPECT_EQ(bm.find_ev_slot(static_cast<ZRK4_EVTYPE>(32), at), -1) << "no such type";
                  EXPECT_EQ(bm.find_ev_slot(static_cast<ZRK4_EVTYPE>(-1), at), -1);
                  EXPECT_EQ(bm.find_ev_slot(TYPE, nullptr), -1);
              }),
              "");
    EXPECT_EQ(used_slots(), 0);
}

TEST_P(BmFindSlot, FailsBeforeInit)
{
    open_bm alone;
    EXPECT_EQ(alone.find_ev_slot(TYPE, block(put({}))), -1);
}

TEST_P(BmFindSlot, RefusesAModeThatIsNone)
{
    used_slot({1000, 500});
    char* at = block(put({}));
    bm.smode = BM_SYNCH_TOTAL;
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1); }), "DATE BM::find_ev_slot() invalid smode: 2\n");
    EXPECT_EQ(used_slots(), 1);
}

TEST_P(BmFindSlot, GivesUpAfter10001Attempts)
{
    for (int i = 1; i < events_part.getBufferCount(); ++i) ASSERT_EQ(find_at({1000U + static_cast<unsigned>(i), 0}), i);
    char* at = block(put({.time = {5000, 0}}));
    const long before = calls_of("semop");
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1); }),
              "DATE find_ev_slot(): failed to allocate an event slot\n");
    EXPECT_EQ(calls_of("semop") - before, 10001 + 2) << "one per attempt, and lock 0";
    EXPECT_EQ(find_at({1001, 0}), 1) << "events that have a slot are still found";
}

TEST_P(BmFindSlot, FreesTheSlotAgainWhenItCannotBeFilled)
{
    char* at = block(put({}));
    bm.get_sts_f.erase(TYPE);
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1); }), "") << "a missing status reader is silent";
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
    EXPECT_EQ(used_slots(), 0);
}

TEST_P(BmFindSlot, RefusesATypeWithoutAWriterOfThisProcess)
{
    char* at = block(put({}));
    const auto other = static_cast<ZRK4_EVTYPE>(TYPE + 1);
    client({.cltype = CLI_T_WRITER, .evtype = other});
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(other, at), -1); }),
              "DATE init_ev_slot(): no write registration found for event type: 2\n")
        << "a writer slot of this pid that this object did not take is not its registration";
    EXPECT_EQ(used_slots(), 0);
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
}

TEST_P(BmFindSlot, FindsEventsOfATypeItDoesNotWrite)
{
    const auto other = static_cast<ZRK4_EVTYPE>(TYPE + 1);
    const int n = used_slot({1000, 500}, 7, other);
    EXPECT_EQ(bm.find_ev_slot(other, block(put({}))), n);
}

TEST_P(BmFindSlot, RefusesATypeOutOfRangeThatHasReaders)
{
    char* at = block(put({.time = {1000, 500}}, generation::of_2010));
    bm.set_get_key_func(40, get_key_known);
    bm.set_get_evid_func(40, get_evid_known);
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(static_cast<ZRK4_EVTYPE>(40), at), -1); }),
              "DATE init_ev_slot(): invalid parameter(s) evtype:40 bnum:1 evhd:1000\n");
    EXPECT_EQ(used_slots(), 0);
}

// ---- slots that must not be used

TEST_P(BmFindSlot, KeepsBuffer0OutWhenItIsStillInTheQueue)
{
    clients_part.return_buffer(0);
    events_part.return_buffer(0);
    for (int i = 1; i < events_part.getBufferCount(); ++i) EXPECT_EQ(find_at({1000U + static_cast<unsigned>(i), 0}), i);
    EXPECT_EQ(find_at({9000, 0}), -1);
    EXPECT_FALSE(slot_is_free(0));
    clients_part.get_buffer(BM_NO_WAIT, true);
}

class BmFindSlotInALongTable : public EventHost {
  protected:
    BmFindSlotInALongTable() : EventHost({.event_slots = 12, .event_length = 121}) { writer({}); }
};
IN_BOTH_GENERATIONS(BmFindSlotInALongTable);

// Entries that do not end inside buffer 0 would be written over the slots behind it.
TEST_P(BmFindSlotInALongTable, UsesTheSlotsWhoseEntriesLieInBuffer0)
{
    const int usable = 121 / (wide() ? 24 : 20);
    const auto find = [&](unsigned seconds) { return bm.find_ev_slot(TYPE, block(put({.time = {seconds, 0}}))); };
    for (int i = 1; i <= usable; ++i) EXPECT_EQ(find(100U + static_cast<unsigned>(i)), i);
    EXPECT_EQ(find(999), -1);
    for (int i = 1; i <= usable; ++i) {
        EXPECT_EQ(find(100U + static_cast<unsigned>(i)), i) << "found again";
        EXPECT_EQ(slot(i).time(&slot_layout::time).timeup, 100U + static_cast<unsigned>(i)) << "not written over";
    }
    EXPECT_FALSE(bm.free_ev_slot(2)) << "false is success";
    EXPECT_EQ(find(999), 2);
}

TEST_P(BmFindSlot, WorksInAPartitionWithOneSlot)
{
    // Scans run over the entries of slots that exist, of which there may be none but one.
    const int last = events_part.getBufferCount() - 1;
    for (int i = 1; i < last; ++i) ASSERT_EQ(find_at({1000U + static_cast<unsigned>(i), 0}), i);
    EXPECT_EQ(find_at({5000, 0}), last);
    EXPECT_EQ(find_at({5000, 0}), last);
}

class BmFindSlotWithoutSlots : public EventHost {
  protected:
    BmFindSlotWithoutSlots() : EventHost({.event_slots = 0}) { writer({}); }
};
IN_BOTH_GENERATIONS(BmFindSlotWithoutSlots);

TEST_P(BmFindSlotWithoutSlots, GoesStraightToAllocationAndFails)
{
    for (const int mode : {BM_SYNCH_TIME, BM_SYNCH_EVID}) {
        bm.set_smode(mode);
        EXPECT_EQ(said([&] { EXPECT_EQ(bm.find_ev_slot(TYPE, block(put({}))), -1); }),
                  "DATE find_ev_slot(): failed to allocate an event slot\n");
    }
}

// ---- semaphores that fail

class BmFindSlotWithoutLocks : public BothGenerations {};
IN_BOTH_GENERATIONS(BmFindSlotWithoutLocks);

TEST_P(BmFindSlotWithoutLocks, OfTheEventsFindsNothing)
{
    in_own_process([](event_host& host) {
        host.writer({});
        char* at = host.block(host.put({}));
        host.remove_locks(host.events_semid);
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_EQ(host.bm.find_ev_slot(host.TYPE, at), -1)); }),
                  "throw C_shm::ctrl UP sem: 4   errno: 22  semid: " + std::to_string(host.events_semid) + "\n");
    });
}

TEST_P(BmFindSlotWithoutLocks, OfTheClientsLeavesNoHalfOfAnEvent)
{
    in_own_process([](event_host& host) {
        host.writer({});
        char* at = host.block(host.put({}));
        host.remove_locks(host.clients_semid);
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_EQ(host.bm.find_ev_slot(host.TYPE, at), -1)); }),
                  "throw C_shm::ctrl UP sem: 4   errno: 22  semid: " + std::to_string(host.clients_semid) + "\n");
        EXPECT_EQ(host.control(1).status(), EVT_C_FREE);
        EXPECT_TRUE(host.slot_is_free(1));
        EXPECT_FALSE(host.event_lock_is_held(0));
    });
}

TEST_P(BmFindSlot, FreesSlotAndLockWhenAHeadReaderThrows)
{
    char* at = block(put({}));
    bm.set_get_trg_func(TYPE, [](char*) -> int { throw std::runtime_error("of the user's"); });
    EXPECT_NO_THROW(EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1));
    EXPECT_EQ(used_slots(), 0);
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
    EXPECT_FALSE(event_lock_is_held(0));
}

TEST_P(BmFindSlot, TriesALockAgainAfterASignal)
{
    char* at = block(put({}));
    const fault interrupted = fault::fails("semop", EINTR);
    EXPECT_EQ(bm.find_ev_slot(TYPE, at), 1);
    EXPECT_EQ(interrupted.fired(), 1);
}

} // namespace
