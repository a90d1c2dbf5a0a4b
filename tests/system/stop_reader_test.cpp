// A reader that stops: whatever its thread is doing, and however often.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "../unit/datagram.h"
#include "../unit/event_host.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

long entries_of(const char* directory)
{
    const std::filesystem::directory_iterator first(directory);
    return std::distance(first, std::filesystem::directory_iterator());
}
long threads_now() { return entries_of("/proc/self/task"); }
long descriptors_now() { return entries_of("/proc/self/fd"); }

class StopReader : public EventHost {
  protected:
    int subscribe()
    {
        zrk4_client all{};
        bm.set_ev_handler([](void*, zrk4_client_sblock_data*) {
            if (handler) handler();
        });
        return bm.subscribe(TYPE, CLI_T_READER, &all, nullptr);
    }
    void begin_event()
    {
        if (bm.swriter.empty()) writer({"A"});
        ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    }
    static inline std::function<void()> handler;
    const long threads = threads_now();
    const long descriptors = descriptors_now();
};
IN_BOTH_GENERATIONS(StopReader);

TEST_P(StopReader, WhileItWaitsForADatagram)
{
    ASSERT_GT(subscribe(), 0);
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_FALSE(bm.stop_reader());
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
    EXPECT_EQ(descriptors_now(), descriptors);
}

TEST_P(StopReader, WhileItsHandlerRuns)
{
    latch in_handler;
    std::atomic<bool> left{false};
    handler = [&] {
        in_handler.open();
        std::this_thread::sleep_for(std::chrono::milliseconds(120)); // longer than two signals are apart
        left = true;
    };
    ASSERT_GT(subscribe(), 0);
    begin_event();
    in_handler.wait();
    EXPECT_FALSE(bm.stop_reader());
    EXPECT_TRUE(left) << "it was waited for";
    EXPECT_TRUE(slot_is_free(1)) << "and the event is done";
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
}

TEST_P(StopReader, InsideItsHandler)
{
    captured_output captured;
    const int reader = subscribe();
    ASSERT_GT(reader, 0);
    handler = [&] { EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), reader); };
    begin_event();
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; })) << "it ends by itself";
    EXPECT_EQ(captured.out(), "Joining reading thread failed \n");
    EXPECT_EQ(bm.port, -1);
    handler = nullptr;
    const int another = subscribe();
    EXPECT_GT(another, 0) << "it can be had again";
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), another);
}

TEST_P(StopReader, AThousandTimes)
{
    captured_output captured;
    for (int round = 0; round < 1000; ++round) {
        ASSERT_FALSE(bm.start_reader()) << round;
        ASSERT_FALSE(bm.stop_reader());
    }
    captured.forget();
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
    for (int round = 0; round < 200; ++round) {
        ASSERT_GT(subscribe(), 0) << round;
        ASSERT_GT(bm.unsubscribe(TYPE, CLI_T_READER), 0);
    }
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
    EXPECT_EQ(descriptors_now(), descriptors + 4) << "the four of the capture";
    EXPECT_EQ(captured.out() + captured.err(), "");
}

/// Another process sends to the reader all the time.
class StopReaderUnderFire : public StopReader {
  protected:
    shared<std::atomic<int>> port;
    shared<std::atomic<bool>> cease;
    child gunner{[this] {
        const std::string whole(40, '\0');
        while (!*cease) {
            const int at = *port;
            for (const size_t length : {40U, 32U, 5U}) {
                if (at > 0) send_to(at, whole.substr(0, length));
            }
        }
    }};
};
IN_BOTH_GENERATIONS(StopReaderUnderFire);

TEST_P(StopReaderUnderFire, HundredTimes)
{
    const captured_output quiet;
    for (int round = 0; round < 100; ++round) {
        ASSERT_FALSE(bm.start_reader()) << round;
        *port = bm.port.load();
        const bool hit = round % 2 == 0;
        EXPECT_TRUE(!hit || eventually([] { return rejected() > 0; })) << "some are stopped at their start";
        ASSERT_FALSE(bm.stop_reader());
        *port = 0;
    }
    *cease = true;
    EXPECT_EQ(gunner.wait(), 0);
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
}

} // namespace
