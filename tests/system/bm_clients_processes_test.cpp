// Client slots between processes: the order of the locks, deaths with a lock in hand, many at once.
#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/bm_host.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;
constexpr int CONTROL = 4; // its semaphore; slot n has 4 + n

class BmClients : public CleanNamespace {
  protected:
    BmClients() { EXPECT_FALSE(quiet_init(host)) << "false is success"; }
    ~BmClients() override
    {
        for (int i = 0; i < semaphores_in_set(semid()); ++i) {
            const bool is_lock = i == 0 || i >= CONTROL;
            EXPECT_TRUE(!is_lock || semaphore_value(semid(), i) == 1) << "lock " << i - CONTROL;
        }
    }
    int semid() const { return semid_of(*host.cl_buf); }
    bool somebody_waits_for(int semaphore) const
    {
        return eventually([&] { return semaphore_waiters(semid(), semaphore) == 1; });
    }
    C_shm_buffer& clients() const { return *host.cl_buf; }
    const zrk4_client_slot_head& head(int n) const
    {
        return *reinterpret_cast<zrk4_client_slot_head*>(clients().buffer_addr(n));
    }
    /// What a member does, from its init to its destructor.
    template <class Body> static auto member(Body body)
    {
        return [body] {
            const captured_output quiet;
            seen_bm bm;
            EXPECT_FALSE(bm.init()) << "false is success";
            body(bm);
        };
    }

    still_master host;
};

TEST_F(BmClients, SubscriberHasItsSlotWhenItAsksForTheControlLock)
{
    ASSERT_TRUE(clients().ctrl(0, true));
    child subscriber(member([&](BM& bm) { EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1); }));
    ASSERT_TRUE(somebody_waits_for(CONTROL));
    EXPECT_EQ(semaphore_value(semid(), CONTROL + 1), 0) << "the slot's own lock is held";
    EXPECT_EQ(+head(1).pid, subscriber.pid()) << "the slot is written";
    EXPECT_EQ(static_cast<int>(head(1).cltype), CLI_T_WRITER);
    EXPECT_EQ(+host.clictrl->clitotal, 0) << "and not counted";
    ASSERT_TRUE(clients().ctrl(0, false));
    EXPECT_EQ(subscriber.wait(), 0);
}

TEST_F(BmClients, UnsubscriberHasTheControlLockWhenItAsksForItsSlot)
{
    latch in, leave;
    child subscriber(member([&](BM& bm) {
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        in.open();
        leave.wait();
        EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), 1);
    }));
    in.wait();
    ASSERT_TRUE(clients().ctrl(1, true));
    leave.open();
    ASSERT_TRUE(somebody_waits_for(CONTROL + 1));
    EXPECT_EQ(semaphore_value(semid(), CONTROL), 0) << "the control lock is held";
    EXPECT_EQ(+host.clictrl->clitotal, 1) << "nothing is changed yet";
    ASSERT_TRUE(clients().ctrl(1, false));
    EXPECT_EQ(subscriber.wait(), 0);
    EXPECT_EQ(+host.clictrl->clitotal, 0);
}

TEST_F(BmClients, CountsWaitForTheControlLock)
{
    ASSERT_TRUE(clients().ctrl(0, true));
    child asking(member([](BM& bm) {
        int writers = -1;
        bm.cl_subscribed(&writers, nullptr);
        EXPECT_EQ(writers, 7);
    }));
    ASSERT_TRUE(somebody_waits_for(CONTROL));
    host.clictrl->cliwriter = 7;
    ASSERT_TRUE(clients().ctrl(0, false));
    EXPECT_EQ(asking.wait(), 0);
}

TEST_F(BmClients, SubscriberKilledWithItsSlotsLockLeavesTheOthersToGoOn)
{
    ASSERT_TRUE(clients().ctrl(0, true));
    child killed(member([](BM& bm) { subscribed(bm, CLI_T_WRITER); }));
    ASSERT_TRUE(somebody_waits_for(CONTROL));
    killed.kill_now();
    ASSERT_TRUE(clients().ctrl(0, false));
    EXPECT_EQ(subscribed(host, CLI_T_WRITER), 2);
    EXPECT_EQ(host.unsubscribe(TYPE, CLI_T_WRITER), 2);
    EXPECT_TRUE(clients().ctrl(1, true)) << "its slot's lock came back with its death";
    EXPECT_TRUE(clients().ctrl(1, false));
    EXPECT_EQ(+clients().get_bufptr()[1].owner_pid, killed.pid()) << "held by the dead one until a monitor comes";
}

