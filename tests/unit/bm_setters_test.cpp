// Construction of a buffer manager and its configuration.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bm_host.h"

using namespace zrk4::test;

namespace {

class BmDefaults : public CleanNamespace {};
class BmNames : public CleanNamespace {
  protected:
    ~BmNames() override
    {
        unsetenv("ZRK4_CLI_SHM_NAME");
        unsetenv("ZRK4_EV_SHM_NAME");
    }
};
class BmSetters : public CleanNamespace {};
class BmMaster : public CleanNamespace {};

TEST_F(BmDefaults, LimitsFitTheLargestSystem)
{
    const seen_bm bm;
    EXPECT_EQ(bm.ncli, 1024);
    EXPECT_EQ(bm.nsbl, 4094);
    EXPECT_EQ(bm.evrate, 20);
    EXPECT_EQ(bm.clslots, 0);
    EXPECT_EQ(bm.evslots, 0);
}

TEST_F(BmDefaults, NothingIsAttached)
{
    const seen_bm bm;
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(segments_in_namespace(), 0);
}

TEST_F(BmDefaults, ObjectIsAMemberWithoutThreadsAndSockets)
{
    const seen_bm bm;
    EXPECT_FALSE(bm.master);
    EXPECT_TRUE(bm.forced);
    EXPECT_EQ(bm.mpid, getpid());
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_EQ(bm.rid, static_cast<pthread_t>(-1));
    EXPECT_EQ(bm.qid, -1);
    EXPECT_EQ(bm.port, -1);
    EXPECT_FALSE(bm.reader_go);
}

TEST_F(BmDefaults, EventsAreOf2010AndFoundByTheirTimes)
{
    const seen_bm bm;
    EXPECT_FALSE(bm.evid64bitmode);
    EXPECT_EQ(bm.smode, 0);
    EXPECT_EQ(bm.time_mask, 20000U);
    EXPECT_EQ(bm.mperiod, 500000U);
    EXPECT_EQ(bm.timed_blocks_debug, 20);
    EXPECT_EQ(bm.missed_blocks_debug, 20);
}

TEST_F(BmDefaults, NoReaderOfABlocksHeadAndNoCallbackIsSet)
{
    const seen_bm bm;
    EXPECT_TRUE(bm.get_bname_f.empty() && bm.get_key_f.empty() && bm.get_len_f.empty());
    EXPECT_TRUE(bm.get_trg_f.empty() && bm.get_sts_f.empty() && bm.get_evid_f.empty());
    EXPECT_EQ(bm.user_cb, nullptr);
}

TEST_F(BmDefaults, DebugSwitchIsOff) { EXPECT_EQ(ZRK4_DAQ_BM_DEBUG, 0); }

TEST_F(BmDefaults, ConstructorForgetsTheBadDatagramsOfOthers)
{
    bm_bad_format_events = 17;
    const BM bm;
    EXPECT_EQ(bm_bad_format_events, 0);
}

TEST_F(BmDefaults, ConstructorSaysNothing)
{
    captured_output captured;
    {
        const BM bm;
    }
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(BmNames, AreTheUsualOnesWithoutEnvironment)
{
    const seen_bm bm;
    EXPECT_STREQ(bm.clname, "ZRK4_CLIENT_SLOTS");
    EXPECT_STREQ(bm.evname, "ZRK4_EVENT_SLOTS");
}

TEST_F(BmNames, ComeFromTheEnvironment)
{
    setenv("ZRK4_CLI_SHM_NAME", "HALL_7_CLIENTS", 1);
    setenv("ZRK4_EV_SHM_NAME", "HALL_7_EVENTS", 1);
    const seen_bm bm;
    EXPECT_STREQ(bm.clname, "HALL_7_CLIENTS");
    EXPECT_STREQ(bm.evname, "HALL_7_EVENTS");
}

TEST_F(BmNames, OneMayComeFromTheEnvironmentWithoutTheOther)
{
    setenv("ZRK4_EV_SHM_NAME", "HALL_7_EVENTS", 1);
    const seen_bm bm;
    EXPECT_STREQ(bm.clname, "ZRK4_CLIENT_SLOTS");
    EXPECT_STREQ(bm.evname, "HALL_7_EVENTS");
}

TEST_F(BmNames, StringsOfTheEnvironmentAreNotCopied)
{
    setenv("ZRK4_CLI_SHM_NAME", "HALL_7_CLIENTS", 1);
    const seen_bm bm;
    EXPECT_EQ(static_cast<const void*>(bm.clname), std::getenv("ZRK4_CLI_SHM_NAME"));
}

TEST_F(BmNames, EmptyValueIsAName)
{
    setenv("ZRK4_CLI_SHM_NAME", "", 1);
    const seen_bm bm;
    EXPECT_STREQ(bm.clname, "");
}

TEST_F(BmSetters, SizesAnswerTheNewValue)
{
    seen_bm bm;
    EXPECT_EQ(bm.set_nclients(64), 64);
    EXPECT_EQ(bm.set_nblocks(32), 32);
    EXPECT_EQ(bm.set_rate(10), 10);
    EXPECT_EQ(bm.ncli, 64);
    EXPECT_EQ(bm.nsbl, 32);
    EXPECT_EQ(bm.evrate, 10);
}

TEST_F(BmSetters, NoValueIsOutOfRange)
{
    seen_bm bm;
    for (const int value : {0, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(bm.set_nclients(value), value);
        EXPECT_EQ(bm.set_nblocks(value), value);
        EXPECT_EQ(bm.set_rate(value), value);
        EXPECT_EQ(bm.set_ncl_slots(value), value);
        EXPECT_EQ(bm.set_nev_slots(value), value);
    }
}

TEST_F(BmSetters, SizesAnswerTheOldValueAndStayOnceAttached)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.set_nclients(9), HOST_CLIENTS);
    EXPECT_EQ(bm.set_nblocks(9), HOST_BLOCKS);
    EXPECT_EQ(bm.set_rate(9), HOST_RATE);
    EXPECT_EQ(bm.ncli, HOST_CLIENTS);
    EXPECT_EQ(bm.nsbl, HOST_BLOCKS);
    EXPECT_EQ(bm.evrate, HOST_RATE);
}

// The kernel's first segment has id 0.
TEST_F(BmSetters, SizesStayWhenEitherPartitionIsAttachedAlsoWithId0)
{
    for (const bool clients_attached : {true, false}) {
        seen_bm bm;
        (clients_attached ? bm.clid : bm.evid) = 0;
        EXPECT_EQ(bm.set_nclients(9), 1024);
        EXPECT_EQ(bm.set_nblocks(9), 4094);
        EXPECT_EQ(bm.set_rate(9), 20);
    }
}

TEST_F(BmSetters, SizesMayChangeAgainAfterACleanUp)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    bm.all_clean_up();
    EXPECT_EQ(bm.set_nclients(9), 9);
    EXPECT_EQ(bm.set_nblocks(8), 8);
    EXPECT_EQ(bm.set_rate(7), 7);
}

