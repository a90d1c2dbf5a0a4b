// The way out of the exchange that touches nothing of it.
#include <gtest/gtest.h>

#include "bm_clean.h"

using namespace zrk4::test;

namespace {

class BmForcedClean : public clean_up_case {};

TEST_F(BmForcedClean, LeavesSlotsAndCountersAsTheyAre)
{
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        const other_holder seen;
        subscribed(bm, CLI_T_READER);
        subscribed(bm, CLI_T_WRITER);
        spend_budgets(bm);
        EXPECT_EQ(said([&] { bm.forced_clean(); }), "") << "it reports nothing";
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
        expect_budgets_are_back(bm);
        EXPECT_EQ(seen.counted(TOTAL), 2);
        EXPECT_EQ(seen.counted(READERS), 1);
        EXPECT_EQ(seen.counted(WRITERS), 1);
        EXPECT_EQ(stat_of(seen.clients, "freebuf"), CLIENT_BUFFERS - 3);
    });
}

TEST_F(BmForcedClean, NeitherDetachesNorDestroysAPartition)
{
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        const int clid = bm.clid;
        const int data = bm.add("T_DATA", 3, 100);
        bm.forced_clean();
        EXPECT_EQ(segments_in_namespace(), 3);
        for (const int id : {clid, data}) {
            EXPECT_EQ(attachments(id), 1);
            EXPECT_EQ(registered(id), 1);
            EXPECT_EQ(live_segment(id).int32(AT_COUNT), 1) << "still counted as a user";
        }
    });
}

TEST_F(BmForcedClean, MakesTheProcessForgetItsHandles)
{
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        C_shm asked;
        EXPECT_EQ(asked.attaches(CLIENTS), 1);
        bm.forced_clean();
        EXPECT_EQ(asked.attaches(CLIENTS), 0);
        EXPECT_EQ(asked.attaches(EVENTS), 0);
    });
}

TEST_F(BmForcedClean, LeavesNoThreadAndNoSocket)
{
    in_own_process([] {
        const long threads = threads_now();
        const long descriptors = descriptors_now();
        seen_bm bm;
        make_small(bm);
        ASSERT_FALSE(bm.set_master(true)) << "false is success";
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        subscribed(bm, CLI_T_READER);
        ASSERT_EQ(threads_now(), threads + 2);
        bm.forced_clean();
        EXPECT_TRUE(threads_become(threads));
        EXPECT_EQ(descriptors_now(), descriptors);
        EXPECT_EQ(bm.pid, 0U);
        EXPECT_TRUE(bm.master);
    });
}

TEST_F(BmForcedClean, TakesNoLock)
{
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        subscribed(bm, CLI_T_WRITER);
        EXPECT_EQ(semops_of([&] { bm.forced_clean(); }), 0);
    });
}

TEST_F(BmForcedClean, SecondTimeIsHarmless)
{
    seen_bm never_began;
    never_began.forced_clean();
    EXPECT_TRUE(never_began.detached());
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        subscribed(bm, CLI_T_READER);
        bm.forced_clean();
        EXPECT_EQ(said([&] { bm.forced_clean(); }), "");
        EXPECT_EQ(said([&] { bm.all_clean_up(); }), "");
        EXPECT_EQ(segments_in_namespace(), 2) << "a forced master with an empty pool removes nothing";
    });
}

// The first handle's entry in the registry stays: the next one's release neither detaches nor complains.
TEST_F(BmForcedClean, ObjectCanBeginAgain)
{
    in_own_process([] {
        still_master host;
        ASSERT_FALSE(quiet_init(host)) << "false is success";
        const int clid = host.clid;
        seen_bm bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        ASSERT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        bm.forced_clean();
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        EXPECT_EQ(bm.clid, clid);
        EXPECT_EQ(registered(clid), 3);
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 2) << "the old slot is still held";
        int writers = -1;
        bm.cl_subscribed(&writers, nullptr);
        EXPECT_EQ(writers, 2);
        EXPECT_EQ(said([&] { bm.all_clean_up(); }), "");
        EXPECT_EQ(registered(clid), 2);
        EXPECT_EQ(+host.clictrl->clitotal, 1);
    });
}

} // namespace
