// A process is killed with a lock in its hand, or between two steps of giving back: the others go on.
#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/event_host.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"

using namespace zrk4::test;

namespace {

/// This process has the partitions; the holder is a child, made before any thread.
class LockHolderKilled : public EventHost {
  protected:
    /// Kills a process that holds lock `n` of `part` while `others` wait for it.
    void kill_holder_of(const C_shm_buffer& part, int n, const std::function<void()>& others)
    {
        latch taken;
        child holder([&] {
            EXPECT_TRUE(part.ctrl(n, true));
            taken.open();
            pause();
        });
        taken.wait();
        std::thread waiting(others);
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(semid_of(part), 4 + n) == 1; }));
        holder.kill_now();
        waiting.join();
        EXPECT_EQ(locks_held(), "");
    }
    int begun_event()
    {
        writer({"A", "B"});
        EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"}))) << "entered";
        return 1;
    }
};
IN_BOTH_GENERATIONS(LockHolderKilled);

TEST_P(LockHolderKilled, WriterThatWaitsForTheTableGoesOn)
{
    writer({"A"});
    const int bnum = put({.server = "A"});
    kill_holder_of(events_part, 0, [&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum)); });
    EXPECT_TRUE(block_is_free(bnum)) << "nobody reads: the event is over";
}

TEST_P(LockHolderKilled, WriterThatWaitsForTheClientsGoesOn)
{
    writer({"A", "B"});
    const int bnum = put({.server = "A"});
    kill_holder_of(clients_part, 0, [&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum)); });
    EXPECT_EQ(slot(1).sbfilled(), 1);
}

TEST_P(LockHolderKilled, WriterThatWaitsForItsEventGoesOn)
{
    const int n = begun_event();
    const int bnum = put({.server = "B"});
    kill_holder_of(events_part, n, [&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum)); });
    EXPECT_TRUE(slot_is_free(n)) << "complete, and nobody reads";
}

TEST_P(LockHolderKilled, FreeingOfAnEventGoesOn)
{
    const int n = begun_event();
    kill_holder_of(events_part, 0, [&] { EXPECT_FALSE(bm.free_ev_slot(n)); });
    EXPECT_TRUE(slot_is_free(n));
}

TEST_P(LockHolderKilled, EarlyReturnGoesOn)
{
    const int n = begun_event();
    kill_holder_of(events_part, n, [&] { EXPECT_FALSE(bm.return_buffer_in_pool_ext(TYPE, 0, data_id)); });
    EXPECT_TRUE(slot_is_free(n));
}

TEST_P(LockHolderKilled, ReaderThatWaitsForItsEventGoesOn)
{
    zrk4_client all{};
    static std::atomic<int> calls;
    calls = 0;
    bm.set_ev_handler([](void*, zrk4_client_sblock_data*) { ++calls; });
    latch subscribed, taken;
    child holder([&] {
        subscribed.wait();
        EXPECT_TRUE(events_part.ctrl(1, true));
        taken.open();
        pause();
    });
    ASSERT_GT(bm.subscribe(TYPE, CLI_T_READER, &all, nullptr), 0);
    begun_event();
    subscribed.open();
    taken.wait();
    std::thread second([&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "B"}))); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4 + 1) == 1; }));
    holder.kill_now();
    second.join();
    EXPECT_TRUE(eventually([&] { return calls == 1 && semaphore_value(events_semid, 1) == 9; })) << "it is over";
    bm.stop_reader();
    EXPECT_TRUE(slot_is_free(1));
}

TEST_P(LockHolderKilled, ClientSlotOfTheKilledIsStillItsOwn)
{
    const int own = writer({"A"});
    kill_holder_of(clients_part, own, [&] { EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), own); });
    EXPECT_TRUE(client_is_free(own));
}

/// The killed one stands before the data partition's gate, which this process has: with the event's entry a hole.
class KilledWhileFreeing : public EventHost {
  protected:
    /// Lets a child give something back and kills it before the first buffer is in the queue again.
    void kill_in(const std::function<void(BM&)>& way_back)
    {
        const C_shm_buffer& data = *bm.find_by_id(data_id);
        ASSERT_TRUE(data.bgate(true));
        child victim([&] { way_back(bm); });
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(semid_of(data), 0) == 1; }));
        victim.kill_now();
        EXPECT_EQ(locks_held(), "") << "given back by the kernel";
        ASSERT_TRUE(data.bgate(false));
    }
    /// An event of two blocks, buffers 0 and 1.
    int event_of_two()
    {
        const int n = used_slot();
        for (const char* name : {"A", "B"}) slot(n).add_entry(name, data_id, put({.server = name}));
        return n;
    }
};
IN_BOTH_GENERATIONS(KilledWhileFreeing);

TEST_P(KilledWhileFreeing, BufferOnItsWayIsNotReturnedASecondTime)
{
    const int n = event_of_two();
    kill_in([n](BM& its) { its.free_ev_slot(n); });
    EXPECT_EQ(slot(n).entries().at(0), (seen_entry{"A", data_id, -1})) << "a hole that tells whose buffer it was";
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "") << "the next one finishes it";
    EXPECT_TRUE(slot_is_free(n));
    EXPECT_FALSE(block_is_free(0)) << "lost to the repair, but in nobody's hands";
    EXPECT_TRUE(block_is_free(1));
}

TEST_P(KilledWhileFreeing, EarlyReturnLeavesAWholeEvent)
{
    const int n = event_of_two();
    kill_in([this](BM& its) { its.return_buffer_in_pool_ext(TYPE, 0, data_id); });
    EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"B", data_id, 1}})) << "the entry went before its buffer";
    EXPECT_FALSE(bm.free_ev_slot(n));
    EXPECT_TRUE(slot_is_free(n));
    EXPECT_FALSE(block_is_free(0));
    EXPECT_TRUE(block_is_free(1));
}

} // namespace
