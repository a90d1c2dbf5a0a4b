// The orderly way out of the exchange.
#include <csignal>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bm_clean.h"

using namespace zrk4::test;

namespace {

class BmCleanUp : public clean_up_case {};
class BmDestructor : public clean_up_case {};

// ---- all_clean_up

TEST_F(BmCleanUp, ObjectThatNeverBeganOnlyGetsItsBudgetsBack)
{
    const C_shm_buffer clients(CLIENTS, 2, 100, true); // somebody else's
    seen_bm bm;
    bm.master = true;
    spend_budgets(bm);
    captured_output captured;
    bm.all_clean_up();
    EXPECT_EQ(captured.out() + captured.err(), "");
    expect_budgets_are_back(bm);
    EXPECT_TRUE(segment_exists(shmid_of(clients)));
}

TEST_F(BmCleanUp, StopsTheMonitorOfAnObjectThatNeverBegan)
{
    const long threads = threads_now();
    seen_bm bm;
    ASSERT_FALSE(bm.set_master(true)) << "false is success";
    bm.all_clean_up();
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_TRUE(bm.master) << "a master without monitor";
    EXPECT_TRUE(threads_become(threads));
}

TEST_F(BmCleanUp, LeavesTheObjectAsNewAndItsConfigurationAsItWas)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    subscribed(bm, CLI_T_READER);
    subscribed(bm, CLI_T_WRITER);
    spend_budgets(bm);
    bm.set_time_mask(7);
    bm.set_get_key_func(3, nullptr);
    EXPECT_EQ(said([&] { bm.all_clean_up(); }), "") << "it reports nothing";
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
    EXPECT_EQ(bm.find_by_name(CLIENTS), nullptr);
    expect_budgets_are_back(bm);
    EXPECT_TRUE(bm.master && bm.forced);
    EXPECT_EQ(bm.ncli, HOST_CLIENTS);
    EXPECT_EQ(bm.time_mask, 7U);
    EXPECT_EQ(bm.get_key_f.size(), 32U);
}

TEST_F(BmCleanUp, LeavesNoThreadAndNoSocket)
{
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    seen_bm bm;
    make_small(bm);
    ASSERT_FALSE(bm.set_master(true)) << "false is success";
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    subscribed(bm, CLI_T_READER, 1);
    subscribed(bm, CLI_T_READER, 2);
    subscribed(bm, CLI_T_WRITER, 2);
    ASSERT_EQ(threads_now(), threads + 2);
    bm.all_clean_up();
    EXPECT_TRUE(threads_become(threads));
    EXPECT_EQ(descriptors_now(), descriptors);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmCleanUp, GivesItsOwnSlotsBackAndNobodyElses)
{
    still_master host;
    ASSERT_FALSE(quiet_init(host)) << "false is success";
    const other_holder seen;
    seen_bm bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(subscribed(host, CLI_T_WRITER, 5), 1);
    for (const auto cltype : {CLI_T_WRITER, CLI_T_READER, CLI_T_WRITER, CLI_T_READER}) subscribed(bm, cltype, 5);
    EXPECT_EQ(seen.counted(TOTAL), 5);
    bm.all_clean_up();
    EXPECT_EQ(seen.counted(TOTAL), 1);
    EXPECT_EQ(seen.counted(READERS), 0);
    EXPECT_EQ(seen.counted(WRITERS), 1);
    EXPECT_EQ(stat_of(seen.clients, "freebuf"), CLIENT_BUFFERS - 2);
    EXPECT_EQ(seen.clients.get_bufptr()[1].status & BUF_QUEUED, 0) << "the other one's slot";
}

// The next subscriptions get the slots in the order in which they came back.
TEST_F(BmCleanUp, GivesReadersBackFirstInTheOrderOfTheLists)
{
    still_master host;
    ASSERT_FALSE(quiet_init(host)) << "false is success";
    other_holder others;
    {
        seen_bm bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        for (const auto cltype : {CLI_T_WRITER, CLI_T_READER, CLI_T_WRITER, CLI_T_READER}) subscribed(bm, cltype);
        while (others.clients.get_buffer(BM_NO_WAIT, true) != nullptr) {}
        bm.all_clean_up();
    }
    for (const int slot : {2, 4, 1, 3})
        EXPECT_EQ(others.clients.buffer_id(others.clients.get_buffer(BM_NO_WAIT, true)), slot);
}

TEST_F(BmCleanUp, LeavesASlotAloneThatSomebodyElseHasNow)
{
    still_master host;
    ASSERT_FALSE(quiet_init(host)) << "false is success";
    const other_holder seen;
    {
        seen_bm bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        seen.clients.get_bufptr()[1].owner_pid = getppid();
        bm.all_clean_up();
    }
    EXPECT_EQ(seen.counted(TOTAL), 1);
    EXPECT_EQ(seen.clients.get_bufptr()[1].status & BUF_QUEUED, 0);
}

TEST_F(BmCleanUp, OfAMemberLeavesThePartitionsToTheOthers)
{
    still_master host;
    ASSERT_FALSE(quiet_init(host)) << "false is success";
    const other_holder seen;
    seen_bm bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    const int data = bm.add("T_DATA", 3, 100);
    const C_shm_buffer held("T_DATA");
    bm.all_clean_up();
    EXPECT_TRUE(segment_exists(shmid_of(seen.clients)));
    EXPECT_TRUE(segment_exists(shmid_of(seen.events)));
    EXPECT_TRUE(segment_exists(data));
    EXPECT_EQ(use_count_of(seen.clients), 2);
    EXPECT_EQ(use_count_of(held), 1);
}

