// Server blocks that do not enter their event: bad arguments, duplicates, surplus, missing head readers.
#include <climits>

#include <sys/shm.h>

#include "event_host.h"

using namespace zrk4::test;

namespace {

class BmRefusedBlock : public EventHost {
  protected:
    /// An event of `expected` blocks in slot 1.
    void expect_blocks(int expected)
    {
        ASSERT_EQ(used_slot(), 1);
        slot(1).put(&slot_layout::nsblocks, expected);
    }
    void refuse(int bnum) { EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum)) << "true is failure"; }
    std::string said_refusing(int bnum)
    {
        return said([&] { refuse(bnum); });
    }
    static std::string n(int number) { return std::to_string(number); }
};
IN_BOTH_GENERATIONS(BmRefusedBlock);

// ---- arguments

TEST_P(BmRefusedBlock, HasInvalidParameters)
{
    const auto type = [](int number) { return static_cast<ZRK4_EVTYPE>(number); };
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.ev_update(TYPE, 0, 3)) << "true is failure";
                  EXPECT_TRUE(bm.ev_update(TYPE, -5, 3));
                  EXPECT_TRUE(bm.ev_update(type(32), 1, 3));
                  EXPECT_TRUE(bm.ev_update(type(-1), 1, 3));
                  EXPECT_TRUE(bm.ev_update(TYPE, 1, -1));
              }),
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 0 bnum: 3\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: -5 bnum: 3\n"
              "DATE ev_update(): invalid parameter(s) evtype: 32 id: 1 bnum: 3\n"
              "DATE ev_update(): invalid parameter(s) evtype: -1 id: 1 bnum: 3\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 1 bnum: -1\n");
}

TEST_P(BmRefusedBlock, HasInvalidParametersForAKnownSlot)
{
    const int count = events_part.getBufferCount();
    const auto type = [](int number) { return static_cast<ZRK4_EVTYPE>(number); };
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.ev_update(TYPE, 0, 3, 1));
                  EXPECT_TRUE(bm.ev_update(type(32), 1, 3, 1));
                  EXPECT_TRUE(bm.ev_update(type(-1), 1, 3, 1));
                  EXPECT_TRUE(bm.ev_update(TYPE, 1, -1, 1));
                  EXPECT_TRUE(bm.ev_update(TYPE, 1, 3, -1));
                  EXPECT_TRUE(bm.ev_update(TYPE, 1, 3, count));
                  EXPECT_TRUE(bm.ev_update(TYPE, 1, 3, 0)) << "buffer 0 is the control table";
              }),
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 0 bnum: 3 slot: 1\n"
              "DATE ev_update(): invalid parameter(s) evtype: 32 id: 1 bnum: 3 slot: 1\n"
              "DATE ev_update(): invalid parameter(s) evtype: -1 id: 1 bnum: 3 slot: 1\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 1 bnum: -1 slot: 1\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 1 bnum: 3 slot: -1\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: 1 bnum: 3 slot: " +
                  n(count) +
                  "\n"
                  "DATE ev_update(): invalid parameter(s) evtype: 1 id: 1 bnum: 3 slot: 0\n");
}

TEST_P(BmRefusedBlock, HasNoAddress)
{
    const std::string text = said([&] {
        EXPECT_TRUE(bm.ev_update(TYPE, data_id, BLOCKS));
        EXPECT_TRUE(bm.ev_update(TYPE, 7777, 0));
        EXPECT_TRUE(bm.ev_update(TYPE, data_id, BLOCKS, 1));
        EXPECT_TRUE(bm.ev_update(TYPE, 7777, 0, 1));
    });
    EXPECT_EQ(text, "DATE ev_update(): failed to get the buffer address bnum:" + n(BLOCKS) + " id:" + n(data_id) +
                        "\nSYSERROR: 22\n"
                        "DATE ev_update(): failed to get the buffer address bnum:0 id:7777\n"
                        "DATE ev_update(): failed to get the buffer address\n"
                        "SYSERROR: 22\n"
                        "DATE ev_update(): failed to get the buffer address\n");
}

// Attaching takes a handle, and a handle takes over what looks damaged.
TEST_P(BmRefusedBlock, OfAStrangersSegmentLeavesThatSegmentAlone)
{
    const int stranger = shmget(IPC_PRIVATE, 4096, 0600);
    ASSERT_GT(stranger, 0);
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.ev_update(TYPE, stranger, 0)); }),
              "DATE ev_update(): failed to get the buffer address bnum:0 id:" + n(stranger) + "\n");
    EXPECT_TRUE(segment_exists(stranger));
    shmctl(stranger, IPC_RMID, nullptr);
}

