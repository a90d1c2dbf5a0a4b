// Datagrams that the reader thread does not take: every reason, its text, its count.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "reader_host.h"

using namespace zrk4::test;

namespace {

/// Sleeps that were begun, and what makes them last longer than they should.
std::atomic<int> sleeps{0};
std::atomic<const std::atomic<bool>*> asleep_while{nullptr};

} // namespace

// In the place of the system's.
extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds)
{
    ++sleeps;
    const timespec time{microseconds / 1'000'000, static_cast<long>(microseconds % 1'000'000) * 1000};
    int result = 0;
    do result = nanosleep(&time, nullptr);
    while (asleep_while != nullptr && *asleep_while.load());
    return result;
}

namespace {

/// A reader with one event of which it was notified.
class ReaderRejects : public ReaderHost {
  protected:
    int reader = listen();
    int n = notified_event(reader);
    captured_output captured;

    /// What the reader says about a datagram that it rejects.
    std::string answer(const datagram& d) { return answer(datagram_bytes(d, form)); }
    std::string answer(const std::string& bytes)
    {
        captured.forget();
        const int before = rejected();
        deliver(bytes);
        EXPECT_EQ(rejected(), before + 1) << "counted once";
        EXPECT_EQ(calls, 0) << "not handed to the program";
        EXPECT_EQ(captured.err(), "");
        return dates_marked(captured.out());
    }
    void expect_untouched()
    {
        EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{reader, NTF}}));
        EXPECT_EQ(control(n).status(), EVT_C_USED);
        EXPECT_EQ(blocks_out(), 1);
    }
    // A case that expects nothing to change says so with the event itself: it can still be delivered.
    void expect_still_deliverable()
    {
        deliver(message_of(n, reader));
        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(slot_is_free(n));
    }
};
IN_BOTH_GENERATIONS(ReaderRejects);

TEST_P(ReaderRejects, ShorterDatagram)
{
    const std::string whole = datagram_bytes(message_of(n, reader), form);
    for (const size_t length : {whole.size() - 1, size_t{32 - 8}, size_t{1}, size_t{0}})
        EXPECT_EQ(answer(whole.substr(0, length)), "reader_thread: recv() got wrong length\n") << length;
    expect_untouched();
    expect_still_deliverable();
}

TEST_P(ReaderRejects, UnknownSlotsWithoutAWord)
{
    const datagram good = message_of(n, reader);
    for (const int number : {0, -1, 10, 11, 1 << 20, INT_MIN, INT_MAX}) {
        datagram d = good;
        d.evslot = number;
        EXPECT_EQ(answer(d), "") << "event slot " << number;
    }
    for (const int number : {0, -1, 25, 26, 1 << 20, INT_MIN, INT_MAX}) {
        datagram d = good;
        d.clslot = number;
        EXPECT_EQ(answer(d), "") << "client slot " << number;
    }
    expect_untouched();
    expect_still_deliverable();
}

TEST_P(ReaderRejects, EventOfAnotherTypeThanTheClient)
{
    slot(n).put_time(&slot_layout::time, {1700000000, 123456});
    slot(n).put_wide(&slot_layout::evsize, 4000);
    slot(n).put(&slot_layout::pid, 77);
    slot(n).put(&slot_layout::nsblocks, 3);
    const int other = client({.evtype = 5});
    const std::string id = std::to_string(slot(n).eventid());
    EXPECT_EQ(answer(message_of(n, other)), "DATE reader_thread: event types mismatch expected: 5 found: 1\n"
                                            "DATE reader_thread: 1700000000:123456_" +
                                                id +
                                                "   ev_type:1  pid: 77  ev.size: 4000 blocks:3 filled:1 clients: 1\n");
    expect_untouched();
}

TEST_P(ReaderRejects, EventOfAnotherTypeWithTheWidestNumbers)
{
    slot(n).put_time(&slot_layout::time, {4294967295U, 4294967294U});
    slot(n).put_wide(&slot_layout::eventid, wide() ? -9007199254740993 : -3);
    slot(n).put_wide(&slot_layout::evsize, wide() ? 9007199254740993 : -4);
    slot(n).put(&slot_layout::pid, -1);
    const int other = client({.evtype = 31});
    EXPECT_EQ(
        answer(message_of(n, other)),
        std::string("DATE reader_thread: event types mismatch expected: 31 found: 1\n") +
            of_form("DATE reader_thread: -1:-2_-3   ev_type:1  pid: -1  ev.size: -4 blocks:1 filled:1 clients: 1\n",
                    "DATE reader_thread: -1:-2_-9007199254740993   ev_type:1  pid: -1  ev.size: 9007199254740993 "
                    "blocks:1 filled:1 clients: 1\n"));
}

