// The slots of a host, broken by hand in each way in which a death can leave them.
#include "check_host.h"

namespace zrk4::test {
namespace {

class CheckSlots : public CheckHost {
  protected:
    const pid_t dead = dead_pid();
};

TEST_P(CheckSlots, OfLiveClientsAndAnEventIsSound)
{
    writer({"A", "B"});
    counted_client({.cltype = CLI_T_READER});
    const int n = init_slot();
    control(n).put(EVT_C_USED, TYPE, {1000, 500}, 7);
    EXPECT_EQ(found(), lines{});
    EXPECT_EQ(found(true), lines{});
    EXPECT_FALSE(slot_is_free(n));
}

TEST_P(CheckSlots, ADeadClientsSlotComesBack)
{
    const int c = counted_client({.cltype = CLI_T_WRITER, .names = {"A"}, .pid = dead});
    own(clients_part, c, dead);
    expect_mended({"4 broken " + at(CLIENTS, c, dead) + ": client slot " + std::to_string(c) + " belongs to process " +
                   std::to_string(dead) + ", which is gone"});
    EXPECT_TRUE(client_is_free(c));
    EXPECT_TRUE(client_is_zero(c));
    EXPECT_EQ(counter(4), 0);
    EXPECT_EQ(counter(12), 0);
}

TEST_P(CheckSlots, ALiveClientKeepsItsSlot)
{
    bystanders alive;
    const pid_t pid = alive.one_more();
    const int c = counted_client({.cltype = CLI_T_READER, .pid = pid});
    own(clients_part, c, pid);
    EXPECT_EQ(found(true), lines{});
    EXPECT_FALSE(client_is_free(c));
}

TEST_P(CheckSlots, AClientWhoseParentSubscribedItKeepsItsSlot)
{
    bystanders alive;
    const int c = counted_client({.cltype = CLI_T_READER, .pid = dead});
    own(clients_part, c, alive.one_more());
    EXPECT_EQ(found(true), lines{});
    EXPECT_FALSE(client_is_free(c));
}

TEST_P(CheckSlots, AnotherProcessUnderADeadClientsIdIsNotItsOwner)
{
    bystanders alive;
    const pid_t pid = alive.one_more();
    const int c = counted_client({.cltype = CLI_T_READER, .pid = pid});
    own(clients_part, c, pid);
    store(client_at(c) + 4, time_stamp{now().timeup - 60, 0});
    expect_mended({"4 broken " + at(CLIENTS, c, pid) + ": client slot " + std::to_string(c) + " belongs to process " +
                   std::to_string(pid) + ", which is gone"});
}

TEST_P(CheckSlots, ASlotTakenAndNeverFilledComesBack)
{
    const int c = clients_part.buffer_id(clients_part.get_buffer(BM_NO_WAIT, true));
    EXPECT_EQ(found(true), lines{}) << "its taker lives";
    own(clients_part, c, dead);
    expect_mended({"4 broken " + at(CLIENTS, c, dead) + ": client slot " + std::to_string(c) +
                   " was taken by process " + std::to_string(dead) + ", which is gone"});
    EXPECT_TRUE(client_is_free(c));
}

TEST_P(CheckSlots, WrongCountersAreRecounted)
{
    writer({"A"});
    counted_client({.cltype = CLI_T_READER});
    add_to_counter(4, -1);
    add_to_counter(8, 2);
    add_to_counter(12, -1);
    add_to_counter(16 + 4 * 3, 5);
    expect_mended({std::string("7 broken ") + CLIENTS + ": clients are counted as 1, there are 2",
                   std::string("7 broken ") + CLIENTS + ": readers are counted as 3, there are 1",
                   std::string("7 broken ") + CLIENTS + ": writers are counted as 0, there are 1",
                   std::string("7 broken ") + CLIENTS + ": readers of type 3 are counted as 5, there are 0"});
}

TEST_P(CheckSlots, AClientThatIsStillSubscribingIsNotCountedYet)
{
    const int c = client({.cltype = CLI_T_READER, .atime = now()});
    latch taken, go_on;
    child subscribing([&] {
        clients_part.ctrl(c, true);
        taken.open();
        go_on.wait();
    });
    taken.wait();
    EXPECT_EQ(found(true), lines{});
    go_on.open();
    EXPECT_EQ(subscribing.wait(), 0);
    add_to_counter(4, 1);
    add_to_counter(8, 1);
    add_to_counter(16 + 4 * TYPE, 1);
    EXPECT_EQ(found(), lines{});
}

TEST_P(CheckSlots, AnEventSlotInNoEventComesBack)
{
    const int n = taken_slot();
    expect_mended({"6 broken " + at(EVENTS, n, getpid()) + ": event slot " + std::to_string(n) +
                   " is handed out, its control entry is free"});
    EXPECT_TRUE(slot_is_free(n));
}

TEST_P(CheckSlots, AUsedSlotInTheFreeQueueIsTakenOut)
{
    const int n = used_slot();
    events_part.return_buffer(n);
    expect_mended({"6 broken " + at(EVENTS, n, getpid()) + ": event slot " + std::to_string(n) +
                   " is in the free queue, its control entry is used"});
    EXPECT_FALSE(slot_is_free(n));
}

TEST_P(CheckSlots, AControlEntryOfNoKnownStatusFollowsItsSlot)
{
    const int n = used_slot();
    control(n).put_status(7);
    control(n + 1).put_status(9);
    expect_mended({"6 broken " + at(EVENTS, n, getpid()) + ": the control entry of event slot " + std::to_string(n) +
                       " has status 7",
                   std::string("6 broken ") + EVENTS + "[" + std::to_string(n + 1) +
                       "]: the control entry of event slot " + std::to_string(n + 1) + " has status 9"});
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_EQ(control(n + 1).status(), EVT_C_FREE);
}

TEST_P(CheckSlots, ControlRecordsInTheFreeQueueAreTakenOut)
{
    clients_part.return_buffer(0);
    events_part.return_buffer(0);
    expect_mended({std::string("10 broken ") + CLIENTS + "[0]: buffer 0, the control record, is in the free queue",
                   std::string("10 broken ") + EVENTS + "[0]: buffer 0, the control record, is in the free queue"});
    EXPECT_EQ(free_in(clients_part), 24);
    EXPECT_EQ(free_in(events_part), 9);
}

TEST_P(CheckSlots, ABufferOfADeadWriterComesBack)
{
    const int b = put({});
    EXPECT_EQ(found(true), lines{}) << "its writer lives";
    own(data(), b, dead);
    expect_mended({"4 broken " + at("T_DATA", b, dead) + ": buffer " + std::to_string(b) + " was taken by process " +
                   std::to_string(dead) + ", which is gone, and is in no event"});
    EXPECT_TRUE(block_is_free(b));
    EXPECT_EQ(semaphore_value(semid_of(data()), 1), BLOCKS);
}

TEST_P(CheckSlots, AnEventKeepsTheBufferOfADeadWriter)
{
    const int b = put({});
    own(data(), b, dead);
    const int n = used_slot();
    slot(n).put(&slot_layout::nsblocks, 1);
    if (wide()) slot(n).put_first_word(0xFF77FF77FF77FF77);
    slot(n).add_entry("A", data_id, b);
    EXPECT_EQ(found(true), lines{});
    EXPECT_FALSE(block_is_free(b));
}

TEST_P(CheckSlots, ABufferListedTwiceLosesItsSecondEntry)
{
    const int b = put({});
    const int n = used_slot();
    slot(n).add_entry("A", data_id, b);
    slot(n).add_entry("B", data_id, b);
    expect_mended({"5 broken " + at("T_DATA", b, getpid()) + ": buffer " + std::to_string(b) +
                   " is listed twice in event slot " + std::to_string(n)});
    EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"A", data_id, b}, hole("B")}));
}