TEST_P(BmRefusedBlock, FindsNoSlot)
{
    const int bnum = put({});
    EXPECT_EQ(said_refusing(bnum), "DATE init_ev_slot(): no write registration found for event type: 1\n"
                                   "DATE ev_update(): failed to find the event slot\n");
    bm.get_key_f.erase(TYPE);
    EXPECT_EQ(said_refusing(bnum), "DATE ev_update(): failed to find the event slot\n");
    EXPECT_FALSE(block_is_free(bnum)) << "still the caller's";
}

TEST_P(BmRefusedBlock, MeetsNoPartitionsBeforeInit)
{
    open_bm alone;
    const int id = alone.add("T_ALONE", 2, 1000);
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(alone.ev_update(TYPE, id, 0));
                  EXPECT_TRUE(alone.ev_update(TYPE, id, 0, 1));
              }),
              "DATE !!!!!!!! ev_update(): time stamp 0:0_0   Event type: 1 SB:  chans: 0\n"
              "DATE ev_update(): failed to find the event slot\n"
              "DATE ev_update(): invalid parameter(s) evtype: 1 id: " +
                  n(id) + " bnum: 0 slot: 1\n");
}

class BmRefusedBlockOfShortSlots : public EventHost {
  protected:
    BmRefusedBlockOfShortSlots() : EventHost({.event_length = layout_of(GetParam()).head - 1}) {}
};
IN_BOTH_GENERATIONS(BmRefusedBlockOfShortSlots);

TEST_P(BmRefusedBlockOfShortSlots, FindsNoAddressForTheSlot)
{
    const int bnum = put({});
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum, 2)); }),
              "DATE ev_update(): Failed to find address for event slot: 2\n");
}

// ---- duplicates

TEST_P(BmRefusedBlock, OfANameThatIsThereIsGivenBack)
{
    expect_blocks(5);
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .nchan = 1})));
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "B", .nchan = 1})));
    const int again = put({.server = "B", .ltotal = 9999, .tmask = 0xF00, .nchan = 3});
    const std::string id = n(data_id);
    EXPECT_EQ(said_refusing(again), "DATE ev_update(): SB duplication B\n"
                                    "DATE ev_update(): SB duplication in ev slot channels:3  new channels; 3 shmid: " +
                                        id + " (" + id + ")\nDATE ev_update(): BM FREED (NEW) id: " + id + " bnum: 2\n")
        << "both counts are those of the incoming block";
    EXPECT_TRUE(block_is_free(again)) << "do not return it again";
    EXPECT_FALSE(block_is_free(1));
    EXPECT_EQ(slot(1).sbfilled(), 2);
    EXPECT_EQ(slot(1).word(&slot_layout::tmask), 1) << "it adds nothing";
}

TEST_P(BmRefusedBlock, OfAPlaceholdersNameIsADuplicateOfIt)
{
    expect_blocks(5);
    slot(1).add_entry("A", 0, -1);
    const int bnum = put({.server = "A", .nchan = 2});
    const std::string id = n(data_id);
    EXPECT_EQ(said_refusing(bnum),
              "DATE ev_update(): SB duplication A\n"
              "DATE ev_update(): SB duplication in ev slot channels:2  new channels; 2 shmid: 0 (" +
                  id + ")\nDATE ev_update(): BM FREED (NEW) id: " + id + " bnum: 0\n");
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{hole("A")}));
}

TEST_P(BmRefusedBlock, OfANameThatAReaderMissedBeforeIsADuplicate)
{
    writer({"B"});
    client({.names = {"A"}});
    const int n1 = init_slot({.server = "B"});
    control(n1).put(EVT_C_USED, TYPE, {1000, 500}, 7);
    ASSERT_EQ(slot(n1).entries(), (std::vector<seen_entry>{hole("A")}));
    const int bnum = put({.server = "A"});
    refuse(bnum);
    EXPECT_TRUE(block_is_free(bnum));
}

TEST_P(BmRefusedBlock, OfferedTwiceIsADuplicateOfItself)
{
    expect_blocks(5);
    const int bnum = put({.server = "A"});
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, bnum));
    refuse(bnum);
    EXPECT_TRUE(block_is_free(bnum)) << "while the event still lists it";
    EXPECT_EQ(slot(1).sbfilled(), 1);
    const std::string id = n(data_id);
    EXPECT_EQ(said_refusing(bnum), "DATE ev_update(): SB duplication A\n"
                                   "DATE ev_update(): SB duplication in ev slot channels:0  new channels; 0 shmid: " +
                                       id + " (" + id + ")\nDATE ev_update(): failed to free id: " + id + " bnum: 0\n")
        << "it is free already";
}

