// The reader thread: a datagram becomes one call of the handler, and the event goes on.
#include <cerrno>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include "reader_host.h"

using namespace zrk4::test;

namespace {

class Reader : public ReaderHost {
  protected:
    int reader = listen();
};
IN_BOTH_GENERATIONS(Reader);

// ---- the call ------------------------------------------------------------------------------------------------------

TEST_P(Reader, HandlerIsCalledOncePerEventWithHeadAndFirstEntry)
{
    const int n = notified_event(reader, {"A", "B", "C"});
    void* head = nullptr;
    zrk4_client_sblock_data* first = nullptr;
    on_event = [&](void* h, zrk4_client_sblock_data* f) {
        head = h;
        first = f;
    };
    deliver(message_of(n, reader));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(head, slot(n).address());
    EXPECT_EQ(reinterpret_cast<char*>(first), slot(n).entry_at(0));
    EXPECT_EQ(rejected(), 0);
}

TEST_P(Reader, HandlerSeesTheEventInProcess)
{
    const int n = notified_event(reader, {"A", "B"});
    std::vector<seen_entry> entries;
    std::vector<seen_client> clients;
    bool used = false;
    on_event = [&](void*, zrk4_client_sblock_data*) {
        entries = slot(n).entries();
        clients = slot(n).clients();
        used = control(n).status() == EVT_C_USED;
    };
    deliver(message_of(n, reader));
    EXPECT_EQ(entries, (std::vector<seen_entry>{{"A", data_id, 0}, {"B", data_id, 1}}));
    EXPECT_EQ(clients, (std::vector<seen_client>{{reader, PROC}}));
    EXPECT_TRUE(used);
}

TEST_P(Reader, HandlerRunsWithoutALock)
{
    const int n = notified_event(reader);
    std::string held = "not called";
    on_event = [&](void*, zrk4_client_sblock_data*) { held = locks_held(); };
    deliver(message_of(n, reader));
    EXPECT_EQ(held, "");
}

TEST_P(Reader, DerivedHandlerIsCalledBehindTheOtherOne)
{
    const int n = notified_event(reader);
    std::string order;
    on_event = [&](void*, zrk4_client_sblock_data*) { order += "callback "; };
    reading.on_virtual = [&](void* head, zrk4_client_sblock_data* first) {
        order += head == slot(n).address() && reinterpret_cast<char*>(first) == slot(n).entry_at(0) ? "virtual" : "?";
    };
    deliver(message_of(n, reader));
    EXPECT_EQ(order, "callback virtual");
}

TEST_P(Reader, DerivedHandlerAloneIsEnough)
{
    reading.set_ev_handler(nullptr);
    int seen = 0;
    reading.on_virtual = [&](void*, zrk4_client_sblock_data*) { ++seen; };
    const int n = notified_event(reader);
    deliver(message_of(n, reader));
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(slot(n).client_status(0), DONE);
}

TEST_P(Reader, LastOneDoneFreesTheEventAndItsBuffers)
{
    const int n = notified_event(reader, {"A", "B"});
    EXPECT_EQ(blocks_out(), 2);
    deliver(message_of(n, reader));
    EXPECT_EQ(slot(n).client_status(0), DONE);
    EXPECT_EQ(control(n).status(), EVT_C_FREE);
    EXPECT_TRUE(slot_is_free(n));
    EXPECT_EQ(blocks_out(), 0);
}

TEST_P(Reader, EventStaysWhileAnotherClientIsNotDone)
{
    const int other = client({.names = {"A"}});
    const int n = event_of({{other, NTF}, {reader, NTF}});
    deliver(message_of(n, reader, /*cln=*/1));
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{other, NTF}, {reader, DONE}}));
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_FALSE(slot_is_free(n));
}

TEST_P(Reader, CountsTheEventAndRenewsItsTimeWhenDone)
{
    const int n = notified_event(reader);
    store(client_at(reader) + 4, time_stamp{1, 0});
    on_event = [&](void*, zrk4_client_sblock_data*) { EXPECT_EQ(client_events(reader), 0) << "not before the end"; };
    deliver(message_of(n, reader));
    EXPECT_EQ(client_events(reader), 1);
    EXPECT_GT(+client_atime(reader).timeup, 1U);
}

TEST_P(Reader, LooksAtTheOtherClientsWhenDone)
{
    const int second = client({.names = {"A"}, .port = reading.port});
    const int n = event_of({{second, WAIT}, {reader, NTF}});
    deliver(message_of(n, reader, /*cln=*/1));
    EXPECT_EQ(calls, 2) << "the second one, which hears at the same port, was notified by the first";
    EXPECT_TRUE(slot_is_free(n));
}

// ---- exceptions ------------------------------------------------------------------------------------------------------

