// The end of an event: when every client is done, and what is said of one that is not complete.
#include "event_clients.h"
#include "eventually.h"

using namespace zrk4::test;

namespace {

class BmEventEnd : public EventClients {};
IN_BOTH_GENERATIONS(BmEventEnd);

TEST_P(BmEventEnd, ComesWhenEveryClientIsDone)
{
    add_writer({"A", "B", "C"}, PROC);
    add_reader({"A"}, DONE);
    add_reader({}, DONE);
    for (const char* name : {"A", "B", "C"}) collect(name);
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_TRUE(slot_is_free(1));
    for (int b = 0; b < 3; ++b) EXPECT_TRUE(block_is_free(b)) << b;
}

TEST_P(BmEventEnd, DoesNotComeWhileAClientIsNotDone)
{
    add_writer({"A"}, DONE);
    for (const int status : {NTF, PROC}) {
        slot(1).put(&slot_layout::nclients, 1);
        add_reader({"A"}, status);
        EXPECT_EQ(said_notifying(0), "");
        EXPECT_FALSE(slot_is_free(1));
    }
}

TEST_P(BmEventEnd, SpeaksOfAnIncompleteEvent)
{
    slot(1).put(&slot_layout::nsblocks, 5);
    slot(1).add_entry(
        "N", data_id,
        put({.server = "N", .time = {11, 12}, .mpulse = -13, .ltotal = -14, .tmask = -1, .status = -15, .nchan = 16},
            generation::of_2010));
    slot(1).add_entry("HOLE", 0, -1);
    slot(1).add_entry("W", data_id,
                      put({.server = "W",
                           .time = {21, 22},
                           .mpulse = 0x1'0000'0000,
                           .ltotal = 0x2'0000'0000,
                           .tmask = 0xAB,
                           .status = 25,
                           .nchan = 26},
                          generation::of_2024));
    slot(1).add_entry("NUMBER", data_id, -1);
    slot(1).add_entry("SEGMENT", 0, 9);
    EXPECT_EQ(slot(1).sbfilled(), 5);
    slot(1).put(&slot_layout::nsblocks, 6);
    EXPECT_EQ(said_notifying(0),
              "DATE ------------------------UUuups filled != total 5 != 6 Ev type: 1 ts: 1000:500\n"
              "DATE Time: 11 sec 12 usec\n\t Total size: -14\n\t Mpulse:-13\n\t Server: N\n\t tmask:0xFFFFFFFF\n"
              "\t Status: -15\n\t Nchan: 16\n"
              "DATE ------------------------UUuups BAD SHMID: 0 or BNUM:-1\n"
              "DATE Pattern: 0xFBABBAFFFBABBAFF, Time: 21 sec 22 usec\n\t Total size: 8589934592\n"
              "\t Mpulse:4294967296\n\t Server: W\n\t tmask:0xAB\n\t Status: 25\n\t Nchan: 26\n"
              "DATE ------------------------UUuups BAD SHMID: " +
                  std::to_string(data_id) +
                  " or BNUM:-1\n"
                  "DATE ------------------------UUuups BAD SHMID: 0 or BNUM:9\n");
    EXPECT_TRUE(slot_is_free(1));
}

TEST_P(BmEventEnd, SpeaksOfTooManyBlocks)
{
    slot(1).put(&slot_layout::nsblocks, 0);
    slot(1).add_entry("A", 0, -1);
    EXPECT_EQ(said_notifying(0), "DATE ------------------------UUuups filled != total 1 != 0 Ev type: 1 ts: 1000:500\n"
                                 "DATE ------------------------UUuups BAD SHMID: 0 or BNUM:-1\n");
}

TEST_P(BmEventEnd, CutsTheHeadOfAHostileBlockAt511Characters)
{
    slot(1).put(&slot_layout::nsblocks, 2);
    const int bnum = put({.server = std::string(256, 's')});
    std::memset(block(bnum) + (wide() ? 32 : 16), 's', 260); // runs into the field behind it
    slot(1).add_entry("A", data_id, bnum);
    const std::string text = said_notifying(0);
    EXPECT_NE(text.find("Server: " + std::string(255, 's') + "\n\t tmask:0x73737373\n"), std::string::npos);
}

TEST_P(BmEventEnd, SaysOfABlockThatCannotBeReachedOnlyThat)
{
    slot(1).put(&slot_layout::nsblocks, 2);
    slot(1).add_entry("A", 7777, 3);
    EXPECT_EQ(said_notifying(0),
              "DATE ------------------------UUuups filled != total 1 != 2 Ev type: 1 ts: 1000:500\n"
              "SYSERROR: 22\n"   // for the report
              "SYSERROR: 22\n"); // and for its way back
    EXPECT_TRUE(slot_is_free(1));
}

TEST_P(BmEventEnd, SpeaksOfABlockThatDidNotGoBack)
{
    slot(1).put(&slot_layout::nsblocks, 1);
    collect("A");
    ASSERT_FALSE(bm.return_buffer_in_pool(0, data_id));
    EXPECT_EQ(said_notifying(0), "DATE free_ev_slot(): failed to free id: " + std::to_string(data_id) +
                                     " bnum: 0\nDATE cl_notify(): free_ev_slot() failed\n");
    EXPECT_TRUE(slot_is_free(1)) << "the slot is free all the same";
}

TEST_P(BmEventEnd, SpeaksOfASlotThatDidNotGoBack)
{
    slot(1).put(&slot_layout::nsblocks, 0);
    events_part.return_buffer(1);
    EXPECT_EQ(said_notifying(0),
              "DATE free_ev_slot(): failed to free event slot: 1 \nDATE cl_notify(): free_ev_slot() failed\n");
}

TEST_P(BmEventEnd, FreesNoSlotThatTheTableDoesNotKnow)
{
    control(1).put_status(EVT_C_FREE);
    add_reader({"A"});
    collect("A");
    EXPECT_EQ(bm.cl_notify(1), 1);
    slot(1).put_client_status(0, DONE);
    slot(1).put(&slot_layout::nsblocks, 1);
    EXPECT_EQ(said_notifying(0), "");
    EXPECT_FALSE(slot_is_free(1)) << "an entry that is free already is not freed again";
}

TEST_P(BmEventEnd, WritesItsTextsWhenTheLocksAreGivenBack)
{
    slot(1).put(&slot_layout::nsblocks, 7);
    // The pipe is full before the first text: whoever writes stops there, and must not hold a lock.
    slot(1).add_client(-7, WAIT);
    child stuck([&] {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const std::string filling(1 << 16, 'x');
        EXPECT_EQ(write(ends[1], filling.data(), filling.size()), static_cast<ssize_t>(filling.size()));
        dup2(ends[1], 1);
        bm.cl_notify(1);
    });
    EXPECT_TRUE(eventually([&] { return slot_is_free(1) && locks_held().empty(); }));
    stuck.kill_now();
}

} // namespace