TEST_P(BmRefusedBlock, IsToldByTheNameInItsHead)
{
    expect_blocks(5);
    static char given[] = "GIVEN";
    bm.set_get_name_func(TYPE, [](char*) -> char* { return given; });
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"}))) << "entered under another name each time";
    refuse(put({.server = "GIVEN"}));
    EXPECT_EQ(slot(1).sbfilled(), 2);
}

TEST_P(BmRefusedBlock, IsComparedByItsWholeName)
{
    expect_blocks(5);
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "NAME"})));
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "NAM"})));
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "NAME2"})));
    const std::string longest(255, 'n');
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = longest})));
    const std::string text = said_refusing(put({.server = longest}));
    EXPECT_EQ(text.substr(0, text.find('\n')), "DATE ev_update(): SB duplication " + longest);
    EXPECT_EQ(slot(1).sbfilled(), 4);
}

TEST_P(BmRefusedBlock, OfADuplicateWinsOverSurplus)
{
    expect_blocks(1);
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    const int bnum = put({.server = "A"});
    const std::string text = said_refusing(bnum);
    EXPECT_EQ(text.find("Nummber"), std::string::npos);
    EXPECT_TRUE(block_is_free(bnum));
}

// ---- surplus

TEST_P(BmRefusedBlock, OfASurplusStaysWithItsCaller)
{
    expect_blocks(1);
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .mpulse = 7, .ltotal = 400, .tmask = 0xAB})));
    const int bnum =
        put({.server = "S", .time = {1000, 501}, .mpulse = -8, .ltotal = 500, .tmask = 0xCD, .status = -3, .nchan = 4});
    EXPECT_EQ(said_refusing(bnum),
              "DATE ev_update(): Nummber of SB blocks collected(1) == expected (1), current will be dropped:\n"
              "DATE Time 1000:501_-8\n"
              "DATE ltotal: 500 server: S  mask: 0xCD status: -3  nchan: 4\n"
              "DATE EV.SLOT type:NORMAL  1000:500_7  evsize:400 tmask: 0xab  blocks:1  filled:1\n\n");
    EXPECT_FALSE(block_is_free(bnum)) << "it is not returned";
    EXPECT_EQ(slot(1).sbfilled(), 1);
    EXPECT_EQ(slot(1).evsize(), 400);
}

TEST_P(BmRefusedBlock, OfASurplusIsPrintedInItsOwnForm)
{
    expect_blocks(0);
    slot(1).put_wide(&slot_layout::eventid, wide() ? 0x1'0000'0001 : -1);
    slot(1).put_wide(&slot_layout::evsize, wide() ? 0x2'0000'0002 : -2);
    slot(1).put(&slot_layout::evtype, 28);
    const std::string first = "DATE ev_update(): Nummber of SB blocks collected(0) == expected (0), current will be "
                              "dropped:\n";
    const std::string last = of_form("DATE EV.SLOT type:28  1000:500_-1  evsize:-2 tmask: 0x0  blocks:0  filled:0\n\n",
                                     "DATE EV.SLOT type:28  1000:500_4294967297  evsize:8589934594 tmask: 0x0  "
                                     "blocks:0  filled:0\n\n");
    EXPECT_EQ(said_refusing(put({.server = "N", .mpulse = -1, .ltotal = -2, .tmask = -1}, generation::of_2010)),
              first +
                  "DATE Time 1000:500_-1\n"
                  "DATE ltotal: -2 server: N  mask: 0xFFFFFFFF status: 0  nchan: 0\n" +
                  last);
    EXPECT_EQ(
        said_refusing(put({.server = "W", .mpulse = 0x1'0000'0001, .ltotal = 0x2'0000'0002}, generation::of_2024)),
        first +
            "DATE Time 1000:500_4294967297\n"
            "DATE ltotal: 8589934594 server: W  mask: 0x1 status: 0  nchan: 0\n" +
            last);
}

TEST_P(BmRefusedBlock, OfASurplusIsToldByTheHeadAlone)
{
    expect_blocks(-1);
    const std::string text = said_refusing(put({.server = "A"}));
    EXPECT_EQ(text.substr(0, text.find(',')), "DATE ev_update(): Nummber of SB blocks collected(0) == expected (-1)");
}

/// Slots with room for two entries, whatever their heads expect.
class BmFullSlot : public EventHost {
  protected:
    BmFullSlot() : EventHost({.event_length = layout_of(GetParam()).head + 2 * 264 + 263}) {}
};
IN_BOTH_GENERATIONS(BmFullSlot);

