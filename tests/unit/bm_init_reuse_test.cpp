// A master that finds the slot partitions of an earlier one.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "bm_old_host.h"

using namespace zrk4::test;

namespace {

class BmInitReuse : public CleanNamespace {};
class BmInitForced : public CleanNamespace {};

// ---- an earlier master's partitions

TEST_F(BmInitReuse, PartitionsOfTheSameSizeAreTakenOver)
{
    const old_host old;
    still_master bm;
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }), std::string(LINE_CLIENTS) + LINE_EVENTS);
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(bm.clid, shmid_of(old.clients));
    EXPECT_EQ(bm.evid, shmid_of(old.events));
    EXPECT_EQ(segments_in_namespace(), 2);
}

TEST_F(BmInitReuse, LargerPartitionsAreTakenOverAsTheyAre)
{
    const old_host old({CLIENT_BUFFERS + 1, CLIENT_LENGTH + 1, EVENT_BUFFERS + 1, EVENT_LENGTH + 1});
    old_host::soil(old.clients);
    old_host::soil(old.events);
    still_master bm;
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }), std::string(LINE_CLIENTS) + LINE_EVENTS) << "what it would have made";
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(bm.clid, shmid_of(old.clients));
    EXPECT_EQ(bm.evid, shmid_of(old.events));
    EXPECT_TRUE(old_host::all_bytes_are(old.clients, 0x5A)) << "nothing is cleared, nor the status set";
    EXPECT_TRUE(old_host::all_bytes_are(old.events, 0x5A));
    EXPECT_EQ(stat_of(old.clients, "freebuf"), CLIENT_BUFFERS) << "no buffer is taken";
    EXPECT_EQ(stat_of(old.events, "freebuf"), EVENT_BUFFERS);
}

TEST_F(BmInitReuse, EventSlotsAreClearedWithANewClientPartition)
{
    C_shm_buffer events(EVENTS, EVENT_BUFFERS, EVENT_LENGTH, true);
    events.get_buffer(BM_NO_WAIT, true);
    const char* used = events.get_buffer(BM_NO_WAIT, true);
    old_host::soil(events);
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.evid, shmid_of(events));
    EXPECT_TRUE(old_host::all_bytes_are(events, 0));
    EXPECT_EQ(+bm.clictrl->status, CLI_C_CLN) << "not set for a reused event partition";
    EXPECT_EQ(events.get_bufptr()[events.buffer_id(const_cast<char*>(used))].status & BUF_QUEUED, 0)
        << "the queue stays as it was";
    EXPECT_EQ(stat_of(*bm.cl_buf, "freebuf"), CLIENT_BUFFERS - 1) << "buffer 0 of the new one is taken";
}

TEST_F(BmInitReuse, ClientsStayWithANewEventPartition)
{
    C_shm_buffer clients(CLIENTS, CLIENT_BUFFERS, CLIENT_LENGTH, true);
    clients.get_buffer(BM_NO_WAIT, true);
    old_host::soil(clients);
    still_master bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    EXPECT_EQ(bm.clid, shmid_of(clients));
    EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
    put_control_status(clients, 0x5A5A5A5A);
    EXPECT_TRUE(old_host::all_bytes_are(clients, 0x5A)) << "nothing but the status has changed";
    EXPECT_TRUE(old_host::all_bytes_are(*bm.ev_buf, 0));
    EXPECT_EQ(stat_of(*bm.ev_buf, "freebuf"), EVENT_BUFFERS - 1);
}

// ---- partitions that are too small

struct too_small {
    old_size size;
    bool of_clients;
    const char* text;
};

class BmUndersized : public CleanNamespace, public testing::WithParamInterface<too_small> {
  protected:
    static std::string refusal() { return std::string("DATE ") + GetParam().text + "\n"; }
};

TEST_P(BmUndersized, IsReplacedByForce)
{
    const old_host old(GetParam().size);
    const bool of_clients = GetParam().of_clients;
    const int replaced = shmid_of(of_clients ? old.clients : old.events);
    const int stays = shmid_of(of_clients ? old.events : old.clients);
    still_master bm;
    bool failed = true;
    const std::string text = said([&] { failed = bm.init(); });
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(text, of_clients ? LINE_CLIENTS + refusal() + FORCING + LINE_CLIENTS + LINE_EVENTS
                               : LINE_CLIENTS + (LINE_EVENTS + refusal()) + FORCING + LINE_EVENTS);
    EXPECT_FALSE(segment_exists(replaced));
    EXPECT_TRUE(segment_exists(stays));
    EXPECT_EQ(of_clients ? bm.evid : bm.clid, stays);
    EXPECT_GE(stat_of(*bm.cl_buf, "lbuf"), CLIENT_LENGTH);
    EXPECT_GE(stat_of(*bm.cl_buf, "nbuf"), CLIENT_BUFFERS);
    EXPECT_GE(stat_of(*bm.ev_buf, "lbuf"), EVENT_LENGTH);
    EXPECT_GE(stat_of(*bm.ev_buf, "nbuf"), EVENT_BUFFERS);
}

