// A server block enters its event.
#include <climits>
#include <stdexcept>

#include "event_host.h"
#include "fault.h"
#include "sub_blocks.h"
#include "udp_inbox.h"

using namespace zrk4::test;

namespace {

class BmCollect : public EventHost {
  protected:
    /// Enters a new block into its event.
    void enter(const block_spec& b) { EXPECT_FALSE(bm.ev_update(TYPE, data_id, put(b))) << "false is success"; }
    void enter(const block_spec& b, generation g) { EXPECT_FALSE(bm.ev_update(TYPE, data_id, put(b, g))); }
    /// An event of `expected` blocks in slot 1, whose other clients wait for ever.
    void expect_blocks(int expected)
    {
        ASSERT_EQ(used_slot(), 1);
        slot(1).put(&slot_layout::nsblocks, expected);
    }
    seen_entry entry_of(const std::string& name, int bnum) const { return {name, data_id, bnum}; }
};
IN_BOTH_GENERATIONS(BmCollect);

// ---- the entry

TEST_P(BmCollect, BeginsAnEventWithItsFirstBlock)
{
    writer({"A", "B"});
    const int bnum = put({.server = "A"});
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum)); }), "");
    EXPECT_EQ(control(1).status(), EVT_C_USED);
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{entry_of("A", bnum)}));
    EXPECT_EQ(slot(1).nsblocks(), 2);
    EXPECT_FALSE(block_is_free(bnum)) << "it belongs to the event now";
}

TEST_P(BmCollect, AppendsFurtherBlocksOfTheEvent)
{
    expect_blocks(3);
    for (const char* name : {"A", "B", "C"}) enter({.server = name});
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{entry_of("A", 0), entry_of("B", 1), entry_of("C", 2)}));
    EXPECT_EQ(slot(1).first_dirty(slot(1).used()), slot(1).length());
}

TEST_P(BmCollect, AppendsBehindClientsAndPlaceholders)
{
    expect_blocks(3);
    auto s = slot(1);
    for (int i = 0; i < 3; ++i) s.add_client(20 + i, WAIT);
    s.add_entry("HOLE", 0, -1);
    enter({.server = "A"});
    EXPECT_EQ(s.entries(), (std::vector<seen_entry>{hole("HOLE"), entry_of("A", 0)}));
    EXPECT_EQ(s.entry_at(1) - s.address(), (wide() ? 104 : 84) + 264);
    EXPECT_EQ(s.nclients(), 3);
}

TEST_P(BmCollect, TakesBlocksOfBothGenerationsInOneEvent)
{
    expect_blocks(2);
    enter({.server = "A"}, generation::of_2010);
    enter({.server = "B"}, generation::of_2024);
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{entry_of("A", 0), entry_of("B", 1)}));
}

TEST_P(BmCollect, ClearsTheNameBeforeItWritesIt)
{
    expect_blocks(1);
    std::memset(slot(1).entry_at(0), 'x', 264);
    enter({.server = "A"});
    EXPECT_EQ(std::string(slot(1).entry_at(0), 256), "A" + std::string(255, '\0'));
}

TEST_P(BmCollect, CutsTheNameTo255Characters)
{
    expect_blocks(1);
    enter({.server = std::string(256, 'n')});
    EXPECT_EQ(std::string(slot(1).entry_at(0), 256), std::string(255, 'n') + std::string(1, '\0'));
}

TEST_P(BmCollect, EntersTheNameThatTheReaderGives)
{
    expect_blocks(3);
    static char given[] = "GIVEN";
    bm.set_get_name_func(TYPE, [](char*) -> char* { return given; });
    enter({.server = "A"});
    bm.set_get_name_func(TYPE, [](char*) -> char* { return nullptr; });
    enter({.server = "B"});
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{entry_of("GIVEN", 0), entry_of("", 1)}));
}

TEST_P(BmCollect, AttachesThePartitionOfTheBlock)
{
    expect_blocks(1);
    C_shm_buffer elsewhere("T_ELSEWHERE", 4, 1000, false);
    const int id = shmid_of(elsewhere);
    std::memcpy(elsewhere.buffer_addr(2), head_bytes({.server = "E"}, GetParam()).data(), 284);
    EXPECT_EQ(bm.find_by_id(id), nullptr);
    EXPECT_FALSE(bm.ev_update(TYPE, id, 2));
    EXPECT_NE(bm.find_by_id(id), nullptr);
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"E", id, 2}}));
    EXPECT_FALSE(bm.remove(id));
}

