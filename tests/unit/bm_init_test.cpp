// Attachment to the slot partitions: made by a master, found by everybody else.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bm_old_host.h"

using namespace zrk4::test;

namespace {

class BmInit : public CleanNamespace {};
class BmInitMaster : public BmInit {};
class BmInitMember : public BmInit {};

// ---- a new host

TEST_F(BmInitMaster, MakesBothPartitionsAndSaysSo)
{
    still_master bm;
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }), std::string(LINE_CLIENTS) + LINE_EVENTS);
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(segments_in_namespace(), 2);
    EXPECT_EQ(semaphore_sets_in_namespace(), 2);
    EXPECT_EQ(semaphores_in_set(semid_of(*bm.cl_buf)), 4 + CLIENT_BUFFERS) << "each buffer has its lock";
    EXPECT_EQ(semaphores_in_set(semid_of(*bm.ev_buf)), 4 + EVENT_BUFFERS);
}

TEST_F(BmInitMaster, IsAttachedToWhatItMade)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.cl_buf, bm.find_by_name(CLIENTS));
    EXPECT_EQ(bm.ev_buf, bm.find_by_name(EVENTS));
    EXPECT_EQ(bm.clid, shmid_of(*bm.cl_buf));
    EXPECT_EQ(bm.evid, shmid_of(*bm.ev_buf));
    EXPECT_EQ(reinterpret_cast<char*>(bm.clictrl), bm.cl_buf->buffer_addr(0));
    EXPECT_EQ(reinterpret_cast<char*>(bm.evtctrl), bm.ev_buf->buffer_addr(0));
    EXPECT_EQ(reinterpret_cast<char*>(bm.evtctrl2024), bm.ev_buf->buffer_addr(0));
}

TEST_F(BmInitMaster, NeverHandsOutBuffer0)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    for (C_shm_buffer* part : {bm.cl_buf.load(), bm.ev_buf.load()}) {
        EXPECT_EQ(stat_of(*part, "freebuf"), part->getBufferCount() - 1);
        EXPECT_EQ(part->get_bufptr()[0].status & BUF_QUEUED, 0);
        EXPECT_EQ(+part->get_bufptr()[0].owner_pid, getpid());
        EXPECT_EQ(part->buffer_id(part->get_buffer(BM_NO_WAIT, true)), 1) << "the first slot";
    }
}

TEST_F(BmInitMaster, StartsFromClearedSlotsAndTellsThatItIsReady)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
    put_control_status(*bm.cl_buf, 0);
    EXPECT_TRUE(old_host::all_bytes_are(*bm.cl_buf, 0));
    EXPECT_TRUE(old_host::all_bytes_are(*bm.ev_buf, 0));
}

// 64 clients, 32 blocks: what the documents give as a set that every host grants.
TEST_F(BmInitMaster, WorkingSetIsGranted)
{
    for (const bool wide : {false, true}) {
        seen_bm bm;
        bm.master = true;
        bm.set_nclients(64);
        bm.set_nblocks(32);
        bm.set_rate(20);
        bm.set_evid_64bit_mode(wide);
        captured_output captured;
        EXPECT_FALSE(bm.init()) << "false is success";
        EXPECT_EQ(captured.err(), "");
        EXPECT_EQ(dates_marked(captured.out()),
                  std::string("DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:4097 SIZE:8240\n"
                              "DATE EV_SLOTS NAME:ZRK4_EVENT_SLOTS SLOTS:641 SIZE:") +
                      (wide ? "15384\n" : "12820\n"));
    }
}

struct geometry {
    int nclients, nblocks, rate, client_slots, event_slots;
    bool wide;
    const char* clients;
    const char* events;
};

class BmGeometry : public BmInit, public testing::WithParamInterface<geometry> {};

