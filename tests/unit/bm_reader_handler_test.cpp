// What the handler does to its own event, and to its own reader, while it is called.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include "latch.h"
#include "reader_host.h"
#include "thread_calls.h"

using namespace zrk4::test;

namespace {

class ReaderHandler : public ReaderHost {
  protected:
    int reader = listen();
};
IN_BOTH_GENERATIONS(ReaderHandler);

TEST_P(ReaderHandler, SlotThatWasFreedByTheHandlerIsDoneAllTheSame)
{
    const int n = notified_event(reader, {"A"});
    on_event = [&](void*, zrk4_client_sblock_data*) { EXPECT_FALSE(reading.free_ev_slot(n)) << "false is success"; };
    deliver(message_of(n, reader));
    EXPECT_EQ(slot(n).client_status(0), DONE);
    EXPECT_EQ(client_events(reader), 1);
    EXPECT_TRUE(slot_is_free(n));
    EXPECT_EQ(events_part.getStat("freebuf"), "9") << "given back once";
    EXPECT_EQ(blocks_out(), 0);
}

TEST_P(ReaderHandler, BlockReturnedByTheHandlerIsNotReturnedAgain)
{
    const int n = notified_event(reader, {"A", "B"});
    on_event = [&](void*, zrk4_client_sblock_data* first) {
        const int bnum = first->bnum;
        EXPECT_FALSE(reading.return_buffer_in_pool_ext(TYPE, bnum, data_id)) << "false is success";
        EXPECT_EQ(put({.server = "C"}), 2) << "the queue is not empty: another buffer comes first";
    };
    captured_output captured;
    deliver(message_of(n, reader));
    EXPECT_EQ(dates_marked(captured.out()).substr(0, 88),
              "DATE ------------------------UUuups filled != total 1 != 2 Ev type: 1 ts: 1000:500\nDATE ");
    EXPECT_EQ(blocks_out(), 1) << "C's";
    EXPECT_TRUE(slot_is_free(n));
}

TEST_P(ReaderHandler, LastBlockReturnedByTheHandlerEndsTheEventOnce)
{
    const int n = notified_event(reader, {"A", "B"});
    on_event = [&](void*, zrk4_client_sblock_data* first) {
        for (int i = 0; i < 2; ++i) {
            const int bnum = first->bnum;
            EXPECT_FALSE(reading.return_buffer_in_pool_ext(TYPE, bnum, data_id)) << "false is success";
        }
        EXPECT_TRUE(slot_is_free(n));
    };
    captured_output captured;
    deliver(message_of(n, reader));
    EXPECT_EQ(dates_marked(captured.out()),
              "DATE ------------------------UUuups filled != total 0 != 2 Ev type: 1 ts: 1000:500\n");
    EXPECT_EQ(slot(n).client_status(0), DONE);
    EXPECT_EQ(client_events(reader), 1);
    EXPECT_EQ(events_part.getStat("freebuf"), "9");
    EXPECT_EQ(blocks_out(), 0);
}

TEST_P(ReaderHandler, LeavesTheExchangeInsideItsHandler)
{
    const int n = notified_event(reader);
    on_event = [&](void*, zrk4_client_sblock_data*) { EXPECT_EQ(reading.unsubscribe(TYPE, CLI_T_READER), reader); };
    captured_output captured;
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return slot_is_free(n); })) << "it has left, and the event is over";
    reading.stop_reader(); // waits for what the thread still does
    EXPECT_EQ(captured.out(), "Joining reading thread failed \n");
    EXPECT_EQ(reading.rid, static_cast<pthread_t>(-1));
    EXPECT_EQ(reading.port, -1);
    EXPECT_TRUE(client_is_free(reader));
    EXPECT_TRUE(client_is_zero(reader)) << "a slot that is nobody's is not written";
}

TEST_P(ReaderHandler, LeavesTheHostInsideItsHandler)
{
    const int n = notified_event(reader);
    on_event = [&](void*, zrk4_client_sblock_data*) { reading.all_clean_up(); };
    captured_output captured;
    const long threads = threads_now();
    send(message_of(n, reader));
    EXPECT_TRUE(eventually([&] { return threads_now() == threads - 1; }));
    reading.stop_reader();
    EXPECT_EQ(captured.out(), "Joining reading thread failed \n");
    EXPECT_TRUE(client_is_free(reader));
    EXPECT_EQ(slot(n).client_status(0), PROC) << "it has nothing to do with the event any more";
}

