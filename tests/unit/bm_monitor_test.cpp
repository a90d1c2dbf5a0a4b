// What the monitor says, and what it takes back.
#include <algorithm>
#include <csignal>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bm_core.h"
#include "monitoring_bm.h"

using namespace zrk4::test;
using zrk4::impl::free_flag;

namespace {

/// A host whose monitor looks every two milliseconds.
class Monitor : public EventHost {
  protected:
    static constexpr int PERIOD_US = 2000;
    static constexpr int64_t CYCLES = 12; // one more than make a slot suspicious, and one that is under way

    Monitor() { join(watching); }
    ~Monitor() override { watching.stop_monitor(); }

    void watch(int period = PERIOD_US)
    {
        watching.set_monitoring_period(period);
        ASSERT_FALSE(watching.start_monitor());
    }
    /// Lets it look that often at the least: each look takes the table's lock.
    void wait_for_cycles(int64_t cycles = CYCLES)
    {
        for (int64_t i = 0; i < cycles; ++i) {
            ASSERT_TRUE(events_part.ctrl(0, true));
            ASSERT_TRUE(waits_for(events_semid));
            ASSERT_TRUE(events_part.ctrl(0, false));
        }
    }
    // One cycle at a time, whatever the machine does: the monitor waits for the table at a cycle's begin, and for the
    // clients' control record at its end, because `somebody` has a slot.
    void watch_in_steps(int period = 100)
    {
        somebody = client({.pid = getpid()});
        ASSERT_TRUE(events_part.ctrl(0, true));
        watch(period);
        ASSERT_TRUE(waits_for(events_semid));
    }
    /// Cycles in which no event is suspicious.
    void step(int cycles = 1)
    {
        for (int i = 0; i < cycles; ++i) {
            ASSERT_TRUE(clients_part.ctrl(0, true));
            ASSERT_TRUE(events_part.ctrl(0, false));
            ASSERT_TRUE(waits_for(clients_semid));
            ASSERT_TRUE(events_part.ctrl(0, true));
            ASSERT_TRUE(clients_part.ctrl(0, false));
            ASSERT_TRUE(waits_for(events_semid));
        }
    }
    void let_go() { ASSERT_TRUE(events_part.ctrl(0, false)); }
    static bool waits_for(int semid)
    {
        return eventually([&] { return semaphore_waiters(semid, 4) == 1; });
    }
    /// Stops it; then its text so far, with times replaced.
    std::string said_by_monitor(captured_output& captured)
    {
        watching.stop_monitor();
        return times_marked(captured.out());
    }
    /// The same up to the end of the first cycle that found an event suspicious.
    std::string first_said(captured_output& captured)
    {
        EXPECT_TRUE(eventually([&] { return captured.out().find("took: ") != std::string::npos; }));
        const std::string text = said_by_monitor(captured);
        return text.substr(0, text.find(TOOK) + sizeof TOOK - 1);
    }
    /// An event that the monitor has not seen before.
    int stale_event()
    {
        const int n = used_slot();
        slot(n).put_wide(&slot_layout::eventid, 7);
        slot(n).put_time(&slot_layout::start, {1000, 1});
        return n;
    }
    bool is_free(int n) const { return control(n).status() == EVT_C_FREE && slot_is_free(n); }
    bool slot_is_free(int n) const { return !zrk4::impl::is_handed_out(events_part, n); }
    bool client_is_free(int n) const { return !zrk4::impl::is_handed_out(clients_part, n); }
    bool becomes_free(int n) const
    {
        return eventually([&] { return slot_is_free(n); });
    }