TEST_P(ReaderRejects, FreedClientSlotByItsType)
{
    const int gone = client({});
    reading.free_cl_slot(gone, nullptr);
    EXPECT_EQ(answer(message_of(n, gone)).substr(0, 70),
              "DATE reader_thread: event types mismatch expected: 0 found: 1\nDATE rea");
    expect_untouched();
}

TEST_P(ReaderRejects, StaleSeconds)
{
    datagram d = message_of(n, reader);
    d.timeup += 1;
    EXPECT_EQ(answer(d), "DATE reader_thread: event (1) stamp invalid (old event): event:1000_7  msg: 1001_7\n");
    expect_untouched();
    expect_still_deliverable();
}

TEST_P(ReaderRejects, StaleEventId)
{
    datagram d = message_of(n, reader);
    d.event = -8;
    EXPECT_EQ(answer(d), "DATE reader_thread: event (1) stamp invalid (old event): event:1000_7  msg: 1000_-8\n");
    expect_untouched();
    expect_still_deliverable();
}

TEST_P(ReaderRejects, StaleEventIdInAllItsWidth)
{
    slot(n).put_wide(&slot_layout::eventid, wide() ? 0x100000005 : -5);
    datagram d = message_of(n, reader);
    d.event = 5;
    EXPECT_EQ(answer(d),
              of_form("DATE reader_thread: event (1) stamp invalid (old event): event:1000_-5  msg: 1000_5\n",
                      "DATE reader_thread: event (1) stamp invalid (old event): event:1000_4294967301  msg: "
                      "1000_5\n"));
}

TEST_P(ReaderRejects, DatagramOfASlotThatWasReusedAsStale)
{
    const datagram old = message_of(n, reader);
    ASSERT_FALSE(reading.free_ev_slot(n));
    ASSERT_EQ(events_part.getStat("freebuf"), "9");
    store<int32_t>(events_part.buffer_addr(n), 0); // whoever takes the slot next clears it
    for (int i = 1; i < 9; ++i) used_slot();       // the queue is a ring: the slot comes round
    ASSERT_EQ(notified_event(reader, {"A"}, {2000, 0}, 8), n);
    EXPECT_EQ(answer(old), "DATE reader_thread: event (1) stamp invalid (old event): event:2000_8  msg: 1000_7\n");
    EXPECT_EQ(slot(n).client_status(0), NTF);
    expect_still_deliverable();
}

TEST_P(ReaderRejects, ClientBlockThatTheEventHasNot)
{
    for (const int cln : {1, 2, 1 << 20, INT_MAX, -1, INT_MIN}) {
        datagram d = message_of(n, reader);
        d.cln = cln;
        EXPECT_EQ(answer(d), "DATE reader_thread: client slot number invalid: " + std::to_string(cln) + "  total: 1\n");
    }
    expect_untouched();
    expect_still_deliverable();
}

TEST_P(ReaderRejects, ClientBlockBeyondTheSlotWhateverTheHeadSays)
{
    datagram d = message_of(n, reader);
    d.cln = 1 << 24;
    for (const int clients : {1 << 30, INT_MAX}) {
        slot(n).put(&slot_layout::nclients, clients);
        EXPECT_EQ(answer(d),
                  "DATE reader_thread: client slot number invalid: 16777216  total: " + std::to_string(clients) + "\n");
    }
    slot(n).put(&slot_layout::nclients, -7);
    EXPECT_EQ(answer(message_of(n, reader)), "DATE reader_thread: client slot number invalid: 0  total: -7\n");
}

TEST_P(ReaderRejects, EventThatIsFreeAlready)
{
    control(n).put_status(EVT_C_FREE);
    EXPECT_EQ(answer(message_of(n, reader)),
              "DATE reader_thread: event slot:" + std::to_string(n) + " is already free \n");
    EXPECT_EQ(slot(n).client_status(0), NTF) << "not touched";
}

TEST_P(ReaderRejects, WrongStatusWhichBecomesDone)
{
    slot(n).put_time(&slot_layout::time, {1000, 4294967295U});
    for (const int status : {WAIT, PROC, DONE, 5, 0, -1}) {
        slot(n).put_client_status(0, status);
        EXPECT_EQ(answer(message_of(n, reader)), "DATE reader_thread: wrong client status: 4  must be: 2 1000:-1_7\n");
        EXPECT_EQ(slot(n).client_status(0), DONE) << "from " << status;
    }
    EXPECT_EQ(control(n).status(), EVT_C_USED) << "nobody looks at the other clients here";
    EXPECT_EQ(client_events(reader), 0);
}

TEST_P(ReaderRejects, SecondDatagramOfAnEventThatOthersStillRead)
{
    const int other = client({});
    n = event_of({{reader, NTF}, {other, NTF}});
    deliver(message_of(n, reader));
    EXPECT_EQ(calls, 1);
    calls = 0;
    EXPECT_EQ(answer(message_of(n, reader)), "DATE reader_thread: wrong client status: 4  must be: 2 1000:500_7\n");
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{reader, DONE}, {other, NTF}}));
}