// Else the object would be gone under the thread that still works for it.
TEST_P(ReaderHandler, CleanUpWaitsForAHandlerThatHasLeft)
{
    const int n = notified_event(reader);
    latch left;
    std::atomic<bool> back{false};
    on_event = [&](void*, zrk4_client_sblock_data*) {
        reading.unsubscribe(TYPE, CLI_T_READER);
        left.open();
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the clean-up has begun, as a rule
        back = true;
    };
    const captured_output quiet;
    send(message_of(n, reader));
    left.wait();
    reading.all_clean_up();
    EXPECT_TRUE(back);
    EXPECT_TRUE(slot_is_free(n)) << "and its event was finished";
}

TEST_P(ReaderHandler, SubscribesAnewInsideItsHandler)
{
    const int n = notified_event(reader);
    std::atomic<int> next{0};
    on_event = [&](void*, zrk4_client_sblock_data*) {
        if (calls > 1) return;
        zrk4_client all{};
        reading.unsubscribe(TYPE, CLI_T_READER);
        next = reading.subscribe(TYPE, CLI_T_READER, &all, nullptr);
    };
    const captured_output quiet;
    const long threads = threads_now();
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return slot_is_free(n); }));
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; })) << "the first thread ends behind its handler";
    const int second = notified_event(next);
    send(message_of(second, next));
    EXPECT_TRUE(eventually([&] { return slot_is_free(second); }));
    EXPECT_EQ(calls, 2);
    see_all();
}

/// One event slot only: whoever frees it hands it to the next event.
class ReaderOfOneSlot : public ReaderHost {
  protected:
    ReaderOfOneSlot() : ReaderHost({.event_slots = 1}) {}
    int reader = listen({"A"});
};
IN_BOTH_GENERATIONS(ReaderOfOneSlot);

TEST_P(ReaderOfOneSlot, NextEventInTheSlotIsNotMarkedDoneForThePreviousOne)
{
    ASSERT_GT(writer({"A"}), 0);
    std::vector<int> seconds;
    on_event = [&](void*, zrk4_client_sblock_data*) {
        seconds.push_back(static_cast<int>(slot(1).time(&slot_layout::time).timeup));
        if (seconds.size() > 1) return;
        EXPECT_FALSE(reading.free_ev_slot(1)) << "as the monitor does, or a block returned early";
        EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .time = {2000, 0}, .mpulse = 8}))) << "entered";
        EXPECT_EQ(slot(1).client_status(0), NTF);
    };
    captured_output captured;
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .time = {1000, 0}, .mpulse = 7})));
    settle();
    EXPECT_EQ(seconds, (std::vector<int>{1000, 2000})) << "the second event was delivered";
    EXPECT_EQ(client_events(reader), 1) << "the first one was not counted: it was gone";
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_EQ(blocks_out(), 0);
    EXPECT_EQ(captured.out(), "");
}

TEST_P(ReaderOfOneSlot, NextEventInTheSlotIsNotFreedForThePreviousOne)
{
    ASSERT_GT(writer({"A"}), 0);
    captured_output captured;
    ASSERT_TRUE(clients_part.ctrl(reader, true)); // where it counts the event, between the event's lock and the table's
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .time = {1000, 0}, .mpulse = 7})));
    ASSERT_TRUE(eventually([&] { return semaphore_waiters(clients_semid, 4 + reader) == 1; }));
    see_all();
    ASSERT_FALSE(bm.free_ev_slot(1));
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .time = {2000, 0}, .mpulse = 8})));
    ASSERT_TRUE(clients_part.ctrl(reader, false));
    settle();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(client_events(reader), 2);
    EXPECT_EQ(rejected(), 0);
    EXPECT_EQ(captured.out(), "") << "freed under it, the second event would have been an old one";
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_EQ(blocks_out(), 0);
}

} // namespace
