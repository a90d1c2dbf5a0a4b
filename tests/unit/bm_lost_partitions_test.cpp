// Two objects of one process, of which the master leaves first and takes the partitions with it.
#include <string>

#include <gtest/gtest.h>

#include "bm_host.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

/// A member of a host that is gone, with a partition of its own that is not.
struct left_alone {
    left_alone()
    {
        EXPECT_FALSE(quiet_init(master)) << "false is success";
        EXPECT_FALSE(quiet_init(bm));
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        EXPECT_EQ(subscribed(bm, CLI_T_READER), 2);
        data_id = bm.add("T_DATA", 2, 600, false);
        bm.get_buffer_from_pool(BM_NO_WAIT, 600, &data_id, &bnum);
        master.all_clean_up();
        EXPECT_EQ(segments_in_namespace(), 1) << "of the data";
    }
    const long threads = threads_now();
    still_master master;
    seen_bm bm;
    int data_id = -1;
    int bnum = -1;
};

class BmLostPartitions : public CleanNamespace, public left_alone {};
class BmLostPartitionsOfAProcess : public CleanNamespace {};

TEST_F(BmLostPartitions, AreLeftInPeace)
{
    EXPECT_EQ(said([&] { bm.all_clean_up(); }), "");
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
    EXPECT_TRUE(threads_become(threads));
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

// What such a clean-up forgets stays mapped until the process ends.
TEST_F(BmLostPartitionsOfAProcess, GiveASubscriberMinus2)
{
    in_own_process([] {
        left_alone host;
        EXPECT_EQ(subscribed(host.bm, CLI_T_WRITER), -2);
        EXPECT_TRUE(host.bm.detached());
        EXPECT_TRUE(threads_become(host.threads));
    });
}

TEST_F(BmLostPartitionsOfAProcess, GiveAnUnsubscriberMinus2)
{
    in_own_process([] {
        left_alone host;
        EXPECT_EQ(host.bm.unsubscribe(TYPE, CLI_T_READER), -2);
        EXPECT_TRUE(host.bm.detached());
        EXPECT_TRUE(threads_become(host.threads));
    });
}

TEST_F(BmLostPartitions, TakeNoBlock)
{
    char* block = bm.get_buffer_address(bnum, data_id);
    block[0] = 1;
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum)) << "true is failure";
                  EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum, 1));
                  EXPECT_EQ(bm.find_ev_slot(TYPE, block), -1);
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, 1, block));
              }),
              "DATE ev_update(): failed to find the event slot\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: " +
                  std::to_string(data_id) + " bnum: " + std::to_string(bnum) +
                  " slot: 1\n"
                  "DATE init_ev_slot(): no write registration found for event type: 1\n");
    EXPECT_THROW(bm.return_buffer_in_pool_ext(TYPE, bnum, data_id), SysError);
    EXPECT_FALSE(bm.return_buffer_in_pool(bnum, data_id)) << "false is success: it is still the caller's";
}

TEST_F(BmLostPartitions, HaveNoSlots)
{
    EXPECT_EQ(said([&] {
                  EXPECT_EQ(bm.free_cl_slot(1, nullptr), 1);
                  EXPECT_EQ(bm.if_cl_slot_free(1), 1);
                  EXPECT_TRUE(bm.set_cl_status(1, 1, CLI_S_DONE));
                  EXPECT_FALSE(bm.check_if_all_collected(1, 1));
                  EXPECT_EQ(bm.cl_notify(1), 0);
                  EXPECT_TRUE(bm.notification(1, 2, 0));
                  EXPECT_TRUE(bm.free_ev_slot(1));
              }),
              "DATE set_cl_status(): failed to get the buffer address for event slot: 1\n"
              "DATE check_if_all_collected(): failed to get the buffer address for event slot: 1\n"
              "DATE cl_notify(): Failed to find event slot: 1\n"
              "DATE Something wrong: header == NULL\n"
              "DATE free_ev_slot(): Failed to find event slot: 1\n");
    EXPECT_THROW(bm.cl_subscribed(nullptr, nullptr), SysError);
}

TEST_F(BmLostPartitions, AreNotAccessedInReports)
{
    EXPECT_EQ(out_of([&] {
                  bm.dump_cl_slots();
                  bm.dump_ev_slots();
              }),
              "BM::dump_cl_slots() Global partition not accessed\n"
              "BM::dump_ev_slots() Global partition not accessed\n");
}

TEST_F(BmLostPartitions, AreReplacedByTheNextOnesWithAnInit)
{
    EXPECT_TRUE(quiet_init(bm)) << "there are none";
    ASSERT_FALSE(quiet_init(master));
    ASSERT_FALSE(quiet_init(bm));
    EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), 1);
}

} // namespace