TEST_P(BmCollect, EntersABlockIntoAKnownSlotWhateverItsKey)
{
    expect_blocks(2);
    control(1).put(EVT_C_FREE, TYPE + 1, {1, 1}, 1); // nothing but the slot itself counts
    slot(1).put(&slot_layout::evtype, TYPE + 1);
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A", .time = {9, 9}}), 1)); }), "");
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{entry_of("A", 0)}));
}

TEST_P(BmCollect, WorksUnderTheLockOfTheSlotAlone)
{
    expect_blocks(1);
    static bool slot_held, table_held;
    static time_stamp updated;
    bm.set_get_name_func(TYPE, [](char* b) {
        slot_held = here->event_lock_is_held(1);
        table_held = here->event_lock_is_held(0);
        updated = here->slot(1).time(&slot_layout::lupdate);
        return get_bname_known(b);
    });
    enter({});
    EXPECT_TRUE(slot_held);
    EXPECT_FALSE(table_held);
    EXPECT_GT(+updated.timeup, 0U) << "renewed before the lock is taken";
}

// ---- totals

TEST_P(BmCollect, AddsSizesAndUnitesMasksAndStatus)
{
    expect_blocks(3);
    enter({.server = "A", .ltotal = 400, .tmask = 0x1, .status = 0x10});
    enter({.server = "B", .ltotal = 500, .tmask = 0x4, .status = 0x30});
    EXPECT_EQ(slot(1).evsize(), 900);
    EXPECT_EQ(slot(1).word(&slot_layout::tmask), 0x5);
    EXPECT_EQ(slot(1).word(&slot_layout::status), 0x30);
    enter({.server = "C", .ltotal = -100}, generation::of_2010);
    EXPECT_EQ(slot(1).evsize(), 800) << "a length is added as it stands";
}

TEST_P(BmCollect, AddsSizesInTheWidthOfTheHead)
{
    expect_blocks(2);
    enter({.server = "A", .ltotal = INT_MAX});
    enter({.server = "B", .ltotal = 0x3'0000'0005}, generation::of_2024);
    const int64_t sum = int64_t{INT_MAX} + 0x3'0000'0005;
    EXPECT_EQ(slot(1).evsize(), wide() ? sum : static_cast<int32_t>(static_cast<uint32_t>(sum)));
}

TEST_P(BmCollect, UnitesIdsIn2010AndKeepsTheLastIn2024)
{
    expect_blocks(3);
    slot(1).put_wide(&slot_layout::eventid, 0x100);
    enter({.server = "A", .mpulse = 1});
    enter({.server = "B", .mpulse = 4});
    EXPECT_EQ(slot(1).eventid(), wide() ? 4 : 0x105);
    enter({.server = "C", .mpulse = 2});
    EXPECT_EQ(slot(1).eventid(), wide() ? 2 : 0x107);
}

TEST_P(BmCollect, AsksTheReadersOfTheTypeForItsTotals)
{
    expect_blocks(1);
    bm.set_get_length_func(TYPE, [](char*) -> int64_t { return 12345; });
    bm.set_get_trg_func(TYPE, [](char*) { return 0x77; });
    bm.set_get_sts_func(TYPE, [](char*) { return 0x88; });
    bm.set_get_evid_func(TYPE, [](char*) -> int64_t { return 0x99; });
    enter({});
    EXPECT_EQ(slot(1).evsize(), 12345);
    EXPECT_EQ(slot(1).word(&slot_layout::tmask), 0x77);
    EXPECT_EQ(slot(1).word(&slot_layout::status), 0x88);
    EXPECT_EQ(slot(1).eventid(), 0x99);
}

TEST_P(BmCollect, RenewsTheTimeOfTheLastUpdate)
{
    expect_blocks(2);
    time_stamp before{};
    time_stamp after{};
    time_stamp none{0, 0};
    bm.get_cur_time(&before);
    enter({.server = "A"});
    bm.get_cur_time(&after);
    time_stamp updated = slot(1).time(&slot_layout::lupdate);
    EXPECT_TRUE(bm.time_expired(&updated, &before, &none));
    EXPECT_TRUE(bm.time_expired(&after, &updated, &none));
    slot(1).put_time(&slot_layout::lupdate, {1, 1});
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "B"}), 1));
    updated = slot(1).time(&slot_layout::lupdate);
    EXPECT_TRUE(bm.time_expired(&updated, &after, &none)) << "also into a known slot";
}

// ---- readers are told

TEST_P(BmCollect, TellsTheReadersWhenItsWriterIsSubscribed)
{
    const udp_inbox inbox;
    writer({"A"});
    client({.port = inbox.port()});
    enter({.server = "A"});
    EXPECT_FALSE(inbox.empty());
    EXPECT_EQ(slot(1).clients(), (std::vector<seen_client>{{1, DONE}, {2, NTF}}));
}