TEST_P(BmGeometry, FollowsTheLimits)
{
    const geometry& g = GetParam();
    seen_bm bm;
    bm.master = true;
    bm.set_nclients(g.nclients);
    bm.set_nblocks(g.nblocks);
    bm.set_rate(g.rate);
    bm.set_ncl_slots(g.client_slots);
    bm.set_nev_slots(g.event_slots);
    bm.set_evid_64bit_mode(g.wide);
    bool failed = true;
    const std::string text = said([&] { failed = bm.init(); });
    EXPECT_EQ(text, std::string("DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS ") + g.clients +
                        "\nDATE EV_SLOTS NAME:ZRK4_EVENT_SLOTS " + g.events + "\n");
    ASSERT_FALSE(failed) << "false is success";
    const auto has = [](const C_shm_buffer& part) {
        return "SLOTS:" + part.getStat("nbuf") + " SIZE:" + part.getStat("lbuf");
    };
    EXPECT_EQ(has(*bm.cl_buf), g.clients);
    EXPECT_EQ(has(*bm.ev_buf), g.events);
}

INSTANTIATE_TEST_SUITE_P(Limits, BmGeometry,
                         testing::Values(
                             // the defaults of the event slots
                             geometry{1024, 4094, 20, 1, 0, false, "SLOTS:2 SIZE:1048112", "SLOTS:641 SIZE:1089068"},
                             geometry{1024, 4094, 20, 1, 0, true, "SLOTS:2 SIZE:1048112", "SLOTS:641 SIZE:1089088"},
                             // clients and blocks need more than the control table
                             geometry{4, 3, 1, 0, 0, false, "SLOTS:257 SIZE:816", "SLOTS:33 SIZE:884"},
                             geometry{4, 3, 1, 0, 0, true, "SLOTS:257 SIZE:816", "SLOTS:33 SIZE:904"},
                             // the control table needs more
                             geometry{4, 3, 20, 0, 0, false, "SLOTS:257 SIZE:816", "SLOTS:641 SIZE:12820"},
                             geometry{4, 3, 20, 0, 0, true, "SLOTS:257 SIZE:816", "SLOTS:641 SIZE:15384"},
                             // the table's length does not follow the number of slots
                             geometry{4, 3, 20, 0, 5000, false, "SLOTS:257 SIZE:816", "SLOTS:5001 SIZE:12820"},
                             geometry{4, 3, 20, 0, 5000, true, "SLOTS:257 SIZE:816", "SLOTS:5001 SIZE:15384"},
                             geometry{2, 3, 20, 0, 1, false, "SLOTS:129 SIZE:816", "SLOTS:2 SIZE:12820"},
                             // the slots' number does not follow the clients
                             geometry{9, 1, 0, 7, 3, false, "SLOTS:8 SIZE:304", "SLOTS:4 SIZE:396"}),
                         [](const auto& of) {
                             const geometry& g = of.param;
                             return std::to_string(g.nclients) + "_" + std::to_string(g.nblocks) + "_" +
                                    std::to_string(g.rate) + "_" + std::to_string(g.client_slots) + "_" +
                                    std::to_string(g.event_slots) + (g.wide ? "_2024" : "_2010");
                         });

// ---- everybody else

TEST_F(BmInitMember, FailsWithoutAWordWhereNoHostIs)
{
    seen_bm bm;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0);
}

TEST_F(BmInitMember, LetsGoOfTheClientPartitionWhereNoEventPartitionIs)
{
    const C_shm_buffer clients(CLIENTS, CLIENT_BUFFERS, CLIENT_LENGTH, true);
    seen_bm bm;
    captured_output captured;
    EXPECT_TRUE(bm.init()) << "true is failure";
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.find_by_name(CLIENTS), nullptr);
    EXPECT_EQ(use_count_of(clients), 1);
}