TEST_F(BmCleanUp, OfTheLastMemberRemovesWhatNobodyUses)
{
    {
        const C_shm_buffer clients(CLIENTS, 9, 816, true), events(EVENTS, 9, 884, true);
        seen_bm bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
    }
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmCleanUp, OfAForcedMasterRemovesAllPartitionsOfItsPool)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    child member([&] {
        seen_bm other;
        const captured_output quiet;
        EXPECT_FALSE(other.init()) << "false is success";
        other.add("T_DATA", 3, 100);
        raise(SIGKILL); // it counts for ever as a user
    });
    EXPECT_EQ(member.wait(), 128 + SIGKILL);
    ASSERT_FALSE(bm.add("T_DATA")) << "false is success";
    ASSERT_EQ(segments_in_namespace(), 3);
    bm.all_clean_up();
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    seen_bm later;
    EXPECT_TRUE(quiet_init(later)) << "true is failure: there is no host";
    EXPECT_FALSE(quiet_init(bm)) << "false: the master makes a new one";
}

TEST_F(BmCleanUp, OfAMasterWithoutForceKeepsTheSlotPartitions)
{
    int clid = -1;
    int evid = -1;
    {
        still_master bm;
        bm.set_forced(false);
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        clid = bm.clid;
        evid = bm.evid;
        bm.add("T_DATA", 3, 100);
        bm.all_clean_up();
        EXPECT_EQ(segments_in_namespace(), 2) << "a data partition goes with its last user";
        EXPECT_TRUE(segment_exists(clid));
        EXPECT_TRUE(segment_exists(evid));
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        EXPECT_EQ(bm.clid, clid) << "reused";
        bm.set_forced(true);
    }
    EXPECT_FALSE(segment_exists(clid));
}

TEST_F(BmCleanUp, SecondTimeIsHarmless)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    subscribed(bm, CLI_T_READER);
    bm.all_clean_up();
    const C_shm_buffer clients(CLIENTS, 2, 100, true); // of a later host
    captured_output captured;
    bm.all_clean_up();
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_TRUE(segment_exists(shmid_of(clients)));
    EXPECT_TRUE(bm.detached());
}

// Every lock and every access, the control lock first: see the order of the calls.
TEST_F(BmCleanUp, FromVanishedPartitionsEndsAsTheForcedOne)
{
    constexpr int OF_TWO_SLOTS = 14; // the partitions' own locks are behind them: those do not throw
    for (int k = 1; k <= OF_TWO_SLOTS; ++k) {
        SCOPED_TRACE(k);
        child master([&] {
            const captured_output quiet;
            const long threads = threads_now();
            still_master bm;
            ASSERT_FALSE(bm.init()) << "false is success";
            subscribed(bm, CLI_T_READER);
            subscribed(bm, CLI_T_WRITER);
            spend_budgets(bm);
            const live_segment seen(bm.clid);
            {
                const fault vanish = fault::preceded("semop", clear_ipc_namespace, k);
                bm.all_clean_up();
                EXPECT_EQ(vanish.fired(), 1);
            }
            EXPECT_TRUE(bm.detached());
            EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
            EXPECT_TRUE(threads_become(threads));
            EXPECT_EQ(seen.int32(8), 1) << "no partition object was destroyed";
            expect_budgets_are_back(bm);
            EXPECT_FALSE(bm.init()) << "false is success";
            EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
            bm.all_clean_up();
        });
        EXPECT_EQ(master.wait(), 0);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

/// Makes the locks of the client partition look as if it had none: a wait for one is then a logical error.
void take_locks_away(const seen_bm& bm) { live_segment(bm.clid, live_segment::WRITE).put_byte(AT_SEMS, 0); }

TEST_F(BmCleanUp, LetsOtherExceptionsReachTheCaller)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    subscribed(bm, CLI_T_WRITER);
    take_locks_away(bm);
    EXPECT_THROW(bm.all_clean_up(), std::logic_error);
    live_segment(bm.clid, live_segment::WRITE).put_byte(AT_SEMS, 1);
}

// ---- the destructor

TEST_F(BmDestructor, LeavesTheExchange)
{
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    {
        seen_bm bm;
        make_small(bm);
        ASSERT_FALSE(bm.set_master(true)) << "false is success";
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        subscribed(bm, CLI_T_READER);
        bm.add("T_DATA", 3, 100);
    }
    EXPECT_TRUE(threads_become(threads));
    EXPECT_EQ(descriptors_now(), descriptors);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmDestructor, OfADerivedObjectRunsThroughItsBase)
{
    still_master host;
    ASSERT_FALSE(quiet_init(host)) << "false is success";
    std::unique_ptr<BM> bm = std::make_unique<seen_bm>();
    ASSERT_FALSE(quiet_init(*bm)) << "false is success";
    EXPECT_EQ(subscribed(*bm, CLI_T_WRITER), 1);
    bm.reset();
    EXPECT_EQ(+host.clictrl->clitotal, 0);
}

TEST_F(BmDestructor, ClosesASocketThatOnlySent)
{
    const long descriptors = descriptors_now();
    {
        seen_bm bm;
        bm.qid = socket(AF_INET, SOCK_DGRAM, 0);
        bm.all_clean_up();
        EXPECT_EQ(descriptors_now(), descriptors + 1) << "kept: it may be needed again";
    }
    EXPECT_EQ(descriptors_now(), descriptors);
}

TEST_F(BmDestructor, ExceptionEndsTheProcess)
{
    child process([] {
        const captured_output quiet;
        still_master bm;
        EXPECT_FALSE(bm.init());
        subscribed(bm, CLI_T_WRITER);
        take_locks_away(bm);
    });
    EXPECT_EQ(process.wait(), 128 + SIGABRT);
    clear_ipc_namespace();
}

} // namespace
