// Masters and members of one host that begin, wait for each other, and die at any point of it.
#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/bm_host.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

class BmInitProcesses : public CleanNamespace {};

struct counts {
    int writers = -1, readers = -1;
    explicit counts(BM& bm) { bm.cl_subscribed(&writers, &readers); }
};

TEST_F(BmInitProcesses, MemberThatComesTooEarlyFailsAndMayTryAgain)
{
    latch tried, made;
    child member([&] {
        BM bm;
        EXPECT_TRUE(bm.init()) << "true is failure";
        tried.open();
        made.wait();
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
    });
    tried.wait();
    still_master master;
    ASSERT_FALSE(quiet_init(master)) << "false is success";
    made.open();
    EXPECT_EQ(member.wait(), 0);
    EXPECT_EQ(counts(master).readers, 0) << "given back by its destructor";
}

// Each with the limits that it thinks right; the partitions are those of the master.
TEST_F(BmInitProcesses, MembersMeetInOneState)
{
    constexpr int MEMBERS = 4;
    still_master master;
    ASSERT_FALSE(quiet_init(master)) << "false is success";
    latch subscribed_all(MEMBERS), seen_all(MEMBERS + 1);
    const auto take_part = [&](BUF_MNG_CLI_TYPE cltype, int nblocks) {
        seen_bm bm;
        bm.set_nblocks(nblocks);
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_GE(subscribed(bm, cltype), 1);
        subscribed_all.open();
        subscribed_all.wait();
        const counts now(bm);
        EXPECT_EQ(now.writers, 3);
        EXPECT_EQ(now.readers, 1);
        EXPECT_EQ(bm.set_ncl_slots(1), CLIENT_BUFFERS);
        seen_all.open();
        seen_all.wait();
    };
    child first([&] { take_part(CLI_T_WRITER, 4094); });
    child second([&] { take_part(CLI_T_READER, 1); });
    child third([&] { take_part(CLI_T_WRITER, 0); });
    child fourth([&] { take_part(CLI_T_WRITER, 7); });
    subscribed_all.wait();
    EXPECT_EQ(+master.clictrl->clitotal, 4);
    seen_all.open();
    for (child* member : {&first, &second, &third, &fourth}) EXPECT_EQ(member->wait(), 0);
    EXPECT_EQ(+master.clictrl->clitotal, 0);
}

TEST_F(BmInitProcesses, ReadersOfDifferentProcessesHaveDifferentPorts)
{
    constexpr int READERS = 8;
    still_master master;
    ASSERT_FALSE(quiet_init(master)) << "false is success";
    latch open, leave;
    shared<std::array<std::atomic<int>, READERS>> ports;
    shared<std::atomic<int>> next;
    const auto read = [&] {
        seen_bm bm;
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_GE(subscribed(bm, CLI_T_READER), 1);
        (*ports)[static_cast<size_t>((*next)++)] = bm.port.load();
        if (*next == READERS) open.open();
        leave.wait();
    };
    std::vector<std::unique_ptr<child>> readers;
    for (int i = 0; i < READERS; ++i) readers.push_back(std::make_unique<child>(read));
    open.wait();
    leave.open();
    for (const auto& reader : readers) EXPECT_EQ(reader->wait(), 0);
    EXPECT_EQ(std::set<int>(ports->begin(), ports->end()).size(), size_t{READERS});
}