TEST_F(BmInitMember, AttachesWhatIsThereWithoutAWord)
{
    const old_host old;
    seen_bm bm; // with limits of its own
    captured_output captured;
    EXPECT_FALSE(bm.init()) << "false is success";
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(bm.clid, shmid_of(old.clients));
    EXPECT_EQ(bm.evid, shmid_of(old.events));
    EXPECT_EQ(bm.cl_buf, bm.find_by_name(CLIENTS));
    EXPECT_EQ(bm.ev_buf, bm.find_by_name(EVENTS));
    EXPECT_EQ(reinterpret_cast<char*>(bm.clictrl), bm.cl_buf->buffer_addr(0));
    EXPECT_EQ(reinterpret_cast<char*>(bm.evtctrl), bm.ev_buf->buffer_addr(0));
    EXPECT_EQ(reinterpret_cast<char*>(bm.evtctrl2024), bm.ev_buf->buffer_addr(0));
    EXPECT_EQ(use_count_of(old.clients), 2);
    EXPECT_EQ(stat_of(old.clients, "freebuf"), CLIENT_BUFFERS - 1) << "nothing is taken";
}

TEST_F(BmInitMember, DoesNotWaitForItsMaster)
{
    const old_host old;
    for (const int status : {0, 1, 2, 3, -1, INT_MIN}) {
        put_control_status(old.clients, status);
        seen_bm bm;
        captured_output captured;
        EXPECT_FALSE(bm.init()) << "false is success, status " << status;
        EXPECT_EQ(captured.out(), "");
        EXPECT_EQ(control_status(old.clients), status);
    }
}

TEST_F(BmInitMember, DoesNotFindPartitionsOfOtherNames)
{
    const old_host old;
    seen_bm bm;
    bm.clname = "ZRK4_CLIENT_SLOTS_7";
    EXPECT_TRUE(quiet_init(bm)) << "true is failure";
}

// ---- what every init does

TEST_F(BmInit, InstallsTheUsualReadersOfABlocksHeadForAll32Types)
{
    const old_host old;
    seen_bm bm;
    for (int round = 0; round < 2; ++round) {
        for (int type = 0; type < 33; ++type) bm.set_get_name_func(type, [](char*) -> char* { return nullptr; });
        bm.set_get_evid_func(31, [](char*) -> int64_t { return 0; });
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        for (int type = 0; type < 32; ++type) {
            EXPECT_EQ(bm.get_bname_f.at(type), get_bname_known);
            EXPECT_EQ(bm.get_key_f.at(type), get_key_known);
            EXPECT_EQ(bm.get_len_f.at(type), get_len_known);
            EXPECT_EQ(bm.get_trg_f.at(type), get_trg_known);
            EXPECT_EQ(bm.get_sts_f.at(type), get_sts_known);
            EXPECT_EQ(bm.get_evid_f.at(type), get_evid_known);
        }
        EXPECT_NE(bm.get_bname_f.at(32), get_bname_known) << "no type";
        EXPECT_EQ(bm.get_key_f.size(), 32U);
    }
}

TEST_F(BmInit, ForgetsTheBadDatagramsAlsoWhenItFails)
{
    seen_bm bm;
    bm_bad_format_events = 19;
    EXPECT_TRUE(quiet_init(bm)) << "true is failure";
    EXPECT_EQ(bm_bad_format_events, 0);
    EXPECT_EQ(bm.get_bname_f.size(), 32U) << "the readers are installed all the same";
}

TEST_F(BmInit, SecondOneOfAMemberKeepsTheAttachmentAsItIs)
{
    const old_host old;
    seen_bm bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    const C_shm_buffer* clients = bm.cl_buf;
    const int slot = subscribed(bm, CLI_T_WRITER);
    EXPECT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.cl_buf, clients);
    EXPECT_EQ(use_count_of(old.clients), 2);
    EXPECT_EQ(bm.swriter, std::list<int>{slot});
    EXPECT_EQ(bm.unsubscribe(ZRK4_EV_NORMAL, CLI_T_WRITER), slot);
}

TEST_F(BmInit, SecondOneOfAMasterTakesItsOwnPartitionsOver)
{
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    const int clid = bm.clid;
    const int evid = bm.evid;
    const int slot = subscribed(bm, CLI_T_WRITER);
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }), std::string(LINE_CLIENTS) + LINE_EVENTS);
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(bm.clid, clid);
    EXPECT_EQ(bm.evid, evid);
    EXPECT_EQ(+bm.clictrl->status, CLI_C_UPD) << "as the subscription left it";
    EXPECT_EQ(bm.unsubscribe(ZRK4_EV_NORMAL, CLI_T_WRITER), slot);
}