TEST_F(BmSetters, SlotCountsAnswerWithoutTheControlRecord)
{
    seen_bm bm;
    EXPECT_EQ(bm.set_ncl_slots(12), 12);
    EXPECT_EQ(bm.set_nev_slots(34), 34);
    EXPECT_EQ(bm.clslots, 12);
    EXPECT_EQ(bm.evslots, 34);
}

TEST_F(BmSetters, SlotCountsAnswerTheBuffersOfThePartitionOnceAttached)
{
    still_master bm;
    bm.set_ncl_slots(12);
    bm.set_nev_slots(20);
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.set_ncl_slots(99), 13);
    EXPECT_EQ(bm.set_nev_slots(99), 21);
    EXPECT_EQ(bm.clslots, 12);
    EXPECT_EQ(bm.evslots, 20);
}

TEST_F(BmSetters, SlotCountsGoEachByItsOwnPartition)
{
    seen_bm bm;
    bm.evid = 5;
    EXPECT_EQ(bm.set_ncl_slots(12), 12);
    EXPECT_EQ(bm.clslots, 12);
    bm.evid = -1;
    bm.clid = 5;
    EXPECT_EQ(bm.set_nev_slots(34), 34);
    EXPECT_EQ(bm.evslots, 34);
}

TEST_F(BmSetters, ForceAndTimeMaskAreStored)
{
    seen_bm bm;
    bm.set_forced(false);
    EXPECT_FALSE(bm.forced);
    bm.set_forced(true);
    EXPECT_TRUE(bm.forced);
    bm.set_time_mask(ULONG_MAX);
    EXPECT_EQ(bm.time_mask, ULONG_MAX);
}