    monitoring_bm watching;
    int somebody = 0;
};
IN_BOTH_GENERATIONS(Monitor);

TEST_P(Monitor, HealthyHostIsWatchedInSilence)
{
    client({.pid = getpid()});
    captured_output captured;
    watch();
    wait_for_cycles();
    EXPECT_EQ(said_by_monitor(captured), "");
}

TEST_P(Monitor, DebugLevelShowsEveryCycle)
{
    const debug_level show(-4000);
    captured_output captured;
    watch();
    wait_for_cycles(3);
    const std::string text = said_by_monitor(captured);
    EXPECT_EQ(text.substr(0, 2 * sizeof TOOK - 2), std::string(TOOK) + TOOK);
}

TEST_P(Monitor, OtherDebugLevelsShowNothing)
{
    const debug_level show(-3999);
    captured_output captured;
    watch();
    wait_for_cycles(3);
    EXPECT_EQ(said_by_monitor(captured), "");
}

TEST_P(Monitor, UnchangedEventIsReportedAndFreedWithItsBlocks)
{
    const int n = stale_event();
    slot(n).put(&slot_layout::nsblocks, 2);
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    captured_output captured;
    watch();
    ASSERT_TRUE(becomes_free(n));
    wait_for_cycles(2);
    EXPECT_EQ(said_by_monitor(captured),
              suspicious(n) + "DATE CLEANING[0]  1000:500_7  SHMID: " + std::to_string(data_id) +
                  "  SLOT: 0 filled:ttoal 1:2\nDATE ltotal: 400 server: A  mask: 0x1 status: 0  nchan: 0\n" + freed(n) +
                  TOOK);
    EXPECT_TRUE(is_free(n));
    EXPECT_TRUE(block_is_free(0));
    EXPECT_EQ(free_flag, 0);
    EXPECT_EQ(locks_held(), "");
}

TEST_P(Monitor, TenUnchangedLooksAreNeeded)
{
    const int n = stale_event();
    captured_output captured;
    watch_in_steps();
    step(10); // the first one sees the event
    EXPECT_FALSE(slot_is_free(n));
    EXPECT_EQ(captured.out(), "");
    let_go();
    EXPECT_TRUE(becomes_free(n));
}

TEST_P(Monitor, AnyChangeOfTheHeadIsASignOfLife)
{
    const int n = stale_event();
    const captured_output quiet;
    watch_in_steps();
    const std::vector<std::function<void(slot_bytes)>> changes{
        [](slot_bytes s) {
            s.put_time(&slot_layout::time, {1000, 501});
        },
        [](slot_bytes s) {
            s.put_time(&slot_layout::time, {1001, 501});
        },
        [](slot_bytes s) { s.put_wide(&slot_layout::eventid, 8); },
        [](slot_bytes s) { s.put(&slot_layout::evtype, 2); },
        [](slot_bytes s) { s.put(&slot_layout::tmask, 3); },
        [](slot_bytes s) {
            s.put_time(&slot_layout::start, {1000, 2});
        },
        [](slot_bytes s) {
            s.put_time(&slot_layout::lupdate, {0, 4});
        },
        [](slot_bytes s) {
            s.put_time(&slot_layout::lupdate, {5, 4});
        },
        [](slot_bytes s) { s.put(&slot_layout::pid, 5); },
        [](slot_bytes s) { s.put_wide(&slot_layout::evsize, 6); },
        [](slot_bytes s) { s.put(&slot_layout::nsblocks, 7); },
        [](slot_bytes s) { s.add_client(3, DONE); },
        [](slot_bytes s) { s.add_entry("A", 0, -1); },
    };
    for (const auto& change : changes) {
        step(10);
        change(slot(n));
    }
    step(10);
    EXPECT_FALSE(slot_is_free(n)) << "after 140 looks";
    let_go();
    EXPECT_TRUE(becomes_free(n)) << "with the next one";
}

TEST_P(Monitor, StatusOfAnEventIsNoSignOfLife)
{
    const int n = stale_event();
    const captured_output quiet;
    watch_in_steps();
    for (int i = 1; i <= 10; ++i) {
        step();
        slot(n).put(&slot_layout::status, i);
        if (wide()) slot(n).put_first_word(static_cast<uint64_t>(i));
    }
    let_go();
    EXPECT_TRUE(becomes_free(n));
}

TEST_P(Monitor, EventThatCameMeanwhileIsLookedAtFromTheStart)
{
    const int n = stale_event();
    const captured_output quiet;
    watch_in_steps();
    step(8);
    control(n).put_status(EVT_C_FREE);
    step();
    control(n).put_status(EVT_C_USED);
    step(10);
    EXPECT_FALSE(slot_is_free(n)) << "the same head, but somebody was there in between";
    let_go();
    EXPECT_TRUE(becomes_free(n));
}

TEST_P(Monitor, ReaderThatNeverTookItsEventIsDoneWithIt)
{
    child reader([] { pause(); });
    const int n = stale_event();
    const int slot_of_reader = client({.pid = reader.pid()});
    slot(n).add_client(slot_of_reader, NTF);
    captured_output captured;
    watch();
    ASSERT_TRUE(becomes_free(n));
    EXPECT_EQ(first_said(captured), suspicious(n) + freed(n) + TOOK);
    EXPECT_EQ(slot(n).client_status(0), DONE);
    EXPECT_FALSE(client_is_free(slot_of_reader)) << "it lives";
}

TEST_P(Monitor, ReaderAtWorkKeepsItsEvent)
{
    child reader([] { pause(); });
    const int n = stale_event();
    slot(n).add_client(client({.pid = reader.pid()}), PROC);
    captured_output captured;
    watch();
    EXPECT_EQ(first_said(captured), suspicious(n) + kept(n) + TOOK);
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_EQ(slot(n).client_status(0), PROC);
}

// Let go in between, the table would let the slot become the next event, which would then be freed.
TEST_P(Monitor, TableIsKeptFromTheDecisionToTheEnd)
{
    child reader([] { pause(); });
    const int n = stale_event();
    slot(n).add_client(client({.pid = reader.pid()}), NTF);
    bool let_go = false;
    const fault watched = fault::preceded(
        "semop",
        [&] {
            const bool decided = slot(n).client_status(0) == DONE && control(n).status() == EVT_C_USED;
            let_go = let_go || (decided && !event_lock_is_held(0));
        },
        1, FOR_EVER);
    const captured_output quiet;
    watch();
    ASSERT_TRUE(becomes_free(n));
    watching.stop_monitor();
    EXPECT_FALSE(let_go);
}

// Told while the monitor has the table already, and at work before it has the slot.
TEST_P(Monitor, ReaderThatBeginsAtTheLastMomentKeepsItsEvent)
{
    child reader([] { pause(); });
    const int n = stale_event();
    slot(n).add_client(client({.pid = reader.pid()}), NTF);
    ASSERT_TRUE(events_part.ctrl(n, true)); // by the reader, which begins
    bool begun = false;
    const fault begins = fault::preceded(
        "semop",
        [&, calls = 0]() mutable {
            calls = event_lock_is_held(0) ? calls + 1 : 0;
            if (begun || calls < 5) return;
            begun = true;
            slot(n).put_client_status(0, PROC);
            EXPECT_TRUE(events_part.ctrl(n, false));
        },
        1, FOR_EVER);
    captured_output captured;
    watch();
    EXPECT_EQ(first_said(captured), suspicious(n) + kept(n) + TOOK);
    EXPECT_TRUE(begun);
    EXPECT_EQ(control(n).status(), EVT_C_USED);
    EXPECT_EQ(slot(n).client_status(0), PROC);
}

TEST_P(Monitor, WriterAtWorkKeepsItsEventForTwentyPeriods)
{
    constexpr int PERIOD = 100'000; // twenty of them are two seconds, and ten go by before it decides
    child writer([] { pause(); });
    const int c = client({.cltype = CLI_T_WRITER, .pid = writer.pid()});
    for (const bool in_time : {true, false}) {
        const int n = stale_event();
        slot(n).add_client(c, PROC);
        time_stamp now;
        watching.get_cur_time(&now);
        // A second ahead: when it decides, a second later at the least, that is over, and whole seconds are left.
        slot(n).put_time(&slot_layout::lupdate, {in_time ? now.timeup + 1 : now.timeup - 2, 0});
        captured_output captured;
        watch_in_steps(PERIOD);
        step(10);
        let_go();
        EXPECT_EQ(first_said(captured), suspicious(n) + (in_time ? kept(n) : freed(n)) + TOOK);
        EXPECT_EQ(is_free(n), !in_time);
        bm.free_ev_slot(n);
    }
}

TEST_P(Monitor, WriterAtWorkDoesNotKeepAnEventThatWasNeverUpdated)
{
    child writer([] { pause(); });
    const int n = stale_event();
    slot(n).add_client(client({.cltype = CLI_T_WRITER, .pid = writer.pid()}), PROC);
    captured_output captured;
    watch();
    ASSERT_TRUE(becomes_free(n));
    EXPECT_EQ(first_said(captured), suspicious(n) + freed(n) + TOOK);
}

TEST_P(Monitor, KilledReaderIsThrownOutWithItsEvent)
{
    for (const int status : {PROC, NTF}) {
        child reader([] { pause(); });
        const int n = stale_event();
        const int slot_of_reader = client({.pid = reader.pid()});
        slot(n).add_client(slot_of_reader, status);
        captured_output captured;
        watch_in_steps();
        step(10);
        reader.kill_now();
        let_go();
        ASSERT_TRUE(becomes_free(n)) << "in the same pass";
        EXPECT_EQ(first_said(captured), suspicious(n) + "DATE MONITOR process: " + std::to_string(reader.pid()) +
                                            "  will be kicked out\n" + freed(n) + TOOK);
        EXPECT_TRUE(client_is_free(slot_of_reader));
        EXPECT_EQ(locks_held(), "");
    }
}

TEST_P(Monitor, ClientOfAProcessThatIsGoneLosesItsSlot)
{
    child reader([] { pause(); });
    const int slot_of_reader = client({.names = {"A", "B"}, .pid = reader.pid()});
    captured_output captured;
    watch();
    wait_for_cycles(2);
    EXPECT_FALSE(client_is_free(slot_of_reader));
    reader.kill_now();
    ASSERT_TRUE(eventually([&] { return client_is_free(slot_of_reader); }));
    wait_for_cycles(2);
    EXPECT_EQ(said_by_monitor(captured), "DATE MONITOR: " + std::to_string(reader.pid()) +
                                             "  will be kicked out slot:" + std::to_string(slot_of_reader) + "\n");
    EXPECT_TRUE(client_is_zero(slot_of_reader));
    EXPECT_EQ(locks_held(), "");
}

TEST_P(Monitor, ClientsOfItsOwnProcessAreNeverThrownOut)
{
    const int n = stale_event();
    const int own = client({.pid = getpid()});
    slot(n).add_client(own, PROC);
    captured_output captured;
    watch();
    ASSERT_TRUE(becomes_free(n)) << "they keep no event either";
    EXPECT_EQ(first_said(captured), suspicious(n) + freed(n) + TOOK);
    EXPECT_FALSE(client_is_free(own));
    EXPECT_EQ(slot(n).client_status(0), PROC);
}

TEST_P(Monitor, UnknownStatusOfAnEventIsReportedInEveryCycle)
{
    const int n = stale_event();
    control(n).put_status(-5);
    captured_output captured;
    watch();
    wait_for_cycles(3);
    const std::string text = said_by_monitor(captured);
    EXPECT_EQ(text.substr(0, 36), "DATE Unknown : -5\nDATE Unknown : -5\n");
    EXPECT_EQ(std::regex_replace(text, std::regex("DATE Unknown : -5\n"), ""), "") << "and nothing else";
    EXPECT_FALSE(slot_is_free(n));
}

TEST_P(Monitor, ClientSlotsThatDoNotExistAreReported)
{
    const int n = stale_event();
    for (const int snum : {-1, 25, 1 << 30}) slot(n).add_client(snum, PROC);
    captured_output captured;
    watch();
    ASSERT_TRUE(becomes_free(n));
    EXPECT_EQ(first_said(captured), suspicious(n) +
                                        "DATE MONITOR: failed to obtain the client slot address: -1\n"
                                        "DATE MONITOR: failed to obtain the client slot address: 25\n"
                                        "DATE MONITOR: failed to obtain the client slot address: 1073741824\n" +
                                        freed(n) + TOOK);
}

TEST_P(Monitor, EventIsFreedAlsoWhenItsLockIsNotToBeHad)
{
    const int n = stale_event();
    ASSERT_TRUE(events_part.ctrl(n, true)); // by somebody who stands still
    const captured_output quiet;
    watch();
    EXPECT_TRUE(becomes_free(n));
    watching.stop_monitor();
    ASSERT_TRUE(events_part.ctrl(n, false));
}

TEST_P(Monitor, StopEndsItsWaitForALock)
{
    ASSERT_TRUE(events_part.ctrl(0, true));
    watch();
    ASSERT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; }));
    EXPECT_FALSE(watching.stop_monitor());
    EXPECT_TRUE(event_lock_is_held(0)) << "somebody else's";
    ASSERT_TRUE(events_part.ctrl(0, false));
}

