// Every way in which a buffer manager does not get its slot partitions.
#include <cerrno>
#include <climits>
#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "bm_old_host.h"

using namespace zrk4::test;

namespace {

class BmInitFailure : public CleanNamespace {};

// ---- what the system refuses

TEST_F(BmInitFailure, DefaultLimitsAreMoreThanAKernelGrants)
{
    seen_bm bm;
    bm.master = true;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(dates_marked(captured.out()), "DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:65537 SIZE:1048112\n"
                                            "C_shm_mpool::add() ZRK4_CLIENT_SLOTS 65537 1048112  bf->valid():0\n");
    const std::string texts = captured.err();
    EXPECT_EQ(texts.rfind("shmget: Invalid argument\n", 0), 0U);
    EXPECT_NE(texts.find("ZRK4_CLIENT_SLOTS: bytes in one partition (32-bit offsets): 68693262220 wanted, 2147483647 "
                         "possible; reduce with set_nclients, set_ncl_slots, set_nblocks\n"),
              std::string::npos);
    EXPECT_NE(texts.find("ZRK4_CLIENT_SLOTS: semaphores in one set (first value of kernel.sem): 65541 wanted, 32000 "
                         "possible; reduce with set_nclients, set_ncl_slots, set_nblocks\n"),
              std::string::npos);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    EXPECT_TRUE(bm.detached());
    make_small(bm);
    EXPECT_FALSE(quiet_init(bm)) << "false: smaller ones are granted to the same object";
}

TEST_F(BmInitFailure, ClientSlotsBeyondTheSemaphoresOfOneSetAreRefused)
{
    still_master bm;
    bm.set_ncl_slots(31996);
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(dates_marked(captured.out()), "DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:31997 SIZE:816\n"
                                            "C_shm_mpool::add() ZRK4_CLIENT_SLOTS 31997 816  bf->valid():0\n");
    EXPECT_EQ(captured.err(), "C_shm_make - error allocating global sems: Invalid argument\n"
                              "ZRK4_CLIENT_SLOTS: semaphores in one set (first value of kernel.sem): 32001 wanted, "
                              "32000 possible; reduce with set_nclients, set_ncl_slots, set_nblocks\n");
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    bm.set_ncl_slots(31995);
    EXPECT_FALSE(quiet_init(bm)) << "false: as many as possible";
}

TEST_F(BmInitFailure, EventSlotsBeyondTheSemaphoresOfOneSetAreRefused)
{
    still_master bm;
    bm.set_nev_slots(31996);
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(dates_marked(captured.out()),
              LINE_CLIENTS + std::string("DATE EV_SLOTS NAME:ZRK4_EVENT_SLOTS SLOTS:31997 SIZE:884\n"
                                         "C_shm_mpool::add() ZRK4_EVENT_SLOTS 31997 884  "
                                         "bf->valid():0\n"
                                         "!!!!!!!!!!!!!!!! failed to add EVENT SLOTS !!!\n"));
    EXPECT_EQ(captured.err(), "C_shm_make - error allocating global sems: Invalid argument\n"
                              "ZRK4_EVENT_SLOTS: semaphores in one set (first value of kernel.sem): 32001 wanted, "
                              "32000 possible; reduce with set_rate, set_nev_slots, set_nblocks, set_nclients\n");
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0) << "the client partition is out of the pool";
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

// Nothing is printed for these but the texts of the failed call: no limit of the kernel is met.
TEST_F(BmInitFailure, NegativeLimitsAreRefused)
{
    still_master bm;
    bm.set_nclients(-2);
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(dates_marked(captured.out()), "DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:-127 SIZE:816\n"
                                            "C_shm_mpool::add() ZRK4_CLIENT_SLOTS -127 816  bf->valid():0\n");
    EXPECT_EQ(captured.err(), "shmget: Invalid argument\n");
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

// 64 times this is a small number in 32 bits.
TEST_F(BmInitFailure, LimitsDoNotWrapIntoSmallOnes)
{
    for (const int huge : {(1 << 26) + 1, INT_MAX}) {
        still_master bm;
        bm.set_nclients(huge);
        captured_output captured;
        EXPECT_TRUE(bm.init()) << "true is failure";
        EXPECT_NE(captured.err().find("bytes in one partition (32-bit offsets)"), std::string::npos);
    }
    for (const int huge : {(1 << 24) + 1, INT_MAX}) {
        still_master bm;
        bm.set_nblocks(huge);
        EXPECT_TRUE(quiet_init(bm)) << "true is failure";
    }
    for (const int huge : {(1 << 27) + 1, INT_MAX}) {
        still_master bm;
        bm.set_rate(huge);
        EXPECT_TRUE(quiet_init(bm)) << "true is failure";
    }
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmInitFailure, SegmentThatTheSystemRefusesIsReported)
{
    constexpr int TWO_SEARCHES_AND_ONE_PROBE = 1024 + 1024 + 1;
    const fault refused = fault::fails("shmget", ENOSPC, TWO_SEARCHES_AND_ONE_PROBE + 1);
    still_master bm;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_EQ(dates_marked(captured.out()),
              LINE_CLIENTS + std::string("C_shm_mpool::add() ZRK4_CLIENT_SLOTS 257 816  bf->valid():0\n"));
    EXPECT_EQ(captured.err(), "shmget: No space left on device\n");
    EXPECT_TRUE(bm.detached());
}

TEST_F(BmInitFailure, SegmentThatCannotBeAttachedIsReportedAndRemoved)
{
    const fault refused = fault::fails("shmat", ENOMEM);
    still_master bm;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_EQ(captured.err(), "C_shm_make - error: Cannot allocate memory\nshmat: Cannot allocate memory\n");
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(BmInitFailure, OldPartitionThatCannotBeAttachedIsReported)
{
    {
        old_host old;
        old.clients.keep(true);
    }
    const fault refused = fault::fails("shmat", EACCES);
    seen_bm bm;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_EQ(captured.out(), "SYSERROR: 13\n");
    EXPECT_EQ(captured.err(), "C_shm_find - shmget: Permission denied\n");
    clear_ipc_namespace();
}

TEST_F(BmInitFailure, SemaphoresThatTheSystemRefusesAreReported)
{
    const std::string refusal = "C_shm_make - error allocating global sems: No space left on device\n";
    for (const bool of_clients : {true, false}) {
        const fault refused = fault::fails("semget", ENOSPC, of_clients ? 1 : 2);
        still_master bm;
        captured_output captured;
        EXPECT_TRUE(bm.init()) << "true is failure";
        EXPECT_EQ(refused.fired(), 1);
        EXPECT_EQ(captured.err(), refusal);
        EXPECT_EQ(dates_marked(captured.out()),
                  of_clients ? std::string(LINE_CLIENTS) + "C_shm_mpool::add() ZRK4_CLIENT_SLOTS 257 816  "
                                                           "bf->valid():0\n"
                             : std::string(LINE_CLIENTS) + LINE_EVENTS +
                                   "C_shm_mpool::add() ZRK4_EVENT_SLOTS 33 884  bf->valid():0\n"
                                   "!!!!!!!!!!!!!!!! failed to add EVENT SLOTS !!!\n");
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

/// Calls of semop of a master that makes both partitions: two for the access to each, then three for buffer 0 of each,
/// then two for the control lock.
enum { TAKES_CLIENTS_0 = 5, TAKES_EVENTS_0 = 8, SEMOPS_OF_INIT = 12 };

class BmInitBuffer0 : public CleanNamespace {
  protected:
    /// What a master says whose buffer 0 is taken while a fault is planned; it ends with nothing.
    static std::string text_of_failure()
    {
        still_master bm;
        bool failed = false;
        const std::string text = said([&] { failed = bm.init(); });
        EXPECT_TRUE(failed) << "true is failure";
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
        return text;
    }
    static constexpr char CLIENTS_FAILED[] = "DATE Failed to allocate 0th slot for client control block\n";
    static constexpr char EVENTS_FAILED[] = "DATE Failed to allocate 0th slot for event control block\n";
    const std::string lines = std::string(LINE_CLIENTS) + LINE_EVENTS;
};

TEST_F(BmInitBuffer0, MasterThatGetsNoBufferFails)
{
    {
        const fault none = fault::fails("semop", EAGAIN, TAKES_CLIENTS_0);
        EXPECT_EQ(text_of_failure(), lines + CLIENTS_FAILED);
    }
    const fault none = fault::fails("semop", EAGAIN, TAKES_EVENTS_0);
    EXPECT_EQ(text_of_failure(), lines + EVENTS_FAILED);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

// No setter looks at its value: one slot less than none leaves no buffer for the control record either.
TEST_F(BmInitBuffer0, MasterOfAPartitionWithoutBuffersFails)
{
    const auto text_of = [](void (*configure)(BM&)) {
        still_master bm;
        configure(bm);
        bool failed = false;
        const std::string text = said([&] { failed = bm.init(); });
        EXPECT_TRUE(failed) << "true is failure";
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
        return text;
    };
    EXPECT_EQ(text_of([](BM& bm) { bm.set_ncl_slots(-1); }),
              "DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:0 SIZE:816\n" + std::string(LINE_EVENTS) + CLIENTS_FAILED);
    EXPECT_EQ(text_of([](BM& bm) { bm.set_nev_slots(-1); }),
              LINE_CLIENTS + std::string("DATE EV_SLOTS NAME:ZRK4_EVENT_SLOTS SLOTS:0 SIZE:884\n") + EVENTS_FAILED);
}

// Somebody who does not wait for the master subscribes in between.
TEST_F(BmInitBuffer0, MasterThatGetsAnotherBufferFails)
{
    const auto take_first = [](const char* name) { C_shm_buffer(name).get_buffer(BM_NO_WAIT, true); };
    {
        const fault taken = fault::preceded(
            "semop", [&] { take_first(CLIENTS); }, TAKES_CLIENTS_0);
        EXPECT_EQ(text_of_failure(), lines + CLIENTS_FAILED);
    }
    const fault taken = fault::preceded(
        "semop", [&] { take_first(EVENTS); }, TAKES_EVENTS_0);
    EXPECT_EQ(text_of_failure(), lines + EVENTS_FAILED);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

// Another master's clean-up takes the partitions away under this one's hands, at every point of its way.
TEST_F(BmInitFailure, MasterWhosePartitionsVanishFailsAndMakesThemAnew)
{
    for (int k = 1; k <= SEMOPS_OF_INIT; ++k) {
        SCOPED_TRACE(k);
        child master([&] {
            still_master bm;
            bm.set_smode(BM_SYNCH_EVID);
            const captured_output quiet;
            {
                const fault vanish = fault::preceded("semop", clear_ipc_namespace, k);
                EXPECT_TRUE(bm.init()) << "true is failure";
                EXPECT_EQ(vanish.fired(), 1);
            }
            EXPECT_TRUE(bm.detached());
            EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
            EXPECT_EQ(bm.nsbl, HOST_BLOCKS) << "the configuration stays";
            EXPECT_EQ(bm.smode, BM_SYNCH_EVID);
            EXPECT_TRUE(bm.master);
            EXPECT_FALSE(bm.init()) << "false is success";
            EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
            EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
            bm.all_clean_up();
        });
        EXPECT_EQ(master.wait(), 0);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

TEST_F(BmInitFailure, MemberWhosePartitionsVanishFails)
{
    constexpr int ACCESSES = 4;
    for (int k = 1; k <= ACCESSES; ++k) {
        SCOPED_TRACE(k);
        child host([&] {
            const old_host old;
            child member([&] {
                seen_bm bm;
                const captured_output quiet;
                const fault vanish = fault::preceded("semop", clear_ipc_namespace, k);
                EXPECT_TRUE(bm.init()) << "true is failure";
                EXPECT_EQ(vanish.fired(), 1);
                EXPECT_TRUE(bm.detached());
                EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
            });
            EXPECT_EQ(member.wait(), 0);
            const captured_output quiet;
            raise(SIGKILL);
        });
        EXPECT_EQ(host.wait(), 128 + SIGKILL);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

// ---- partitions and names that are none

TEST_F(BmInitFailure, PartitionWithoutLocksIsNoSlotPartition)
{
    const C_shm_buffer clients(CLIENTS, CLIENT_BUFFERS, CLIENT_LENGTH, false);
    const C_shm_buffer events(EVENTS, EVENT_BUFFERS, EVENT_LENGTH, true);
    seen_bm member;
    EXPECT_TRUE(quiet_init(member)) << "true is failure; a wait for its locks would never end";
    EXPECT_TRUE(member.detached());
    EXPECT_EQ(member.nbuf(), 0) << "the pool is empty";
    still_master master;
    EXPECT_TRUE(quiet_init(master)) << "true is failure";
    EXPECT_TRUE(master.detached());
    EXPECT_EQ(use_count_of(clients) + use_count_of(events), 2);
}

TEST_F(BmInitFailure, PartitionWithoutRoomForAControlRecordIsNoSlotPartition)
{
    for (const bool no_buffer : {true, false}) {
        const C_shm_buffer clients(CLIENTS, CLIENT_BUFFERS, CLIENT_LENGTH, true);
        const C_shm_buffer events(EVENTS, no_buffer ? 0 : 3, no_buffer ? 100 : 19, true);
        seen_bm bm;
        EXPECT_TRUE(quiet_init(bm)) << "true is failure";
        EXPECT_TRUE(bm.detached());
    }
}

TEST_F(BmInitFailure, NameThatAPartitionCannotHoldIsRefused)
{
    for (const bool of_clients : {true, false}) {
        const std::string name(256, 'n');
        const std::string longest(255, 'n');
        seen_bm bm;
        bm.master = true;
        make_small(bm);
        (of_clients ? bm.clname : bm.evname) = name.c_str();
        EXPECT_TRUE(quiet_init(bm)) << "true is failure";
        EXPECT_TRUE(bm.detached());
        EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
        (of_clients ? bm.clname : bm.evname) = longest.c_str();
        EXPECT_FALSE(quiet_init(bm)) << "false is success";
    }
}

} // namespace
