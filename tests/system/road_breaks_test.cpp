// Processes that stand still or are killed on the road of an event.
#include <atomic>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"
#include "road.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

/// This process is master and writer 0; readers and other writers are children, made before its threads.
class RoadBreaks : public CleanNamespace, public testing::WithParamInterface<generation> {
  protected:
    static constexpr int PERIOD_US = 20000;

    latch made, leave;
    static inline std::function<void(int event)> on_event;

    void open_road(BM& master, const road& on)
    {
        on.configure(master);
        ASSERT_FALSE(master.set_master(true));
        on.join(master);
        data_id = master.add(road::data_name(0).c_str(), 64, ROAD_LENGTH, false);
        ASSERT_GT(on.subscribe(master, CLI_T_WRITER, on.names_of(0)), 0);
        made.open();
    }
    /// A reader's life: its handler is called with the event's number; it leaves when it is told to.
    void read(const road& on, latch& ready, const std::function<void(int)>& handler)
    {
        made.wait();
        BM bm;
        on.configure(bm);
        on.join(bm);
        on_event = handler;
        static generation form;
        form = on.form;
        bm.set_ev_handler([](void* head, zrk4_client_sblock_data*) { on_event(event_number(head, form)); });
        ASSERT_GT(on.subscribe(bm, CLI_T_READER, {}), 0);
        ready.open();
        leave.wait();
    }
    static void expect_all_back(BM& master)
    {
        const C_shm_buffer& events = *master.find_by_name("ZRK4_EVENT_SLOTS");
        const C_shm_buffer& data = *master.find_by_name(road::data_name(0).c_str());
        EXPECT_TRUE(eventually([&] { return balance_of(events).all_back(1); })) << balance_of(events);
        EXPECT_TRUE(balance_of(data).all_back()) << balance_of(data);
    }
    // The monitor speaks when it has given its locks back, which is after others can see what it did.
    static bool is_printed(captured_output& captured, const std::string& text)
    {
        return eventually([&] { return captured.out().find(text) != std::string::npos; });
    }

    int data_id = -1;
};
INSTANTIATE_TEST_SUITE_P(Records, RoadBreaks, testing::Values(generation::of_2010, generation::of_2024),
                         [](const auto& one) { return one.param == generation::of_2010 ? "Of2010" : "Of2024"; });

TEST_P(RoadBreaks, ReaderThatStoodStillGetsAllItsEvents)
{
    constexpr int EVENTS = 50;
    const road on{.form = GetParam()};
    latch ready;
    const shared<std::atomic<int>> sum;
    child reader([&] { read(on, ready, [&](int event) { *sum += 1000 + event; }); });
    captured_output captured;
    BM master;
    open_road(master, on);
    ready.wait();
    captured.forget();
    reader.stop();
    for (int e = 0; e < EVENTS; ++e) ASSERT_FALSE(on.send(master, data_id, e, 0, 0));
    reader.go_on();
    EXPECT_TRUE(eventually([&] { return *sum == EVENTS * 1000 + EVENTS * (EVENTS - 1) / 2; })) << *sum;
    expect_all_back(master);
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
    EXPECT_EQ(captured.out() + captured.err(), "") << "standing still is no error";
}

TEST_P(RoadBreaks, ReaderKilledInItsHandlerLosesSlotAndEvent)
{
    const road on{.form = GetParam()};
    latch both(2), in_handler;
    const shared<std::atomic<int>> seen;
    child survivor([&] { read(on, both, [&](int) { ++*seen; }); });
    child victim([&] {
        read(on, both, [&](int) {
            in_handler.open();
            pause();
        });
    });
    captured_output captured;
    BM master;
    open_road(master, on);
    both.wait();
    master.set_monitoring_period(PERIOD_US);
    ASSERT_FALSE(on.send(master, data_id, 0, 0, 0));
    in_handler.wait();
    victim.kill_now();
    expect_all_back(master);
    EXPECT_TRUE(is_printed(captured, "MONITOR: " + std::to_string(victim.pid()) + "  will be kicked out slot:"));
    int writers = 0, readers = 0;
    master.cl_subscribed(&writers, &readers);
    EXPECT_EQ(writers, 1);
    EXPECT_EQ(readers, 1);
    for (int e = 1; e < 5; ++e) ASSERT_FALSE(on.send(master, data_id, e, 0, 0));
    EXPECT_TRUE(eventually([&] { return *seen == 5; })) << "the other one goes on";
    expect_all_back(master);
    leave.open();
    EXPECT_EQ(survivor.wait(), 0);
}

TEST_P(RoadBreaks, ReaderKilledBeforeItHearsHoldsNothingUp)
{
    const road on{.form = GetParam()};
    latch ready;
    child victim([&] { read(on, ready, [](int) {}); });
    captured_output captured;
    BM master;
    open_road(master, on);
    ready.wait();
    victim.stop();
    for (int e = 0; e < 5; ++e) ASSERT_FALSE(on.send(master, data_id, e, 0, 0));
    victim.kill_now();
    master.set_monitoring_period(PERIOD_US);
    expect_all_back(master);
    const C_shm_buffer& clients = *master.find_by_name("ZRK4_CLIENT_SLOTS");
    EXPECT_TRUE(eventually([&] { return balance_of(clients).all_back(2); })) << "the control record and this writer";
}

TEST_P(RoadBreaks, KilledWriterIsNotWaitedForAnyMore)
{
    const road on{.form = GetParam(), .writers = 2};
    latch both(2);
    const shared<std::atomic<int>> seen;
    child reader([&] { read(on, both, [&](int event) { *seen = event; }); });
    child victim([&] {
        made.wait();
        BM bm;
        on.configure(bm);
        on.join(bm);
        ASSERT_GT(on.subscribe(bm, CLI_T_WRITER, on.names_of(1)), 0);
        both.open();
        pause();
    });
    captured_output captured;
    BM master;
    open_road(master, on);
    both.wait();
    ASSERT_FALSE(on.send(master, data_id, 1, 0, 0)) << "half of an event";
    EXPECT_EQ(*seen, 0) << "its reader waits for the other half";
    victim.kill_now();
    master.set_monitoring_period(PERIOD_US);
    expect_all_back(master);
    EXPECT_TRUE(is_printed(captured, " Suspicious event slot: "));
    EXPECT_TRUE(is_printed(captured, "CLEANING[0]  1001:100_2  SHMID: " + std::to_string(data_id) +
                                         "  SLOT: 0 filled:ttoal 1:2\n"));
    EXPECT_EQ(*seen, 0) << "nobody gets half an event";
    ASSERT_FALSE(on.send(master, data_id, 2, 0, 0));
    EXPECT_TRUE(eventually([&] { return *seen == 2; })) << "one block is a whole event now";
    expect_all_back(master);
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
}

TEST_P(RoadBreaks, ProcessReadsWhatItWrites)
{
    const road on{.form = GetParam(), .blocks = 2};
    child alone([&] {
        const captured_output quiet;
        BM bm;
        open_road(bm, on);
        static std::atomic<int> seen{0};
        bm.set_ev_handler([](void*, zrk4_client_sblock_data*) { ++seen; });
        ASSERT_GT(on.subscribe(bm, CLI_T_READER, {}), 0);
        for (int e = 0; e < 50; ++e) {
            for (int b = 0; b < 2; ++b) ASSERT_FALSE(on.send(bm, data_id, e, 0, b));
        }
        EXPECT_TRUE(eventually([&] { return seen == 50; }));
        expect_all_back(bm);
    });
    EXPECT_EQ(alone.wait(), 0);
}

} // namespace