TEST_P(CheckSlots, ABufferInTwoEventsStaysInTheYounger)
{
    const int b = put({});
    const int older = used_slot({1000, 0});
    const int younger = used_slot({2000, 0});
    slot(older).put_time(&slot_layout::start, {10, 0});
    slot(younger).put_time(&slot_layout::start, {11, 0});
    for (const int n : {older, younger}) slot(n).add_entry("A", data_id, b);
    expect_mended({"5 broken " + at("T_DATA", b, getpid()) + ": buffer " + std::to_string(b) +
                   " is listed in event slots " + std::to_string(older) + " and " + std::to_string(younger)});
    EXPECT_EQ(slot(older).entries(), std::vector<seen_entry>{hole("A")});
    EXPECT_EQ(slot(younger).entries(), (std::vector<seen_entry>{{"A", data_id, b}}));
}

TEST_P(CheckSlots, AnEntryOfAFreeBufferBecomesAHole)
{
    const int b = put({});
    const int n = used_slot();
    slot(n).add_entry("A", data_id, b);
    data().return_buffer(b);
    expect_mended({"4 broken T_DATA[" + std::to_string(b) + "]: buffer " + std::to_string(b) +
                   " is in the free queue and listed in event slot " + std::to_string(n)});
    EXPECT_EQ(slot(n).entries(), std::vector<seen_entry>{hole("A")});
}

// Somebody died after he had made the entry a hole and before its buffer was back.
class CheckReturning : public CheckHost {
  protected:
    int event_with_mark(const std::string& name)
    {
        const int n = used_slot();
        slot(n).put_wide(&slot_layout::eventid, 7);
        slot(n).add_entry(name, data_id, -1);
        return n;
    }
};

TEST_P(CheckReturning, ABufferOnItsWayBackIsToldByItsMark)
{
    const int b = put({.server = "A"});
    const int n = event_with_mark("A");
    expect_mended({"4 broken " + at("T_DATA", b, getpid()) + ": buffer " + std::to_string(b) +
                   " was on its way back when a process died"});
    EXPECT_TRUE(block_is_free(b));
    EXPECT_EQ(slot(n).entries(), std::vector<seen_entry>{hole("A")});
}