TEST_P(BmUndersized, IsLeftAloneWithoutForce)
{
    const old_host old(GetParam().size);
    still_master bm;
    bm.set_forced(false);
    bool failed = false;
    const std::string text = said([&] { failed = bm.init(); });
    EXPECT_TRUE(failed) << "true is failure";
    EXPECT_EQ(text, GetParam().of_clients ? LINE_CLIENTS + refusal() : LINE_CLIENTS + (LINE_EVENTS + refusal()));
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
    EXPECT_EQ(use_count_of(old.clients), 1);
    EXPECT_EQ(use_count_of(old.events), 1);
    EXPECT_EQ(stat_of(old.clients, "nbuf"), GetParam().size.clients) << "as it was, locks and all";
    EXPECT_TRUE(old.clients.ctrl(0, true) && old.clients.ctrl(0, false));
}

// Who lets go last destroys a partition; here that would be the refusing master.
TEST_P(BmUndersized, IsLeftAloneWithoutForceAlsoWhenNobodyElseHasIt)
{
    int refused = -1;
    {
        old_host old(GetParam().size);
        old.clients.keep(true);
        old.events.keep(true);
        refused = shmid_of(GetParam().of_clients ? old.clients : old.events);
    }
    still_master bm;
    bm.set_forced(false);
    EXPECT_TRUE(quiet_init(bm)) << "true is failure";
    EXPECT_TRUE(segment_exists(refused));
    EXPECT_EQ(stat_of(C_shm(refused), "nbuf"),
              GetParam().of_clients ? GetParam().size.clients : GetParam().size.events);
    clear_ipc_namespace();
}

INSTANTIATE_TEST_SUITE_P(
    Old, BmUndersized,
    testing::Values(
        too_small{{256, 816, 33, 884}, true, "Old client slot partition is incompatible !!! 256 < 257  || 816 < 816"},
        too_small{{257, 815, 33, 884}, true, "Old client slot partition is incompatible !!! 257 < 257  || 815 < 816"},
        too_small{{300, 300, 33, 884}, true, "Old client slot partition is incompatible !!! 300 < 257  || 300 < 816"},
        too_small{{257, 816, 32, 884}, false, "Old event slot partition is incompatible !!! 32 < 33 || 884 < 884"},
        too_small{{257, 816, 33, 883}, false, "Old event slot partition is incompatible !!! 33 < 33 || 883 < 884"},
        too_small{{257, 816, 32, 900}, false, "Old event slot partition is incompatible !!! 32 < 33 || 900 < 884"}),
    [](const auto& of) {
        const old_size& s = of.param.size;
        return (of.param.of_clients ? "Clients_" : "Events_") +
               std::to_string(of.param.of_clients ? s.clients : s.events) + "_" +
               std::to_string(of.param.of_clients ? s.client_length : s.event_length);
    });

TEST_F(BmInitForced, BothPartitionsAreReplacedWhenBothAreTooSmall)
{
    const old_host old({2, 48, 2, 60});
    still_master bm;
    bool failed = true;
    EXPECT_EQ(said([&] { failed = bm.init(); }),
              std::string(LINE_CLIENTS) + "DATE Old client slot partition is incompatible !!! 2 < 257  || 48 < 816\n" +
                  FORCING + LINE_CLIENTS + LINE_EVENTS +
                  "DATE Old event slot partition is incompatible !!! 2 < 33 || 60 < 884\n" + FORCING + LINE_EVENTS);
    EXPECT_FALSE(failed) << "false is success";
    EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
}

// Another user's partition: neither its segment nor its semaphores can be removed.
TEST_F(BmInitForced, PartitionThatWithstandsEndsTheTries)
{
    const captured_output quiet; // to the end: the old handles find their locks gone
    const old_host old({2, 48, 33, 884});
    const int withstands = shmid_of(old.clients);
    const fault segment_stays = fault::fails("shmctl", EPERM);
    const fault set_stays = fault::fails("semctl", EPERM);
    still_master bm;
    bool failed = false;
    EXPECT_EQ(said([&] { failed = bm.init(); }),
              std::string(LINE_CLIENTS) + "DATE Old client slot partition is incompatible !!! 2 < 257  || 48 < 816\n" +
                  FORCING);
    EXPECT_EQ(segment_stays.fired() + set_stays.fired(), 2);
    EXPECT_TRUE(failed) << "true is failure";
    EXPECT_TRUE(bm.detached());
    EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
    EXPECT_TRUE(segment_exists(withstands));
    clear_ipc_namespace();
}

} // namespace
