// A look at the clients of an event: who is told, and who is forced to be done.
#include <cerrno>
#include <climits>
#include <cstdint>

#include <sys/mman.h>

#include "SysError.h"
#include "event_clients.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class BmClNotify : public EventClients {};
IN_BOTH_GENERATIONS(BmClNotify);

/// A page that whoever touches dies of, for the life of the object.
class forbidden_page {
  public:
    explicit forbidden_page(char* at) : page_(at - reinterpret_cast<uintptr_t>(at) % SIZE)
    {
        EXPECT_EQ(mprotect(page_, SIZE, PROT_NONE), 0);
    }
    ~forbidden_page() { mprotect(page_, SIZE, PROT_READ | PROT_WRITE); }
    forbidden_page(const forbidden_page&) = delete;
    forbidden_page& operator=(const forbidden_page&) = delete;

  private:
    static constexpr size_t SIZE = 4096;
    char* page_;
};

// ---- slots

TEST_P(BmClNotify, FindsNoSlotWhereThereIsNone)
{
    const int count = events_part.getBufferCount();
    open_bm alone;
    EXPECT_EQ(said([&] {
                  for (const int n : {-1, 0, count}) EXPECT_EQ(bm.cl_notify(n), 0);
                  EXPECT_EQ(alone.cl_notify(1), 0);
              }),
              "DATE cl_notify(): Failed to find event slot: -1\n"
              "DATE cl_notify(): Failed to find event slot: 0\n"
              "DATE cl_notify(): Failed to find event slot: " +
                  std::to_string(count) + "\nDATE cl_notify(): Failed to find event slot: 1\n");
}