TEST_F(BmInit, WorksAgainAfterACleanUp)
{
    still_master bm;
    for (int round = 0; round < 3; ++round) {
        bool failed = true;
        EXPECT_EQ(said([&] { failed = bm.init(); }), std::string(LINE_CLIENTS) + LINE_EVENTS);
        EXPECT_FALSE(failed) << "false is success";
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        bm.all_clean_up();
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

// It was attached to what it now replaces or refuses: it must not come back to that.
TEST_F(BmInit, MemberThatBecomesMasterLetsGoOfPartitionsThatAreTooSmall)
{
    for (const bool forced : {false, true}) {
        const old_host old({20, 400, 20, 700});
        seen_bm bm;
        make_small(bm);
        const long threads = threads_now();
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        ASSERT_EQ(subscribed(bm, CLI_T_READER), 1);
        ASSERT_FALSE(bm.set_master(true)) << "false is success";
        bm.set_forced(forced);
        EXPECT_EQ(quiet_init(bm), !forced);
        EXPECT_TRUE(threads_become(threads + 1)) << "the monitor's; no reader is left";
        EXPECT_EQ(bm.unsubscribe(ZRK4_EV_NORMAL, CLI_T_READER), -1) << "that slot is in another partition";
        EXPECT_EQ(bm.cl_buf != nullptr, forced);
        if (forced) {
            EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
        }
        bm.all_clean_up();
        EXPECT_TRUE(threads_become(threads));
    }
}

// ---- the control lock

TEST_F(BmInit, SaysKuKuForEveryTryThatASignalEnds)
{
    long calls = 0;
    {
        still_master bm;
        calls = semops_of([&] { EXPECT_FALSE(quiet_init(bm)); });
    }
    still_master bm;
    const fault interrupted = fault::fails("semop", EINTR, static_cast<int>(calls) - 1, 3); // the last one gives
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }),
              std::string(LINE_CLIENTS) + LINE_EVENTS + "DATE Ku-ku\nDATE Ku-ku\nDATE Ku-ku\n");
    EXPECT_EQ(interrupted.fired(), 3);
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
    EXPECT_EQ(semaphore_value(semid_of(*bm.cl_buf), 4), 1) << "given back";
}

// ---- names

TEST_F(BmInit, TextsAreCutAt511Characters)
{
    const std::string name(600, 'n');
    seen_bm bm;
    bm.master = true;
    make_small(bm);
    bm.clname = name.c_str();
    const std::string text = said([&] { bm.init(); });
    EXPECT_EQ(text, "DATE " + ("CL_SLOTS NAME:" + name).substr(0, 511) + "\n");
}

TEST_F(BmInit, NamesOfTheEnvironmentAreThoseOfThePartitions)
{
    setenv("ZRK4_CLI_SHM_NAME", "HALL_7_CLIENTS", 1);
    setenv("ZRK4_EV_SHM_NAME", "", 1);
    {
        still_master bm;
        bool failed = true;
        EXPECT_EQ(said([&] { failed = bm.init(); }), "DATE CL_SLOTS NAME:HALL_7_CLIENTS SLOTS:257 SIZE:816\n"
                                                     "DATE EV_SLOTS NAME: SLOTS:33 SIZE:884\n");
        EXPECT_FALSE(failed) << "false is success";
        EXPECT_EQ(C_shm("HALL_7_CLIENTS").valid(), 1);
        EXPECT_EQ(C_shm(CLIENTS).valid(), 0);
        EXPECT_EQ(C_shm("").valid(), 1);
    }
    unsetenv("ZRK4_CLI_SHM_NAME");
    unsetenv("ZRK4_EV_SHM_NAME");
}

} // namespace