TEST_P(ReaderRejects, OnlyTheFirstTwentyAloud)
{
    datagram d = message_of(n, reader);
    d.timeup += 1;
    for (int i = 0; i < 20; ++i) EXPECT_NE(answer(d), "") << i;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(answer(d), "") << "silent, but counted";
    EXPECT_EQ(rejected(), 25);
    for (const datagram& other : {message_of(n, client({.evtype = 5})), message_of(n, reader, 3)})
        EXPECT_EQ(answer(other), "");
    slot(n).put_client_status(0, DONE);
    EXPECT_EQ(answer(message_of(n, reader)), "");
    control(n).put_status(EVT_C_FREE);
    EXPECT_EQ(answer(message_of(n, reader)), "");
}

TEST_P(ReaderRejects, WrongLengthsUpToTwentyAndNoFurther)
{
    for (int i = 0; i < 20; ++i) EXPECT_EQ(answer("short"), "reader_thread: recv() got wrong length\n");
    captured.forget();
    for (int i = 0; i < 5; ++i) deliver(std::string("short"));
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(rejected(), 20) << "short datagrams alone never take the counter above it";
    expect_still_deliverable();
}

TEST_P(ReaderRejects, AloudAgainAfterAConstructorOrAnInit)
{
    for (int i = 0; i < 20; ++i) deliver(std::string("short"));
    EXPECT_EQ(rejected(), 20);
    {
        BM another;
        EXPECT_EQ(rejected(), 0);
        EXPECT_EQ(answer("short"), "reader_thread: recv() got wrong length\n");
        join(another);
        EXPECT_EQ(rejected(), 0);
    }
    EXPECT_EQ(answer("short"), "reader_thread: recv() got wrong length\n");
}

// ---- between the look at the slot and its lock -----------------------------------------------------------------------

TEST_P(ReaderRejects, EventThatWasReplacedBeforeTheLockWasHad)
{
    ASSERT_TRUE(events_part.ctrl(n, true));
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return somebody_waits_for_event_lock(n); })) << "the first look is over";
    slot(n).put_time(&slot_layout::start, {1000, 2});
    slot(n).put_wide(&slot_layout::eventid, 9);
    ASSERT_TRUE(events_part.ctrl(n, false));
    settle();
    EXPECT_EQ(dates_marked(captured.out()),
              "DATE reader_thread: event (1) stamp invalid (old event): event:1000_9  msg: 1000_7\n");
    EXPECT_EQ(rejected(), 1);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(slot(n).client_status(0), NTF) << "that block belongs to the new event";
}

TEST_P(ReaderRejects, EventThatWasFreedBeforeTheLockWasHad)
{
    ASSERT_TRUE(events_part.ctrl(n, true));
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return somebody_waits_for_event_lock(n); }));
    ASSERT_FALSE(bm.free_ev_slot(n)) << "it takes lock 0, not the slot's own";
    ASSERT_TRUE(events_part.ctrl(n, false));
    settle();
    EXPECT_EQ(dates_marked(captured.out()),
              "DATE reader_thread: event slot:" + std::to_string(n) + " is already free \n");
    EXPECT_EQ(calls, 0);
}

// ---- receive errors --------------------------------------------------------------------------------------------------

TEST_P(ReaderRejects, ReceiveErrorHandlesTheLastDatagramOnceMoreAndIdles)
{
    n = event_of({{reader, NTF}, {client({}), NTF}});
    const auto before = std::chrono::steady_clock::now();
    const fault broken = fault::fails("recv", EIO);
    send(message_of(n, reader));
    settle(/*receives_without_datagram=*/1);
    EXPECT_EQ(broken.fired(), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1)) << "100 sleeps of 10 ms";
    EXPECT_EQ(calls, 1) << "the datagram that came";
    EXPECT_EQ(captured.err(), "recv: Input/output error\n");
    EXPECT_EQ(dates_marked(captured.out()), "recv() bad status going to IDLE \n"
                                            "DATE reader_thread: wrong client status: 4  must be: 2 1000:500_7\n");
    EXPECT_EQ(rejected(), 1);
}

TEST_P(ReaderRejects, StopEndsTheIdlingOfAReceiveError)
{
    const fault broken = fault::fails("recv", EIO);
    sleeps = 0;
    asleep_while = &reading.reader_go;
    send_to(reading.port, std::string("short"));
    ASSERT_TRUE(eventually([] { return sleeps == 1; }));
    EXPECT_FALSE(reading.stop_reader());
    asleep_while = nullptr;
    EXPECT_EQ(broken.fired(), 1);
    EXPECT_EQ(sleeps, 1) << "it looks for the end after each of its 100 sleeps";
}

} // namespace