TEST_F(BmSetters, CallbackIsStored)
{
    seen_bm bm;
    const EV_HANDLER_FUN callback = [](void*, zrk4_client_sblock_data*) {};
    bm.set_ev_handler(callback);
    EXPECT_EQ(bm.user_cb, callback);
}

TEST_F(BmSetters, MonitoringPeriodOfAMemberIsOnlyStored)
{
    seen_bm bm;
    const long threads = threads_now();
    bm.set_monitoring_period(1234);
    EXPECT_EQ(bm.mperiod, 1234U);
    bm.set_monitoring_period(-1);
    EXPECT_EQ(bm.mperiod, UINT64_MAX) << "nobody checks it";
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_EQ(threads_now(), threads);
}

TEST_F(BmSetters, MonitoringPeriodOfAMasterRestartsItsMonitor)
{
    seen_bm bm;
    const long threads = threads_now();
    ASSERT_FALSE(bm.set_master(true)) << "false is success";
    const long created = calls_of("pthread_create");
    bm.set_monitoring_period(1234);
    EXPECT_EQ(bm.mperiod, 1234U);
    EXPECT_EQ(calls_of("pthread_create"), created + 1);
    EXPECT_NE(bm.pid, 0U);
    EXPECT_TRUE(threads_become(threads + 1)) << "the old one has ended";
}

TEST_F(BmMaster, HasAMonitorThread)
{
    const long threads = threads_now();
    seen_bm bm;
    EXPECT_FALSE(bm.set_master(true)) << "false is success";
    EXPECT_TRUE(bm.master);
    EXPECT_NE(bm.pid, 0U);
    EXPECT_EQ(threads_now(), threads + 1);
}

TEST_F(BmMaster, WhoCeasesToBeOneHasNoThreadLeft)
{
    const long threads = threads_now();
    seen_bm bm;
    ASSERT_FALSE(bm.set_master(true)) << "false is success";
    EXPECT_FALSE(bm.set_master(false)) << "false is success";
    EXPECT_FALSE(bm.master);
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_TRUE(threads_become(threads));
}

TEST_F(BmMaster, WhoIsOneAlreadyStartsNoSecondThread)
{
    seen_bm bm;
    EXPECT_FALSE(bm.set_master(false)) << "false: no change";
    ASSERT_FALSE(bm.set_master(true)) << "false is success";
    const long created = calls_of("pthread_create");
    EXPECT_FALSE(bm.set_master(true)) << "false: no change";
    EXPECT_EQ(calls_of("pthread_create"), created);
}

TEST_F(BmMaster, NobodyBecomesOneWithoutAThread)
{
    seen_bm bm;
    const fault refused = fault::fails("pthread_create", EAGAIN);
    captured_output captured;
    EXPECT_TRUE(bm.set_master(true)) << "true is failure";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_EQ(captured.out(), "Failed to start monitor thread\n");
    EXPECT_FALSE(bm.master);
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_FALSE(bm.set_master(true)) << "false: nothing is in the way of the next try";
}

// A virtual call goes by these places: programs that were built elsewhere count on them.
TEST_F(BmDefaults, EventHandlerIsTheFirstVirtualOperation)
{
    struct counting_bm : BM {
        int calls = 0;
        void event_handler(void* /*head*/, zrk4_client_sblock_data* /*first*/) override { ++calls; }
    };
    counting_bm bm;
    using handler = void (*)(BM*, void*, zrk4_client_sblock_data*);
    handler first = nullptr;
    std::memcpy(&first, *reinterpret_cast<char**>(static_cast<BM*>(&bm)), sizeof first);
    first(&bm, nullptr, nullptr);
    EXPECT_EQ(bm.calls, 1);
}

TEST_F(BmDefaults, EventHandlerDoesNothing)
{
    BM bm;
    EXPECT_EQ(said([&] { bm.event_handler(nullptr, nullptr); }), "");
}

} // namespace