class MonitorAlone : public BothGenerations {};
IN_BOTH_GENERATIONS(MonitorAlone);

TEST_P(MonitorAlone, DataPartitionThatWasRemovedDoesNotEndIt)
{
    in_own_process([](event_host& host) {
        const int n = host.used_slot();
        for (const char* name : {"A", "B"}) host.slot(n).add_entry(name, host.data_id, host.put({}));
        host.remove_locks(semid_of(*host.bm.find_by_id(host.data_id)));
        const captured_output quiet;
        host.bm.set_monitoring_period(1000);
        EXPECT_FALSE(host.bm.start_monitor());
        EXPECT_TRUE(eventually([&] { return host.slot_is_free(n); })) << "one block, and ten cycles later the next";
        host.bm.stop_monitor();
        EXPECT_EQ(free_flag, 0);
        EXPECT_EQ(host.locks_held(), "");
        clear_ipc_namespace();
    });
}

TEST_P(MonitorAlone, LocksThatWereRemovedEndNoProcess)
{
    in_own_process([](event_host& host) {
        captured_output captured;
        host.remove_locks(host.events_semid);
        host.bm.set_monitoring_period(1000);
        EXPECT_FALSE(host.bm.start_monitor());
        EXPECT_TRUE(eventually([&] { return captured.out() != ""; }));
        EXPECT_EQ(captured.out().substr(0, 31), "throw C_shm::ctrl UP sem: 4   e");
        EXPECT_FALSE(host.bm.stop_monitor());
        clear_ipc_namespace();
    });
}

} // namespace