// Before each of its semaphore operations: the locks come back, the others go on, and nobody's count is negative.
TEST_F(BmClients, UnsubscriberKilledAnywhereLeavesTheOthersToGoOn)
{
    constexpr int SEMOPS = 7;
    for (int k = 1; k <= SEMOPS; ++k) {
        SCOPED_TRACE(k);
        child killed(member([&](BM& bm) {
            EXPECT_GE(subscribed(bm, CLI_T_WRITER), 1);
            const fault death = fault::preceded(
                "semop", [] { raise(SIGKILL); }, k);
            bm.unsubscribe(TYPE, CLI_T_WRITER);
        }));
        ASSERT_EQ(killed.wait(), 128 + SIGKILL);
        const int n = subscribed(host, CLI_T_WRITER);
        EXPECT_GE(n, 1);
        EXPECT_EQ(host.unsubscribe(TYPE, CLI_T_WRITER), n);
        EXPECT_GE(+host.clictrl->clitotal, 0);
    }
}

TEST_F(BmClients, ManyAtOnceGetSlotsOfTheirOwn)
{
    constexpr int MEMBERS = 5;
    constexpr int ROUNDS = 30;
    latch begin(MEMBERS);
    shared<std::array<std::atomic<int>, CLIENT_BUFFERS>> holders;
    const auto come_and_go = member([&](BM& bm) {
        begin.open();
        begin.wait();
        for (int i = 0; i < ROUNDS; ++i) {
            const auto cltype = i % 2 == 0 ? CLI_T_WRITER : CLI_T_READER;
            const int n = subscribed(bm, cltype);
            if (n < 1) throw std::runtime_error("no slot");
            std::atomic<int>& holder = (*holders)[static_cast<size_t>(n)];
            EXPECT_EQ(holder.exchange(getpid()), 0) << "slot " << n << " is somebody's";
            EXPECT_EQ(holder.exchange(0), getpid());
            EXPECT_EQ(bm.unsubscribe(TYPE, cltype), n);
        }
    });
    std::vector<std::unique_ptr<child>> members;
    for (int i = 0; i < MEMBERS; ++i) members.push_back(std::make_unique<child>(come_and_go));
    for (const auto& m : members) EXPECT_EQ(m->wait(), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(host.clictrl) + 4, 268), std::string(268, '\0'))
        << "all counts are 0";
    EXPECT_EQ(stat_of(clients(), "freebuf"), CLIENT_BUFFERS - 1);
}

// A monitor that takes another process's slots for those of a dead one frees them; a third process gets the number.
TEST_F(BmClients, SlotThatAThirdProcessHasByNowIsLeftAlone)
{
    latch in, taken_away, third_in, second_out;
    child second(member([&](seen_bm& bm) {
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        in.open();
        third_in.wait();
        EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), -1);
        EXPECT_TRUE(bm.swriter.empty());
        second_out.open();
    }));
    child third(member([&](BM& bm) {
        taken_away.wait();
        int n = -1;
        while (n != 1) n = subscribed(bm, CLI_T_WRITER);
        third_in.open();
        second_out.wait();
        EXPECT_GE(bm.unsubscribe(TYPE, CLI_T_WRITER), 1) << "still its own";
    }));
    in.wait();
    ASSERT_TRUE(clients().ctrl(0, true));
    EXPECT_EQ(host.free_cl_slot(1, nullptr), 0);
    ASSERT_TRUE(clients().ctrl(0, false));
    taken_away.open();
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(third.wait(), 0);
    EXPECT_EQ(+host.clictrl->clitotal, 0);
}

TEST_F(BmClients, ObjectMadeBeforeAForkSignsWithItsMakersId)
{
    const pid_t maker = getpid();
    seen_bm made_before;
    child forked([&] {
        const captured_output quiet;
        EXPECT_FALSE(made_before.init()) << "false is success";
        const int n = subscribed(made_before, CLI_T_WRITER);
        EXPECT_EQ(+head(n).pid, maker);
        EXPECT_EQ(+clients().get_bufptr()[n].owner_pid, getpid()) << "the buffer is the caller's";
        EXPECT_EQ(made_before.unsubscribe(TYPE, CLI_T_WRITER), n);
        made_before.all_clean_up();
    });
    EXPECT_EQ(forked.wait(), 0);
}

} // namespace