TEST_P(CheckReturning, OneMarkAndTwoBuffersDecideNothing)
{
    const int b = put({.server = "A"});
    const int other = put({.server = "B"});
    event_with_mark("A");
    const lines undecided{"4 undecidable " + at("T_DATA", b, getpid()) + ": buffer " + std::to_string(b) +
                          " is held by process " + std::to_string(getpid()) +
                          ", or was on its way back when another process died"};
    EXPECT_EQ(found(), undecided);
    EXPECT_EQ(found(true), undecided);
    EXPECT_FALSE(block_is_free(b));
    EXPECT_FALSE(block_is_free(other));
}

TEST_P(CheckReturning, ABufferThatIsNotTheMarksIsNeverTaken)
{
    const int b = put({.server = "B", .time = {2000, 0}, .mpulse = 8});
    event_with_mark("A");
    EXPECT_EQ(found(true).size(), 1U);
    EXPECT_FALSE(block_is_free(b));
}

TEST_P(CheckReturning, AMarkWhoseBufferIsBackIsForgotten)
{
    const int n = event_with_mark("A");
    EXPECT_EQ(found(), lines{});
    EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"A", data_id, -1}}));
    EXPECT_EQ(found(true), lines{});
    EXPECT_EQ(slot(n).entries(), std::vector<seen_entry>{hole("A")});
}

TEST_P(CheckSlots, HeldBuffersAreListedOnRequest)
{
    const int b = put({});
    expect_held_here(b);
}

TEST_P(CheckSlots, AnEventIsEndedWhoseReaderHasAYoungerProcessInItsPlace)
{
    bystanders alive;
    const pid_t pid = alive.one_more();
    const int c = counted_client({.cltype = CLI_T_READER, .pid = pid});
    own(clients_part, c, pid);
    const int b = put({});
    const int n = used_slot();
    slot(n).put_time(&slot_layout::start, {now().timeup - 60, 0});
    slot(n).add_client(c, PROC);
    slot(n).add_entry("A", data_id, b);
    const std::string text = ": event slot " + std::to_string(n) + " waits for client slot " + std::to_string(c) +
                             ", whose process " + std::to_string(pid) + " began after the event";
    expect_mended({"4 broken " + at(EVENTS, n, pid) + text});
    EXPECT_TRUE(block_is_free(b));
    EXPECT_TRUE(slot_is_free(n));
    EXPECT_EQ(control(n).status(), EVT_C_FREE);
}

TEST_P(CheckSlots, AnEventIsEndedWhoseReadersSlotHasAnotherType)
{
    const int c = counted_client({.cltype = CLI_T_READER, .evtype = TYPE + 1});
    const int other = counted_client({.cltype = CLI_T_READER});
    const int n = used_slot();
    slot(n).put_time(&slot_layout::start, now());
    slot(n).add_client(c, PROC);
    slot(n).add_client(other, PROC);
    expect_mended({"4 broken " + at(EVENTS, n, getpid()) + ": event slot " + std::to_string(n) +
                   " waits for client slot " + std::to_string(c) + ", which has a client of another event type"});
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{c, DONE}, {other, PROC}}));
    EXPECT_FALSE(slot_is_free(n)) << "the other reader is at work";
}

TEST_P(CheckSlots, ASlowReaderKeepsItsEvent)
{
    const int c = counted_client({.cltype = CLI_T_READER});
    const int n = used_slot();
    slot(n).put_time(&slot_layout::start, now());
    slot(n).add_client(c, PROC);
    EXPECT_EQ(found(true), lines{});
    EXPECT_EQ(slot(n).client_status(0), PROC);
}

TEST_P(CheckSlots, RecordsOfTheOtherGenerationAreAnAnswer)
{
    writer({"A"});
    const int n = init_slot();
    control(n).put(EVT_C_USED, TYPE, {1000, 500}, 7);
    bm_check_request asked = request(true);
    asked.records_2024 = !asked.records_2024;
    const std::string before(events_part.buffer_addr(0), static_cast<size_t>(events_part.getBufferLength()));
    const bm_check_report report = bm_check(asked);
    EXPECT_EQ(lines_of(report), lines{});
    EXPECT_FALSE(report.complete());
    const auto is_events = [](const bm_checked_partition& p) { return p.name == EVENTS; };
    const auto at = std::find_if(report.partitions.begin(), report.partitions.end(), is_events);
    ASSERT_NE(at, report.partitions.end());
    EXPECT_EQ(at->state, bm_check_state::other_records);
    EXPECT_EQ(at->text, "its slots hold records of the other generation");
    EXPECT_EQ(std::string(events_part.buffer_addr(0), before.size()), before) << "nothing was mended";
}

TEST_P(CheckSlots, TakesNoSlotAndIsNoUser)
{
    const int users = use_count_of(events_part);
    const int slots = free_in(clients_part);
    found(true);
    EXPECT_EQ(use_count_of(events_part), users);
    EXPECT_EQ(free_in(clients_part), slots);
    EXPECT_EQ(locks_held(), "");
}

IN_BOTH_GENERATIONS(CheckSlots);
IN_BOTH_GENERATIONS(CheckReturning);

} // namespace
} // namespace zrk4::test
