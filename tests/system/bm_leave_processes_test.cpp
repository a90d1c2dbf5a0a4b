// Processes that leave a host, in every order and in every way.
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/bm_host.h"
#include "latch.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

class BmLeave : public CleanNamespace {};

/// A member that subscribes as a reader, says so, and does `body` when it is told to.
struct staying_member {
    latch in, go_on;
    child process;

    template <class Body>
    explicit staying_member(Body body)
        : process([this, body] {
              seen_bm bm;
              EXPECT_FALSE(bm.init()) << "false is success";
              EXPECT_GE(subscribed(bm, CLI_T_READER), 1);
              in.open();
              go_on.wait();
              body(bm);
          })
    {
        in.wait();
    }
    int finish()
    {
        go_on.open();
        return process.wait();
    }
};

TEST_F(BmLeave, MembersOfAMasterThatHasLeftGetMinus2)
{
    captured_output captured;
    auto master = std::make_unique<still_master>();
    EXPECT_FALSE(master->init()) << "false is success";
    const int semid = semid_of(*master->cl_buf);
    staying_member member([](seen_bm& bm) {
        EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), -2);
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.port, -1) << "its reader is gone";
        EXPECT_TRUE(bm.init()) << "true is failure: there is no host";
    });
    master.reset();
    EXPECT_EQ(semaphore_sets_in_namespace(), 0) << "removed under its members";
    captured.forget();
    EXPECT_EQ(member.finish(), 0);
    EXPECT_EQ(captured.out(), "throw C_shm::ctrl UP sem: 4   errno: 22  semid: " + std::to_string(semid) + "\n");
    EXPECT_EQ(segments_in_namespace(), 0) << "the last mapping went with the member";
}

TEST_F(BmLeave, MembersMayLeaveAfterTheirMaster)
{
    auto master = std::make_unique<still_master>();
    ASSERT_FALSE(quiet_init(*master)) << "false is success";
    const captured_output quiet;
    staying_member member([](seen_bm& bm) {
        bm.all_clean_up();
        EXPECT_TRUE(bm.detached());
        bm.all_clean_up();
    });
    master.reset();
    EXPECT_EQ(member.finish(), 0);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmLeave, LastOneOfAHostWithoutMasterRemovesIt)
{
    {
        const captured_output quiet;
        still_master master;
        ASSERT_FALSE(master.init()) << "false is success";
        master.set_forced(false);
    }
    ASSERT_EQ(segments_in_namespace(), 2) << "kept by the master";
    staying_member first([](seen_bm& bm) { bm.all_clean_up(); });
    staying_member second([](seen_bm& bm) { bm.all_clean_up(); });
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(segments_in_namespace(), 2) << "the second one is in";
    EXPECT_EQ(second.finish(), 0);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmLeave, MasterWithoutForceIsFollowedByTheNextOneWithAllClients)
{
    {
        const captured_output quiet;
        still_master first;
        ASSERT_FALSE(first.init()) << "false is success";
        first.set_forced(false);
    }
    staying_member member([](seen_bm& bm) { EXPECT_GE(bm.unsubscribe(TYPE, CLI_T_READER), 1); });
    still_master next;
    ASSERT_FALSE(quiet_init(next)) << "false is success";
    EXPECT_EQ(+next.clictrl->clireader, 1);
    EXPECT_EQ(member.finish(), 0);
    EXPECT_EQ(+next.clictrl->clireader, 0);
}

TEST_F(BmLeave, KilledMemberKeepsThePartitionsUntilAMasterRemovesThem)
{
    {
        const captured_output quiet;
        still_master master;
        ASSERT_FALSE(master.init()) << "false is success";
        master.set_forced(false);
    }
    staying_member killed([](seen_bm&) {});
    killed.process.kill_now();
    staying_member leaving([](seen_bm& bm) { bm.all_clean_up(); });
    EXPECT_EQ(leaving.finish(), 0);
    EXPECT_EQ(segments_in_namespace(), 2) << "the dead one counts as a user";
    {
        still_master next;
        ASSERT_FALSE(quiet_init(next)) << "false is success";
        EXPECT_EQ(+next.clictrl->clitotal, 1) << "and as a client";
    }
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmLeave, ForcedCleanIsADeathToTheOthersUntilTheMonitorSeesIt)
{
    latch left, go;
    still_master master;
    ASSERT_FALSE(quiet_init(master)) << "false is success";
    child member([&] {
        seen_bm bm;
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 2);
        bm.forced_clean();
        left.open();
        go.wait();
    });
    left.wait();
    EXPECT_EQ(+master.clictrl->clitotal, 2) << "its slots are still counted";
    go.open();
    EXPECT_EQ(member.wait(), 0);
    EXPECT_EQ(+master.clictrl->clitotal, 2) << "also when it is gone";
    EXPECT_EQ(use_count_of(*master.cl_buf), 2);
    captured_output captured;
    master.set_monitoring_period(1000); // starts the monitor: nobody else is looking by now
    EXPECT_TRUE(eventually([&] {
        int writers = -1;
        int readers = -1;
        master.cl_subscribed(&writers, &readers);
        return writers == 0 && readers == 0;
    }));
    master.stop_monitor();
    EXPECT_EQ(stat_of(*master.cl_buf, "freebuf"), CLIENT_BUFFERS - 1);
}

// A process that only began, and one that never did: what it leaves is what it found.
TEST_F(BmLeave, ProcessThatEndsWithoutACleanUpLeavesOnlyItsCounts)
{
    still_master master;
    ASSERT_FALSE(quiet_init(master)) << "false is success";
    child member([] {
        auto* bm = new seen_bm; // never destroyed, as in a program that calls exit()
        EXPECT_FALSE(bm->init()) << "false is success";
        EXPECT_EQ(subscribed(*bm, CLI_T_READER), 1);
    });
    EXPECT_EQ(member.wait(), 0);
    EXPECT_EQ(+master.clictrl->clitotal, 1);
    EXPECT_EQ(attachments(master.clid), 1) << "the mapping went with the process";
    EXPECT_EQ(subscribed(master, CLI_T_WRITER), 2);
}

} // namespace