TEST_P(BmCollect, TellsNobodyWithoutASubscription)
{
    const udp_inbox inbox;
    const int reading = client({.names = {"A"}, .port = inbox.port()});
    expect_blocks(1);
    slot(1).add_client(reading, WAIT);
    writer({"A"}, ZRK4_EV_IMAGE); // of another type
    enter({.server = "A"});
    EXPECT_EQ(slot(1).sbfilled(), 1) << "entered it is";
    EXPECT_TRUE(inbox.empty());
    EXPECT_EQ(slot(1).client_status(0), WAIT);
}

TEST_P(BmCollect, EndsAnEventThatNobodyReads)
{
    writer({"A", "B"});
    enter({.server = "A"});
    EXPECT_FALSE(slot_is_free(1));
    enter({.server = "B"});
    EXPECT_TRUE(slot_is_free(1));
    EXPECT_EQ(control(1).status(), EVT_C_FREE);
    EXPECT_TRUE(block_is_free(0));
    EXPECT_TRUE(block_is_free(1));
}

// ---- warnings

/// A block with one sub-block, so that its dump has a line.
class BmCollectWarns : public BmCollect {
  protected:
    BmCollectWarns() { expect_blocks(9); }
    std::string said_of(const block_spec& b, generation g)
    {
        block_spec with_channel = b;
        with_channel.nchan = 1;
        const int bnum = put(with_channel, g);
        const std::string channel = sub_block("CHANNEL", 41).bytes();
        std::memcpy(block(bnum) + (g == generation::of_2010 ? 284 : 304), channel.data(), channel.size());
        control(1).put(EVT_C_USED, TYPE, b.time, b.mpulse);
        return said([&] { EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum)) << "taken all the same"; });
    }
    static std::string dump() { return "#0 name: CHANNEL  type: 41  error: 5  ldata: 268\n"; }
};
IN_BOTH_GENERATIONS(BmCollectWarns);

TEST_P(BmCollectWarns, OfABlockWithoutTime)
{
    EXPECT_EQ(said_of({.server = "A", .time = {0, 5}, .mpulse = -7, .ltotal = 600}, generation::of_2010),
              "DATE !!!!!!!! ev_update(): time stamp 0:5_-7   Event type: 1 SB: A chans: 1\n" + dump());
    EXPECT_EQ(said_of({.server = "B", .time = {0, 5}, .mpulse = 0x1'0000'0007, .ltotal = 600}, generation::of_2024),
              "DATE !!!!!!!! ev_update(): time stamp 0:5_4294967303   Event type: 1 SB: B chans: 1\n" + dump());
}

TEST_P(BmCollectWarns, NotOfIdsWhereTimesCount)
{
    EXPECT_EQ(said_of({.server = "A", .mpulse = 0}, generation::of_2010), "");
    EXPECT_EQ(said_of({.server = "B", .mpulse = 0}, generation::of_2024), "");
}

TEST_P(BmCollectWarns, OfTimesAndIdsWhereIdsCount)
{
    bm.set_smode(BM_SYNCH_EVID);
    for (const generation g : {generation::of_2010, generation::of_2024}) {
        const std::string name = g == generation::of_2010 ? "N" : "W";
        EXPECT_EQ(said_of({.server = name + "1", .time = {0, 5}, .mpulse = 7, .ltotal = 600}, g),
                  "DATE !!!!!!!! ev_update(): time stamp 0:5_7   Event type: 1 SB: " + name + "1 chans: 1\n" + dump());
        EXPECT_EQ(said_of({.server = name + "2", .time = {8, 5}, .mpulse = 0, .ltotal = 600}, g),
                  "DATE !!!!!!!! ev_update(): time stamp 8:5_0   Event type: 1 SB: " + name + "2 chans: 1\n" + dump());
        EXPECT_EQ(said_of({.server = name + "3", .time = {8, 5}, .mpulse = 7, .ltotal = 600}, g), "");
    }
}

TEST_P(BmCollectWarns, WithANameThatIsCut)
{
    EXPECT_EQ(said_of({.server = std::string(256, 'n'), .time = {0, 5}, .ltotal = 0}, GetParam()),
              "DATE !!!!!!!! ev_update(): time stamp 0:5_7   Event type: 1 SB: " + std::string(255, 'n') +
                  " chans: 1\n");
}

