// What real processes leave when they are really killed: told, brought back, and nothing taken from those who live.
#include <csignal>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/wait.h>

#include "../unit/check_host.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"

using namespace zrk4::test;

namespace {

class CheckKilled : public CheckHost {
  protected:
    /// Runs `body` in a process and kills it behind it. @return its id.
    pid_t killed_after(const std::function<void()>& body) const
    {
        latch done;
        child victim([&] {
            body();
            done.open();
            pause();
        });
        done.wait();
        victim.kill_now();
        return victim.pid();
    }
    /// Lets a process give something back and kills it in front of the data partition's gate.
    pid_t killed_at_the_gate(const std::function<void(BM&)>& way_back)
    {
        EXPECT_TRUE(data().bgate(true));
        child victim([&] { way_back(bm); });
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(semid_of(data()), 0) == 1; }));
        victim.kill_now();
        EXPECT_TRUE(data().bgate(false));
        return victim.pid();
    }
    int event_of(const std::string& name, int b)
    {
        const int n = used_slot();
        slot(n).add_entry(name, data_id, b);
        return n;
    }
    static std::string buffer_of(pid_t pid, int b, const char* verdict)
    {
        return std::string("4 ") + verdict + " " + at("T_DATA", b, pid) + ": buffer " + std::to_string(b) +
               " was taken by process " + std::to_string(pid) + ", which is gone, and is in no event";
    }
};
IN_BOTH_GENERATIONS(CheckKilled);

TEST_P(CheckKilled, AWritersBufferComesBack)
{
    const pid_t pid = killed_after([&] { put({}); });
    expect_mended({buffer_of(pid, 0, "broken")});
    EXPECT_TRUE(block_is_free(0));
    EXPECT_EQ(semaphore_value(semid_of(data()), 1), BLOCKS);
}

TEST_P(CheckKilled, AZombieIsDead)
{
    latch done;
    child victim([&] {
        put({});
        done.open();
        pause();
    });
    done.wait();
    victim.send(SIGKILL);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(victim.pid()), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(found(true), lines{buffer_of(victim.pid(), 0, "repaired")});
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(CheckKilled, AStoppedProcessKeepsWhatItHolds)
{
    latch done;
    child stopped([&] {
        put({});
        clients_part.get_buffer(BM_NO_WAIT, true);
        done.open();
        pause();
    });
    done.wait();
    stopped.stop();
    EXPECT_EQ(found(true), lines{});
    EXPECT_FALSE(block_is_free(0));
    stopped.kill_now();
    EXPECT_EQ(found(true).size(), 2U) << "now it does not";
    EXPECT_EQ(found(), lines{});
}

TEST_P(CheckKilled, AProcessThatLeftThePartitionHoldsNothing)
{
    latch left, leave;
    child writer([&] {
        put({});
        EXPECT_EQ(shmdt(reinterpret_cast<char*>(data().get_bufptr()) - AT_DESCRIPTORS), 0);
        left.open();
        leave.wait();
    });
    left.wait();
    EXPECT_EQ(found(true), lines{buffer_of(writer.pid(), 0, "repaired")});
    leave.open();
    EXPECT_EQ(writer.wait(), 0);
}

TEST_P(CheckKilled, ASubscribersSlotComesBackBeforeItsHeadIsWritten)
{
    const pid_t pid = killed_after([&] { clients_part.get_buffer(BM_NO_WAIT, true); });
    expect_mended({"4 broken " + at(CLIENTS, 1, pid) + ": client slot 1 was taken by process " + std::to_string(pid) +
                   ", which is gone"});
    EXPECT_TRUE(client_is_free(1));
}

TEST_P(CheckKilled, AClientGoesAndIsUncounted)
{
    const pid_t pid = killed_after([&] {
        auto* its = new open_bm; // killed with it
        join(*its);
        zrk4_client all{};
        EXPECT_EQ(its->subscribe(TYPE, CLI_T_WRITER, &all, nullptr), 1);
    });
    EXPECT_EQ(counter(4), 1);
    expect_mended({"4 broken " + at(CLIENTS, 1, pid) + ": client slot 1 belongs to process " + std::to_string(pid) +
                   ", which is gone"});
    EXPECT_EQ(counter(4), 0);
    EXPECT_EQ(counter(12), 0);
    EXPECT_EQ(counter(144 + 4 * TYPE), 0);
    a_user_was_killed = true;
}

TEST_P(CheckKilled, ABufferOnItsWayBackComesBack)
{
    const int b = put({.server = "A"});
    const int n = event_of("A", b);
    killed_at_the_gate([n](BM& its) { its.free_ev_slot(n); });
    EXPECT_FALSE(bm.free_ev_slot(n)) << "the monitor ends the event";
    expect_mended({"4 broken " + at("T_DATA", b, getpid()) + ": buffer " + std::to_string(b) +
                   " was on its way back when a process died"});
    EXPECT_TRUE(block_is_free(b));
}

TEST_P(CheckKilled, ABufferReturnedEarlyIsListedAndNotTaken)
{
    const int b = put({.server = "A"});
    event_of("A", b);
    killed_at_the_gate([&](BM& its) { its.return_buffer_in_pool_ext(TYPE, b, data_id); });
    EXPECT_EQ(found(true), lines{}) << "it looks as held by its writer";
    expect_held_here(b);
}

TEST_P(CheckKilled, ALockTakenWithoutUndoIsFreedBehindItsHolder)
{
    const int lock = 4 + 3;
    const pid_t pid = killed_after([&] { change_semaphore(events_semid, lock, -1); });
    expect_mended(
        {"8 broken " + at(EVENTS, 3, pid) + ": lock 3 is held by process " + std::to_string(pid) + ", which is gone"});
    EXPECT_EQ(semaphore_value(events_semid, lock), 1);
}

TEST_P(CheckKilled, AGateThatSeveralMayPassIsClosedToOne)
{
    ASSERT_TRUE(change_semaphore(semid_of(data()), 0, 2));
    expect_mended({"8 broken T_DATA: the gate stands at 3: that many may hold it at once"});
}

TEST_P(CheckKilled, ALockInLiveHandsIsNoFindingButCannotBePassed)
{
    latch taken, go_on;
    child holder([&] {
        EXPECT_TRUE(data().bgate(true));
        taken.open();
        go_on.wait();
        EXPECT_TRUE(data().bgate(false));
    });
    taken.wait();
    bm_check_request asked = request(true);
    asked.patience = std::chrono::milliseconds(20);
    const bm_check_report report = bm_check(asked);
    go_on.open();
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_TRUE(report.clean());
    EXPECT_FALSE(report.complete());
    for (const bm_checked_partition& p : report.partitions) {
        const bool is_busy = p.name == "T_DATA";
        EXPECT_EQ(p.state, is_busy ? bm_check_state::busy : bm_check_state::looked_at) << p.name;
        EXPECT_EQ(p.text, is_busy ? "the gate could not be had within 20 ms: held by process " +
                                        std::to_string(holder.pid()) + " (S)"
                                  : "");
    }
}

TEST_P(CheckKilled, AnEventSlotWhoseLockIsHeldIsReadAllTheSame)
{
    const int n = event_of("A", put({}));
    latch taken, go_on;
    child holder([&] {
        EXPECT_TRUE(events_part.ctrl(n, true));
        taken.open();
        go_on.wait();
    });
    taken.wait();
    EXPECT_EQ(found(true), lines{});
    go_on.open();
    EXPECT_EQ(holder.wait(), 0);
}

} // namespace