TEST_P(BmFullSlot, RefusesTheNextBlockAsSurplus)
{
    used_slot();
    slot(1).put(&slot_layout::nsblocks, 100);
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "B"})));
    taken_slot();
    slot(2).fill('x');
    const int bnum = put({.server = "C"});
    const std::string text = said([&] { EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum)); });
    EXPECT_EQ(text.substr(0, text.find('\n')),
              "DATE ev_update(): Nummber of SB blocks collected(2) == expected (100), current will be dropped:");
    EXPECT_FALSE(block_is_free(bnum));
    EXPECT_EQ(slot(1).sbfilled(), 2);
    EXPECT_EQ(slot(2).byte(0), 'x') << "the next slot was not written into";
}

TEST_P(BmFullSlot, BelievesNoCountThatDoesNotFit)
{
    used_slot();
    const auto behind_the_slot = [this] {
        return std::string(events_part.buffer_addr(2), events_part.buffer_addr(9) + events_part.getBufferLength());
    };
    const std::string before = behind_the_slot();
    for (const int clients : {INT_MAX, 1000, -1}) {
        for (const int filled : {INT_MAX, 1000, -1}) {
            slot(1).put(&slot_layout::nclients, clients);
            slot(1).put(&slot_layout::sbfilled, filled);
            slot(1).put(&slot_layout::nsblocks, INT_MAX);
            said([&] { bm.ev_update(TYPE, data_id, put({.server = "A"}), 1); });
            EXPECT_TRUE(behind_the_slot() == before) << clients << " clients, " << filled << " entries";
        }
    }
}

// ---- head readers that are missing

TEST_P(BmRefusedBlock, WithoutANameReaderIsNotEntered)
{
    expect_blocks(5);
    bm.get_bname_f.erase(TYPE);
    EXPECT_EQ(said_refusing(put({.server = "A"})), "DATE No function to find the name !!!\n");
    bm.get_bname_f[TYPE] = nullptr;
    EXPECT_EQ(said_refusing(put({.server = "A"})), "DATE No function to find the name !!!\n");
    EXPECT_EQ(slot(1).sbfilled(), 0);
    EXPECT_FALSE(block_is_free(0)) << "still the caller's";
}

TEST_P(BmRefusedBlock, WithoutALengthReaderIsInTheEventAllTheSame)
{
    expect_blocks(5);
    bm.get_len_f.erase(TYPE);
    EXPECT_EQ(said_refusing(put({.server = "A", .tmask = 0x3, .status = 0x5})),
              "DATE No function to find the length !!!\n");
    EXPECT_EQ(slot(1).sbfilled(), 1);
    EXPECT_EQ(slot(1).evsize(), 0);
    EXPECT_EQ(slot(1).word(&slot_layout::tmask), 0);
}

TEST_P(BmRefusedBlock, WithoutATriggerReaderHasItsLengthCounted)
{
    expect_blocks(5);
    bm.get_trg_f.erase(TYPE);
    EXPECT_EQ(said_refusing(put({.server = "A", .ltotal = 400, .status = 0x5})),
              "DATE No function to find the trigger mask !!!\n");
    EXPECT_EQ(slot(1).sbfilled(), 1);
    EXPECT_EQ(slot(1).evsize(), 400);
    EXPECT_EQ(slot(1).word(&slot_layout::status), 0);
}

TEST_P(BmRefusedBlock, WithoutAStatusReaderHasItsMaskCounted)
{
    expect_blocks(5);
    bm.get_sts_f.erase(TYPE);
    EXPECT_EQ(said_refusing(put({.server = "A", .mpulse = 9, .tmask = 0x3})),
              "DATE No function to find the status !!!\n");
    EXPECT_EQ(slot(1).word(&slot_layout::tmask), 0x3);
    EXPECT_EQ(slot(1).eventid(), 0);
}

TEST_P(BmRefusedBlock, WithoutAnIdReaderHasItsStatusCounted)
{
    expect_blocks(5);
    slot(1).put_time(&slot_layout::lupdate, {1, 1});
    const int bnum = put({.server = "A", .status = 0x5});
    bm.get_evid_f.erase(TYPE); // without it no slot is searched for, so it is named
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.ev_update(TYPE, data_id, bnum, 1)); }),
              "DATE No function to find the event Id !!!\n");
    EXPECT_EQ(slot(1).word(&slot_layout::status), 0x5);
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, bnum}}));
    EXPECT_EQ(slot(1).time(&slot_layout::lupdate), (time_stamp{1, 1})) << "written last of all";
}

TEST_P(BmRefusedBlock, WithoutAReaderTellsNobody)
{
    writer({"A"});
    bm.get_len_f.erase(TYPE);
    refuse(put({.server = "A"}));
    EXPECT_EQ(slot(1).clients(), (std::vector<seen_client>{{1, PROC}})) << "nobody has looked at the clients";
    EXPECT_FALSE(slot_is_free(1));
}

} // namespace