// Before each of its semaphore operations. The partitions that it leaves bear no user, or one for ever; buffer 0 of
// one or both is still in the queue, and is nobody's slot.
TEST_F(BmInitProcesses, MasterKilledInItsInitLeavesAHostForTheNextOne)
{
    constexpr int SEMOPS_OF_INIT = 12;
    for (int k = 1; k <= SEMOPS_OF_INIT; ++k) {
        SCOPED_TRACE(k);
        const captured_output quiet;
        child killed([&] {
            still_master bm;
            const fault death = fault::preceded(
                "semop", [] { raise(SIGKILL); }, k);
            bm.init();
        });
        ASSERT_EQ(killed.wait(), 128 + SIGKILL);
        child next([] {
            still_master bm;
            EXPECT_FALSE(bm.init()) << "false is success";
            EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
            std::string block(284, '\0');
            block[0] = 1;
            EXPECT_EQ(bm.find_ev_slot(ZRK4_EV_NORMAL, block.data()), 1);
            EXPECT_EQ(+bm.clictrl->clitotal, 1) << "nobody has written over the control block";
            EXPECT_EQ(bm.cl_buf.load()->get_bufptr()[0].status & BUF_QUEUED, 0);
            EXPECT_EQ(bm.ev_buf.load()->get_bufptr()[0].status & BUF_QUEUED, 0);
        });
        EXPECT_EQ(next.wait(), 0);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

TEST_F(BmInitProcesses, PartitionsReplacedByForceAreLostToTheirMembers)
{
    latch in, replaced, out;
    captured_output captured;
    child member([&] {
        {
            C_shm_buffer clients(CLIENTS, 5, 400, true), events(EVENTS, 5, 700, true);
            clients.keep(true);
            events.keep(true);
        }
        seen_bm bm;
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_GE(subscribed(bm, CLI_T_WRITER), 1);
        const int old = bm.clid;
        in.open();
        replaced.wait();
        EXPECT_EQ(bm.unsubscribe(ZRK4_EV_NORMAL, CLI_T_WRITER), -2);
        EXPECT_TRUE(bm.detached());
        EXPECT_FALSE(bm.init()) << "false: there is a new host";
        EXPECT_NE(bm.clid, old);
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        out.open();
    });
    in.wait();
    {
        still_master master;
        EXPECT_FALSE(master.init()) << "false is success";
        replaced.open();
        out.wait();
        EXPECT_EQ(member.wait(), 0);
    }
    EXPECT_NE(captured.out().find("Forcing mode: removing it !!!\n"), std::string::npos);
    EXPECT_NE(captured.out().find("throw C_shm::ctrl UP sem: 4   errno: 22  semid: "), std::string::npos);
}

// ---- the control lock of the client partition, when the event partition is new

class BmInitWaiting : public CleanNamespace {
  protected:
    BmInitWaiting() { clients.get_buffer(BM_NO_WAIT, true); }
    ~BmInitWaiting() override { const C_shm_kill made(EVENTS), counted_for_ever(CLIENTS); }
    /// A master that asks for the control lock, which somebody else holds.
    static void be_master()
    {
        still_master bm;
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
        bm.set_forced(false);
    }
    bool somebody_waits() const
    {
        return eventually([&] { return semaphore_waiters(semid_of(clients), 4) == 1; });
    }

    C_shm_buffer clients{CLIENTS, CLIENT_BUFFERS, CLIENT_LENGTH, true};
};

TEST_F(BmInitWaiting, MasterWaitsForTheHolderOfTheControlLock)
{
    ASSERT_TRUE(clients.ctrl(0, true));
    captured_output captured;
    child master(be_master);
    ASSERT_TRUE(somebody_waits());
    EXPECT_EQ(live_segment(shmid_of(clients)).int32(300 + 48 * CLIENT_BUFFERS), CLI_C_CLN) << "not set yet";
    ASSERT_TRUE(clients.ctrl(0, false));
    EXPECT_EQ(master.wait(), 0);
    EXPECT_EQ(captured.out().find("Ku-ku"), std::string::npos);
}

TEST_F(BmInitWaiting, MasterGoesOnWhenTheHolderIsKilled)
{
    latch taken;
    const captured_output quiet;
    child holder([&] {
        const C_shm_buffer part(CLIENTS);
        EXPECT_TRUE(part.ctrl(0, true));
        taken.open();
        pause();
    });
    taken.wait();
    child master(be_master);
    ASSERT_TRUE(somebody_waits());
    holder.kill_now();
    EXPECT_EQ(master.wait(), 0);
}

shared<std::atomic<int>>* signals_taken = nullptr;
void count_signal(int /*signal*/) { ++**signals_taken; }

TEST_F(BmInitWaiting, EverySignalThatEndsAWaitIsAKuKu)
{
    ASSERT_TRUE(clients.ctrl(0, true));
    shared<std::atomic<int>> taken;
    signals_taken = &taken;
    captured_output captured;
    child master([] {
        struct sigaction action {};
        action.sa_handler = count_signal;
        action.sa_flags = SA_RESTART; // this wait is never restarted all the same
        sigaction(SIGUSR1, &action, nullptr);
        be_master();
    });
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(somebody_waits());
        master.send(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return *taken == i; }));
    }
    ASSERT_TRUE(somebody_waits());
    ASSERT_TRUE(clients.ctrl(0, false));
    EXPECT_EQ(master.wait(), 0);
    const std::string text = dates_marked(captured.out());
    EXPECT_EQ(text.substr(text.find("DATE Ku-ku")), "DATE Ku-ku\nDATE Ku-ku\nDATE Ku-ku\n");
}

} // namespace