TEST_P(BmCollectWarns, WithoutAListingOfABlockThatClaimsMoreThanItsBuffer)
{
    const std::string line = "DATE !!!!!!!! ev_update(): time stamp 0:5_7   Event type: 1 SB: A chans: 1\n";
    EXPECT_EQ(said_of({.server = "A", .time = {0, 5}, .ltotal = 1 << 30}, GetParam()), line);
}

// ---- what fails inside

TEST_P(BmCollect, GivesTheLockBackWhenAHeadReaderThrows)
{
    expect_blocks(2);
    bm.set_get_name_func(TYPE, [](char*) -> char* { throw std::runtime_error("of the user's"); });
    EXPECT_NO_THROW(EXPECT_TRUE(bm.ev_update(TYPE, data_id, put({}))));
    EXPECT_EQ(slot(1).sbfilled(), 0);
    bm.set_get_name_func(TYPE, get_bname_known);
    bm.set_get_length_func(TYPE, [](char*) -> int64_t { throw std::runtime_error("of the user's"); });
    EXPECT_NO_THROW(EXPECT_TRUE(bm.ev_update(TYPE, data_id, put({}), 1)));
    EXPECT_EQ(slot(1).sbfilled(), 1) << "what was written stays";
    EXPECT_FALSE(event_lock_is_held(1));
}

TEST_P(BmCollect, TriesTheLocksAgainAfterASignal)
{
    expect_blocks(2);
    const int bnum = put({});
    const fault interrupted = fault::fails("semop", EINTR, 3, 2); // the slot's own
    EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum));
    EXPECT_EQ(interrupted.fired(), 2);
}

class BmCollectWithoutLocks : public BothGenerations {};
IN_BOTH_GENERATIONS(BmCollectWithoutLocks);

TEST_P(BmCollectWithoutLocks, OfTheEventsFails)
{
    in_own_process([](event_host& host) {
        const int bnum = host.put({});
        host.used_slot();
        host.slot(1).put(&slot_layout::nsblocks, 2);
        host.remove_locks(host.events_semid);
        const std::string ctrl = "throw C_shm::ctrl UP sem: ";
        const std::string set = "   errno: 22  semid: " + std::to_string(host.events_semid) + "\n";
        EXPECT_EQ(said([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.ev_update(host.TYPE, host.data_id, bnum))); }),
                  ctrl + "4" + set + "DATE ev_update(): failed to find the event slot\n");
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.ev_update(host.TYPE, host.data_id, bnum, 1))); }),
                  ctrl + "5" + set);
        EXPECT_EQ(host.slot(1).sbfilled(), 0);
    });
}

TEST_P(BmCollectWithoutLocks, OfTheClientsBeginsNoEvent)
{
    in_own_process([](event_host& host) {
        host.writer({});
        const int bnum = host.put({});
        host.remove_locks(host.clients_semid);
        EXPECT_NO_THROW(EXPECT_TRUE(host.bm.ev_update(host.TYPE, host.data_id, bnum)));
        EXPECT_TRUE(host.slot_is_free(1));
        EXPECT_FALSE(host.block_is_free(bnum)) << "still the caller's";
    });
}

// The event ends with its last block, whose buffer cannot be returned: true would tell the writer that it is its own.
TEST_P(BmCollectWithoutLocks, OfTheDataTakesTheLastBlockAllTheSame)
{
    in_own_process([](event_host& host) {
        host.writer({"A"});
        const int bnum = host.put({.server = "A"});
        host.remove_locks(semid_of(*host.bm.find_by_id(host.data_id)));
        const captured_output quiet;
        EXPECT_NO_THROW(EXPECT_FALSE(host.bm.ev_update(host.TYPE, host.data_id, bnum)) << "false is success");
        EXPECT_EQ(host.slot(1).sbfilled(), 1);
        EXPECT_EQ(host.locks_held(), "");
    });
}

TEST_P(BmCollectWithoutLocks, OfTheDataFailsToFreeADuplicate)
{
    in_own_process([](event_host& host) {
        host.used_slot();
        host.slot(1).add_entry("A", host.data_id, host.put({}));
        const int bnum = host.put({.server = "A"});
        host.remove_locks(semid_of(*host.bm.find_by_id(host.data_id)));
        const std::string text =
            said([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.ev_update(host.TYPE, host.data_id, bnum, 1))); });
        const std::string last = "\nDATE ev_update(): failed to free id: " + std::to_string(host.data_id) +
                                 " bnum: " + std::to_string(bnum) + "\n";
        ASSERT_GT(text.size(), last.size());
        EXPECT_EQ(text.substr(text.size() - last.size()), last) << text;
        EXPECT_EQ(host.slot(1).sbfilled(), 1);
    });
}

} // namespace