TEST_P(BmClNotify, EndsAnEventWithoutClientsAtOnce)
{
    slot(1).put(&slot_layout::nsblocks, 1);
    collect("A");
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(BmClNotify, HoldsTheSlotsLockWhileItTellsReaders)
{
    add_reader({"A"});
    collect("A");
    bool held = false;
    const fault watched = fault::preceded("sendto", [&] { held = event_lock_is_held(1) && !event_lock_is_held(0); });
    EXPECT_EQ(bm.cl_notify(1), 1);
    EXPECT_TRUE(held);
}

TEST_P(BmClNotify, TouchesNoSlotOfAClientThatIsDone)
{
    add_reader({"A"});
    const int reader = add_reader({"A"}, DONE);
    const int writer = add_writer({"B"}, DONE);
    collect("A");
    const forbidden_page of_reader(client_at(reader));
    const forbidden_page of_writer(client_at(writer));
    EXPECT_EQ(bm.cl_notify(1), 1);
}

TEST_P(BmClNotify, ReadsTheCountsUnderTheLock)
{
    add_reader({"A"});
    slot(1).put(&slot_layout::nclients, 0);
    const fault added = fault::preceded("semop", [&] {
        slot(1).put(&slot_layout::nclients, 1);
        collect("A");
    });
    EXPECT_EQ(bm.cl_notify(1), 1) << "what came in before the lock was taken counts";
}

// ---- readers of some blocks

TEST_P(BmClNotify, TellsAReaderWhenItsBlocksAreThere)
{
    add_writer({"A", "B", "C"});
    const int reading = add_reader({"A", "B"});
    collect("A");
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_EQ(status_of(1), WAIT) << "it wants more than there is, and is not forced";
    collect("C");
    EXPECT_EQ(bm.cl_notify(1), 0) << "as many, but not its own";
    EXPECT_EQ(status_of(1), WAIT);
    collect("B");
    EXPECT_EQ(said_notifying(1), "");
    EXPECT_EQ(slot(1).clients().back(), (seen_client{reading, NTF}));
    EXPECT_EQ(datagrams(), 1);
}

TEST_P(BmClNotify, TellsAReaderOnce)
{
    add_reader({"A"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 1);
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_EQ(datagrams(), 1);
    EXPECT_EQ(status_of(0), NTF);
}

TEST_P(BmClNotify, TellsReadersWhileWritersStillWork)
{
    add_writer({"A", "B"}, PROC);
    add_reader({"A"});
    add_reader({"B"});
    add_reader({"A"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 2);
    EXPECT_EQ(slot(1).client_status(0), PROC);
    EXPECT_EQ(slot(1).client_status(2), WAIT);
    EXPECT_EQ(datagrams(), 2);
}

TEST_P(BmClNotify, TellsEachReaderItsPlaceAmongTheClients)
{
    add_writer({"A"});
    const int first = add_reader({"A"});
    const int second = add_reader({"A"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 2);
    for (const auto& [c, i] : {std::pair(first, 1), std::pair(second, 2)}) {
        const std::string datagram = inbox.next();
        EXPECT_EQ(load<int32_t>(datagram.data() + 12), c);
        EXPECT_EQ(load<int32_t>(datagram.data() + 16), i);
    }
}

TEST_P(BmClNotify, NeverTellsAReaderWhoseCountCannotBe)
{
    for (const int count : {-1, INT_MIN, INT_MAX}) store<int32_t>(client_at(add_reader({})) + 44, count);
    collect("A");
    EXPECT_EQ(said_notifying(0), "");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(status_of(i), WAIT) << i;
}

// ---- readers of every block

TEST_P(BmClNotify, TellsAReaderOfEveryBlockWhenEveryWriterIsDone)
{
    add_writer({"A"}, PROC);
    add_reader({});
    add_writer({"B", "C"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 0);
    collect("B");
    EXPECT_EQ(bm.cl_notify(1), 0);
    EXPECT_EQ(status_of(1), WAIT);
    collect("C");
    EXPECT_EQ(said_notifying(1), "");
    EXPECT_EQ(status_of(1), NTF);
    EXPECT_EQ(datagrams(), 1);
}

TEST_P(BmClNotify, TellsReadersOfEveryBlockAfterTheOthers)
{
    const int every = add_reader({});
    const int some = add_reader({"A"});
    add_writer({"A"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 2);
    EXPECT_EQ(load<int32_t>(inbox.next().data() + 12), some);
    EXPECT_EQ(load<int32_t>(inbox.next().data() + 12), every);
}

TEST_P(BmClNotify, TellsAReaderOfEveryBlockAtOnceWhereThereIsNoWriter)
{
    add_reader({});
    EXPECT_EQ(bm.cl_notify(1), 1) << "none of none is missing";
}

// ---- writers

TEST_P(BmClNotify, MarksAWriterDoneWhenItsBlocksAreIn)
{
    const int at_work = add_writer({"A"}, PROC);
    const int waiting = add_writer({"B"});
    add_reader({"X"});
    collect("A");
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_EQ(slot(1).client_status(0), DONE);
    EXPECT_EQ(client_events(at_work), 1);
    EXPECT_EQ(client_atime(at_work), (time_stamp{1, 0})) << "counted, not renewed";
    EXPECT_EQ(slot(1).client_status(1), WAIT);
    EXPECT_EQ(client_events(waiting), 0);
    EXPECT_EQ(bm.cl_notify(1), 0);
    EXPECT_EQ(client_events(at_work), 1) << "counted once";
}

TEST_P(BmClNotify, TakesAWriterThatIsDoneForDoneWithoutItsBlocks)
{
    const int counted_out = add_writer({"A"}, DONE);
    add_reader({});
    EXPECT_EQ(bm.cl_notify(1), 1) << "every writer is done";
    EXPECT_EQ(client_events(counted_out), 0) << "it was counted when it was counted out";
}

TEST_P(BmClNotify, MarksAWriterWithoutNamesDone)
{
    add_writer({});
    add_reader({"X"});
    EXPECT_EQ(bm.cl_notify(1), 0);
    EXPECT_EQ(status_of(0), DONE);
}

TEST_P(BmClNotify, AsksNoWriterForItsType)
{
    add({.cltype = CLI_T_WRITER, .names = {"A"}, .evtype = TYPE + 1});
    add_reader({"X"});
    collect("A");
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_EQ(status_of(0), DONE);
}

// ---- clients that cannot be served

TEST_P(BmClNotify, ForcesAClientWithoutASlot)
{
    add_reader({"X"});
    for (const int c : {clients_part.getBufferCount(), -7, 0}) slot(1).add_client(c, WAIT);
    const std::string count = std::to_string(clients_part.getBufferCount());
    EXPECT_EQ(said_notifying(0),
              "DATE Failed to find a client slot forcing DONE slot: " + count +
                  " client: 1 clients: 4  bunm: 1\n"
                  "DATE Failed to find a client slot forcing DONE slot: -7 client: 2 clients: 4  bunm: 1\n"
                  "DATE Failed to find a client slot forcing DONE slot: 0 client: 3 clients: 4  bunm: 1\n");
    for (int i = 1; i < 4; ++i) EXPECT_EQ(status_of(i), DONE) << i;
    EXPECT_EQ(status_of(0), WAIT);
}

TEST_P(BmClNotify, ForcesAReaderOfAnotherType)
{
    add({.evtype = TYPE + 4});
    add_reader({"X"});
    EXPECT_EQ(said_notifying(0), "DATE Wrong event type for reading forcing DONE  expected:5, seen:1\n");
    EXPECT_EQ(status_of(0), DONE);
    EXPECT_EQ(datagrams(), 0);
}

TEST_P(BmClNotify, ForcesAClientThatNeitherReadsNorWrites)
{
    add({.cltype = CLI_T_INVAL});
    add_reader({"X"});
    EXPECT_EQ(said_notifying(0), "DATE Wrong client type for reading forcing DONE\n");
    EXPECT_EQ(status_of(0), DONE);
}

// A slot that was given back is all zero: of type 0, and no client.
TEST_P(BmClNotify, ForcesAClientThatHasLeft)
{
    const int gone = add_reader({});
    std::memset(client_at(gone), 0, 48);
    add_reader({"X"});
    EXPECT_EQ(said_notifying(0), "DATE Wrong event type for reading forcing DONE  expected:0, seen:1\n");
    EXPECT_EQ(status_of(0), DONE);
    slot(1).put_client_status(0, WAIT);
    slot(1).put(&slot_layout::evtype, ZRK4_EV_HB);
    slot(1).put_client_status(1, NTF);
    EXPECT_EQ(said_notifying(0), "DATE Wrong client type for reading forcing DONE\n") << "an event of type 0";
}

TEST_P(BmClNotify, AsksOnlyWaitingClientsForTypes)
{
    add({.evtype = TYPE + 1}, NTF);
    add({.cltype = CLI_T_INVAL}, PROC);
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_EQ(status_of(0), NTF);
    EXPECT_EQ(status_of(1), PROC);
}

TEST_P(BmClNotify, ForcesAReaderThatCannotBeTold)
{
    add_reader({"A"});
    add_writer({"A", "B"});
    collect("A");
    captured_output captured;
    const fault unreachable = fault::fails("sendto", ENETUNREACH);
    EXPECT_EQ(bm.cl_notify(1), 0);
    EXPECT_EQ(dates_marked(captured.out()), std::string(of_form("sendto() failed\n", "sendto(2024) failed\n")) +
                                                "DATE notification failed -> forcing client DONE\n");
    EXPECT_EQ(captured.err(), "sendto: Network is unreachable\n");
    EXPECT_EQ(status_of(0), DONE);
}

TEST_P(BmClNotify, EndsAnEventWhoseLastReaderCannotBeTold)
{
    add_reader({"A"});
    slot(1).put(&slot_layout::nsblocks, 1);
    collect("A");
    const fault unreachable = fault::fails("sendto", ENETUNREACH);
    said([&] { EXPECT_EQ(bm.cl_notify(1), 0); });
    EXPECT_TRUE(slot_is_free(1)) << "a forced reader counts as done";
}

TEST_P(BmClNotify, ForcesAReaderOfEveryBlockThatCannotBeTold)
{
    add_reader({});
    add_reader({});
    captured_output captured;
    const fault none_left = fault::fails("socket", EMFILE);
    EXPECT_EQ(bm.cl_notify(1), 1) << "the second one is told";
    EXPECT_EQ(dates_marked(captured.out()),
              std::string(of_form("Failed to create socket\n", "Failed to create socket (2024)\n")) +
                  "DATE notification(all) failed -> forcing client DONE\n");
    EXPECT_EQ(captured.err(), "socket: Too many open files\n");
    EXPECT_EQ(status_of(0), DONE);
    EXPECT_EQ(status_of(1), NTF);
}

TEST_P(BmClNotify, WaitsForAnotherLookAfterForcingAReaderOfEveryBlock)
{
    add_reader({});
    const fault unreachable = fault::fails("sendto", ENETUNREACH);
    said([&] { EXPECT_EQ(bm.cl_notify(1), 0); });
    EXPECT_EQ(status_of(0), DONE);
    EXPECT_FALSE(slot_is_free(1)) << "a client forced there does not count as done";
    slot(1).put(&slot_layout::nsblocks, 0);
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_TRUE(slot_is_free(1));
}

TEST_P(BmClNotify, SpeaksOfAClientWithoutASlotAgainForReadersOfEveryBlock)
{
    add_reader({});
    slot(1).add_client(-7, WAIT);
    EXPECT_EQ(said_notifying(1),
              "DATE Failed to find a client slot forcing DONE slot: -7 client: 1 clients: 2  bunm: 1\n"
              "DATE (ALL) Failed to find a client slot forcing DONE\n");
    EXPECT_EQ(slot(1).clients().back(), (seen_client{-7, DONE}));
}

/// Slots with room for two client blocks behind the head.
class BmClNotifyInLittleRoom : public EventHost {
  protected:
    BmClNotifyInLittleRoom() : EventHost({.event_length = layout_of(GetParam()).head + 2 * 8}) {}
};
IN_BOTH_GENERATIONS(BmClNotifyInLittleRoom);

TEST_P(BmClNotifyInLittleRoom, BelievesNoCountThatDoesNotFit)
{
    used_slot();
    taken_slot();
    slot(2).fill('x');
    slot(1).add_client(-7, WAIT);
    slot(1).add_client(-8, WAIT);
    slot(1).put(&slot_layout::nclients, INT_MAX);
    slot(1).put(&slot_layout::sbfilled, INT_MAX);
    slot(1).put(&slot_layout::nsblocks, INT_MAX);
    EXPECT_EQ(said([&] { EXPECT_EQ(bm.cl_notify(1), 0); }),
              "DATE Failed to find a client slot forcing DONE slot: -7 client: 0 clients: 2  bunm: 1\n"
              "DATE Failed to find a client slot forcing DONE slot: -8 client: 1 clients: 2  bunm: 1\n");
    EXPECT_TRUE(slot_is_free(1)) << "its two clients are done";
    EXPECT_EQ(std::string(slot(2).address(), 16), std::string(16, 'x')) << "the next slot was not written into";
}

// ---- semaphores that fail

class BmClNotifyWithoutLocks : public BothGenerations {};
IN_BOTH_GENERATIONS(BmClNotifyWithoutLocks);

TEST_P(BmClNotifyWithoutLocks, LetsTheErrorReachItsCaller)
{
    in_own_process([](event_host& host) {
        host.used_slot();
        host.remove_locks(host.events_semid);
        EXPECT_EQ(out_of([&] { EXPECT_THROW(host.bm.cl_notify(1), SysError); }),
                  "throw C_shm::ctrl UP sem: 5   errno: 22  semid: " + std::to_string(host.events_semid) + "\n");
    });
}

} // namespace