TEST_P(Reader, WhateverTheHandlerThrowsItsEventIsDone)
{
    int seen_by_virtual = 0;
    on_event = [](void*, zrk4_client_sblock_data*) { throw std::runtime_error("on purpose"); };
    reading.on_virtual = [&](void*, zrk4_client_sblock_data*) {
        ++seen_by_virtual;
        throw 5;
    };
    captured_output captured;
    for (int turn = 1; turn <= 3; ++turn) {
        const int n = notified_event(reader);
        deliver(message_of(n, reader));
        EXPECT_EQ(calls, turn);
        EXPECT_EQ(seen_by_virtual, turn) << "the other handler is called all the same";
        EXPECT_EQ(slot(n).client_status(0), DONE);
        EXPECT_TRUE(slot_is_free(n));
    }
    EXPECT_EQ(captured.out() + captured.err(), "");
}

// ---- accepted although something about it is odd ---------------------------------------------------------------------

TEST_P(Reader, LongerDatagramIsCutAndHandled)
{
    for (const size_t more : {1U, 8U, 1000U, 60000U}) {
        const int n = notified_event(reader);
        deliver(datagram_bytes(message_of(n, reader), form) + std::string(more, 'x'));
        EXPECT_TRUE(slot_is_free(n));
    }
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(rejected(), 0);
}

TEST_P(Reader, NeitherTypeNorMicrosecondsOfTheMessageAreLookedAt)
{
    const int n = notified_event(reader);
    datagram d = message_of(n, reader);
    d.mtype = -123456789012345;
    if (wide()) d.timelow = 999;
    deliver(d);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(rejected(), 0);
}

TEST_P(Reader, BlockOfAnotherClientIsNotTestedAndTheEventIsHandled)
{
    const int n = event_of({{client({}), PROC}, {reader, PROC}});
    control(n).put_status(EVT_C_FREE);
    deliver(message_of(n, reader, /*cln=*/0));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(rejected(), 0);
    EXPECT_EQ(slot(n).client_status(1), DONE) << "the reader's own block";
}

TEST_P(Reader, ClientThatIsNotInTheEventIsReportedAndNotCounted)
{
    const int n = notified_event(client({}));
    captured_output captured;
    deliver(message_of(n, reader));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(dates_marked(captured.out()), "DATE Failed to update the client status to 'CLI_S_DONE' \n");
    EXPECT_EQ(client_events(reader), 0);
    EXPECT_EQ(rejected(), 0);
}

TEST_P(Reader, BlockThatArrivesBeforeTheLockWasHadDoesNotMakeItAnotherEvent)
{
    const int n = notified_event(reader);
    ASSERT_TRUE(events_part.ctrl(n, true));
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return somebody_waits_for_event_lock(n); }));
    slot(n).put_wide(&slot_layout::eventid, 9);
    slot(n).put(&slot_layout::tmask, 9);
    slot(n).put_time(&slot_layout::lupdate, {2000, 2});
    ASSERT_TRUE(events_part.ctrl(n, false));
    settle();
    EXPECT_EQ(calls, 1);
}

// ---- from the start ----------------------------------------------------------------------------------------------------

class ReaderFromTheStart : public ReaderHost {};
IN_BOTH_GENERATIONS(ReaderFromTheStart);

TEST_P(ReaderFromTheStart, ReceiveErrorBeforeAnyDatagramHandlesNoneAtAll)
{
    captured_output captured;
    const fault broken = fault::fails("recv", ENOMEM);
    zrk4_client all{};
    ASSERT_GT(reading.subscribe(TYPE, CLI_T_READER, &all, nullptr), 0);
    ASSERT_TRUE(eventually([&] { return rejected() == 1; })) << "a message of zeros names no slot";
    EXPECT_EQ(captured.err(), "recv: Cannot allocate memory\n");
    EXPECT_EQ(captured.out(), "recv() bad status going to IDLE \n");
}

TEST_P(ReaderFromTheStart, BodyReturnsAtOnceWithoutTheRunFlag)
{
    const long before = calls_of("recv");
    reading.reader_exec();
    EXPECT_EQ(calls_of("recv"), before);
}

TEST_P(ReaderFromTheStart, NamedReaderWaitsForItsBlocksAndNoMore)
{
    const int reader = listen({"B"});
    ASSERT_GT(writer({"A", "B"}), 0);
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    settle();
    EXPECT_EQ(calls, 0);
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "B"})));
    settle();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(client_events(reader), 1);
    EXPECT_EQ(blocks_out(), 0);
}

// ---- debug levels ----------------------------------------------------------------------------------------------------

TEST_P(Reader, DebugLevelShowsEveryMessage)
{
    const debug_level show(-2000);
    const int n = notified_event(reader);
    datagram d = message_of(n, reader);
    d.mtype = 4294967296000;
    captured_output captured;
    deliver(d);
    EXPECT_EQ(captured.out(), "Got message: mtype: 4294967296000  evslot: " + std::to_string(n) +
                                  " clslot: " + std::to_string(reader) + " cln: 0\n");
    captured.forget();
    deliver(datagram{-1, -2, -3, -4});
    EXPECT_EQ(captured.out(), "Got message: mtype: -1  evslot: -2 clslot: -3 cln: -4\n")
        << "also before it is rejected";
    captured.forget();
    deliver(std::string("short"));
    EXPECT_EQ(captured.out(), "reader_thread: recv() got wrong length\n") << "not one of wrong length";
}

TEST_P(Reader, DebugLevelShowsTheDurationOfACall)
{
    const debug_level show(-3000);
    const int n = notified_event(reader);
    on_event = [](void*, zrk4_client_sblock_data*) { std::this_thread::sleep_for(std::chrono::milliseconds(3)); };
    captured_output captured;
    deliver(message_of(n, reader));
    const std::string text = captured.out();
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(text, parts, std::regex("\\((\\d+)\\) USER CALL (\\d+\\.\\d{6}) msec\\n"))) << text;
    EXPECT_EQ(parts[1], std::to_string(reading.port));
    EXPECT_GE(std::stod(parts[2]), 3.0);
}

TEST_P(Reader, OtherDebugLevelsShowNothing)
{
    for (const int level : {0, -1999, -2001, -2999, -3001, -4000, 2000, 3000}) {
        const debug_level show(level);
        captured_output captured;
        const int n = notified_event(reader);
        deliver(message_of(n, reader));
        EXPECT_EQ(captured.out() + captured.err(), "") << level;
    }
    EXPECT_EQ(calls, 8);
}

// ---- partitions that are taken away under the thread -----------------------------------------------------------------

IN_BOTH_GENERATIONS(ReaderAlone);

TEST_P(ReaderAlone, LocksThatWereRemovedEndNoProcess)
{
    in_own_process([](reader_host& host) {
        const int reader = host.listen();
        const int n = host.notified_event(reader);
        host.remove_locks(host.events_semid);
        captured_output captured;
        host.send(host.message_of(n, reader));
        host.wait_for_receives(2);
        EXPECT_EQ(captured.out(), "throw C_shm::ctrl UP sem: " + std::to_string(4 + n) +
                                      "   errno: 22  semid: " + std::to_string(host.events_semid) + "\n");
        EXPECT_EQ(host.calls, 0);
        EXPECT_FALSE(host.reading.stop_reader());
        clear_ipc_namespace();
    });
}

TEST_P(ReaderAlone, DataPartitionThatWasRemovedCostsOneEventAndNotTheReader)
{
    in_own_process([](reader_host& host) {
        const int reader = host.listen();
        const int n = host.notified_event(reader);
        ASSERT_NE(host.reading.get_buffer_address(0, host.data_id, /*attach=*/true), nullptr);
        host.remove_locks(semid_of(*host.bm.find_by_id(host.data_id)));
        captured_output captured;
        host.deliver(host.message_of(n, reader));
        EXPECT_EQ(host.calls, 1);
        EXPECT_EQ(captured.out().substr(0, 26), "throw C_shm::gate UP sem: ");
        EXPECT_EQ(host.slot(n).client_status(0), CLI_S_DONE);
        EXPECT_EQ(host.slot(n).entries().at(0), (seen_entry{"A", host.data_id, -1}))
            << "a hole: it is not returned again";
        EXPECT_EQ(host.locks_held(), "");
        captured.forget();
        const int next = host.used_slot({2000, 0}, 8);
        host.slot(next).put_wide(&slot_layout::eventid, 8);
        host.slot(next).add_client(reader, CLI_S_NTF);
        host.deliver(host.message_of(next, reader));
        EXPECT_EQ(host.calls, 2) << "the thread runs on";
        EXPECT_TRUE(host.slot_is_free(next));
        EXPECT_EQ(captured.out(), "");
        clear_ipc_namespace();
    });
}

TEST_P(ReaderAlone, HandlerThatEndsItsThreadIsJoinedLikeAnyOther)
{
    in_own_process([](reader_host& host) {
        const int reader = host.listen();
        const int n = host.notified_event(reader);
        host.on_event = [](void*, zrk4_client_sblock_data*) { pthread_exit(nullptr); };
        captured_output captured;
        host.send(host.message_of(n, reader));
        ASSERT_TRUE(eventually([&] { return host.calls == 1; }));
        EXPECT_FALSE(host.reading.stop_reader());
        EXPECT_EQ(captured.out() + captured.err(), "");
        EXPECT_EQ(host.slot(n).client_status(0), CLI_S_PROC) << "it did not come back from the handler";
    });
}

// ---- two objects of one process --------------------------------------------------------------------------------------

TEST_P(Reader, TwoObjectsOfAProcessHearTheirOwnEvents)
{
    handling_bm second;
    join(second);
    std::atomic<int> seen{0};
    second.on_virtual = [&](void*, zrk4_client_sblock_data*) { ++seen; };
    zrk4_client all{};
    const int other = second.subscribe(TYPE, CLI_T_READER, &all, nullptr);
    ASSERT_GT(other, 0);
    EXPECT_NE(second.port, reading.port);
    const int n = notified_event(other);
    send_to(second.port, datagram_bytes(message_of(n, other), form));
    ASSERT_TRUE(eventually([&] { return seen == 1; }));
    second.stop_reader();
    EXPECT_EQ(calls, 0);
    EXPECT_NE(reading.port, -1) << "the other one's stop is not its own";
}

} // namespace
