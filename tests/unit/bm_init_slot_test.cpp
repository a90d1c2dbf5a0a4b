// A new event: its head, and the clients that take part.
#include <climits>
#include <stdexcept>

#include "event_host.h"

using namespace zrk4::test;

namespace {

constexpr uint64_t PATTERN = 0xFF77FF77FF77FF77;

class BmInitSlot : public EventHost {
  protected:
    bystanders others;
};
IN_BOTH_GENERATIONS(BmInitSlot);

// ---- refusals

TEST_P(BmInitSlot, RefusesInvalidParameters)
{
    writer({});
    char* at = block(put({.time = {1000, 500}}, generation::of_2010));
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, 1, nullptr)) << "true is failure";
                  EXPECT_TRUE(bm.init_ev_slot(static_cast<ZRK4_EVTYPE>(32), 1, at));
                  EXPECT_TRUE(bm.init_ev_slot(static_cast<ZRK4_EVTYPE>(-1), 1, at));
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, -1, at));
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, 0, at)) << "buffer 0 is the control table";
              }),
              "DATE init_ev_slot(): invalid parameter(s) evtype:1 bnum:1 evhd:0\n"
              "DATE init_ev_slot(): invalid parameter(s) evtype:32 bnum:1 evhd:1000\n"
              "DATE init_ev_slot(): invalid parameter(s) evtype:-1 bnum:1 evhd:1000\n"
              "DATE init_ev_slot(): invalid parameter(s) evtype:1 bnum:-1 evhd:1000\n"
              "DATE init_ev_slot(): invalid parameter(s) evtype:1 bnum:0 evhd:1000\n");
}

TEST_P(BmInitSlot, PrintsTheFirstWordOfARefusedBlockWithoutSign)
{
    char* at = block(put({}, generation::of_2024));
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.init_ev_slot(TYPE, -1, at)); }),
              "DATE init_ev_slot(): invalid parameter(s) evtype:1 bnum:-1 evhd:" + std::to_string(0xFBABBAFFU) + "\n");
}

TEST_P(BmInitSlot, RefusesATypeThatThisObjectDoesNotWrite)
{
    writer({}, ZRK4_EV_IMAGE);
    client({.cltype = CLI_T_WRITER});
    char* at = block(put({}));
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.init_ev_slot(TYPE, 1, at)); }),
              "DATE init_ev_slot(): no write registration found for event type: 1\n");
}

TEST_P(BmInitSlot, RefusesASlotWithoutAddress)
{
    writer({});
    char* at = block(put({}));
    const int count = events_part.getBufferCount();
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, count, at));
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, INT_MAX, at));
              }),
              "DATE init_ev_slot(): failed to get the buffer address for event slot: " + std::to_string(count) + "\n" +
                  "DATE init_ev_slot(): failed to get the buffer address for event slot: 2147483647\n");
}

TEST_P(BmInitSlot, FailsSilentlyWithoutAReaderAndLeavesTheSlotAlone)
{
    writer({});
    char* at = block(put({}));
    const int n = taken_slot();
    slot(n).fill('x');
    EXPECT_EQ(said([&] {
                  bm.get_key_f.erase(TYPE);
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, n, at));
                  bm.get_key_f[TYPE] = get_key_known;
                  bm.get_trg_f[TYPE] = nullptr;
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, n, at));
                  bm.get_trg_f[TYPE] = get_trg_known;
                  bm.get_sts_f.erase(TYPE);
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, n, at));
                  bm.get_sts_f[TYPE] = get_sts_known;
                  bm.get_evid_f[TYPE] = nullptr;
                  EXPECT_TRUE(bm.init_ev_slot(TYPE, n, at));
              }),
              "");
    EXPECT_EQ(slot(n).byte(0), 'x');
    EXPECT_EQ(slot(n).byte(slot(n).length() - 1), 'x');
}

// ---- the head

TEST_P(BmInitSlot, WritesTheHeadOfABlockOfEitherGeneration)
{
    writer({"A", "B"});
    for (const generation g : {generation::of_2010, generation::of_2024}) {
        const int64_t id = g == generation::of_2010 ? -6 : 0x1'8000'0005;
        time_stamp before{};
        time_stamp after{};
        const int n = taken_slot();
        char* at = block(put({.time = {1000, 500}, .mpulse = id, .tmask = 0x55, .status = -9}, g));
        bm.get_cur_time(&before);
        EXPECT_EQ(said([&] { EXPECT_FALSE(bm.init_ev_slot(TYPE, n, at)); }), "");
        bm.get_cur_time(&after);
        const auto seen = slot(n);
        EXPECT_EQ(seen.first_word() == PATTERN, wide());
        EXPECT_EQ(seen.time(&slot_layout::time), (time_stamp{1000, 500}));
        EXPECT_EQ(seen.eventid(), wide() ? id : static_cast<int32_t>(id)) << "cut to the width of the field";
        EXPECT_EQ(seen.word(&slot_layout::evtype), TYPE);
        EXPECT_EQ(seen.word(&slot_layout::tmask), 0x55);
        EXPECT_EQ(seen.word(&slot_layout::status), -9);
        time_stamp start = seen.time(&slot_layout::start);
        time_stamp no_time{0, 0};
        EXPECT_TRUE(bm.time_expired(&start, &before, &no_time)) << "the slot was taken after that";
        EXPECT_TRUE(bm.time_expired(&after, &start, &no_time));
        EXPECT_EQ(seen.word(&slot_layout::pid), getpid());
        EXPECT_EQ(seen.time(&slot_layout::lupdate), (time_stamp{0, 0}));
        EXPECT_EQ(seen.evsize(), 0);
        EXPECT_EQ(seen.nsblocks(), 2);
        EXPECT_EQ(seen.sbfilled(), 0);
        EXPECT_EQ(seen.nclients(), 1);
        EXPECT_EQ(seen.first_dirty(seen.used()), seen.length()) << "zero behind what was written";
    }
}

TEST_P(BmInitSlot, NamesTheProcessOfTheObjectNotOfTheCaller)
{
    writer({});
    const int n = taken_slot();
    char* at = block(put({}));
    child forked([&] { EXPECT_FALSE(bm.init_ev_slot(TYPE, n, at)); });
    EXPECT_EQ(forked.wait(), 0);
    EXPECT_EQ(slot(n).word(&slot_layout::pid), getpid());
}

TEST_P(BmInitSlot, WarnsOfABlockWithoutTime)
{
    writer({});
    EXPECT_EQ(said([&] {
                  init_slot({.time = {0, 123}, .mpulse = 0});
              }),
              "DATE !!!!!!!! init_ev_slot(): time stamp is: 0:123\n");
    EXPECT_EQ(said([&] { init_slot({.time = {0, 0}}); }), "DATE !!!!!!!! init_ev_slot(): time stamp is: 0:0\n");
}

TEST_P(BmInitSlot, WarnsOfABlockWithoutIdWhereIdsCount)
{
    writer({});
    bm.set_smode(BM_SYNCH_EVID);
    EXPECT_EQ(said([&] { init_slot({.mpulse = 0}); }), "DATE !!!!!!!! init_ev_slot(): eventId: 0\n");
    EXPECT_EQ(said([&] {
                  init_slot({.time = {0, 9}, .mpulse = 0});
              }),
              "DATE !!!!!!!! init_ev_slot(): time stamp is: 0:9\nDATE !!!!!!!! init_ev_slot(): eventId: 0\n");
    EXPECT_EQ(said([&] { init_slot({.mpulse = 1}); }), "");
}

// ---- writers

TEST_P(BmInitSlot, ExpectsTheBlocksOfEveryWriterOfTheType)
{
    const pid_t other = others.one_more();
    const int theirs = client({.cltype = CLI_T_WRITER, .names = {"C"}, .pid = other});
    const int ours = writer({"A", "B"});
    client({.cltype = CLI_T_WRITER, .names = {"X"}, .pid = other, .evtype = TYPE + 1});
    const int none = client({.cltype = CLI_T_WRITER, .pid = other});
    const auto seen = slot(init_slot());
    EXPECT_EQ(seen.clients(), (std::vector<seen_client>{{theirs, WAIT}, {ours, PROC}, {none, WAIT}}))
        << "ascending; our own is at work already";
    EXPECT_EQ(seen.nsblocks(), 3);
    EXPECT_EQ(seen.sbfilled(), 0);
}

TEST_P(BmInitSlot, TakesEveryWriterOfItsPidForItsOwn)
{
    const int first = writer({"A"});
    const int second = client({.cltype = CLI_T_WRITER, .names = {"B"}});
    EXPECT_EQ(slot(init_slot()).clients(), (std::vector<seen_client>{{first, PROC}, {second, PROC}}));
}

TEST_P(BmInitSlot, PassesOverFreeSlotsWhateverTheyHold)
{
    writer({"A"});
    const int gone = client({.cltype = CLI_T_WRITER, .names = {"B"}});
    clients_part.return_buffer(gone);
    const int invalid = client({.cltype = CLI_T_INVAL});
    EXPECT_NE(gone, invalid);
    const auto seen = slot(init_slot());
    EXPECT_EQ(seen.nclients(), 1) << "neither a free slot nor one without a role";
    EXPECT_EQ(seen.nsblocks(), 1);
}

TEST_P(BmInitSlot, AddsStoredCountsWithoutOverflow)
{
    writer({});
    for (int i = 0; i < 2; ++i) store<int32_t>(client_at(client({.cltype = CLI_T_WRITER})) + 40, INT_MAX);
    EXPECT_EQ(slot(init_slot()).nsblocks(), -2) << "wraps in 32 bits";
}

// ---- readers

TEST_P(BmInitSlot, AdmitsAReaderWhoseTriggerMaskMeetsTheBlock)
{
    const int writing = writer({"A"});
    const int hit = client({.ratio = {1000, 0}, .tmask = 0x6, .atime = {4000000000, 0}});
    client({.pid = others.one_more(), .ratio = {1000, 0}, .tmask = 0x8, .atime = {4000000000, 0}});
    const auto seen = slot(init_slot({.tmask = 0x4}));
    EXPECT_EQ(seen.clients(), (std::vector<seen_client>{{writing, PROC}, {hit, WAIT}}));
}

TEST_P(BmInitSlot, AdmitsAReaderWithoutATimeRatio)
{
    writer({"A"});
    const int always = client({.ratio = {0, 0}});
    client({.ratio = {0, 1}, .atime = {4000000000, 0}});
    client({.ratio = {1, 0}, .atime = {4000000000, 0}});
    EXPECT_EQ(slot(init_slot({.tmask = 0})).clients().back(), (seen_client{always, WAIT}));
}

TEST_P(BmInitSlot, AdmitsAReaderWhoseTimeRatioHasPassed)
{
    writer({"A"});
    time_stamp now{};
    bm.get_cur_time(&now);
    const int passed = client({.ratio = {10, 0}, .atime = {now.timeup - 10, now.timelow}});
    const int not_yet = client({.ratio = {1000, 0}, .atime = {now.timeup - 10, now.timelow}});
    const auto seen = slot(init_slot({.tmask = 0}));
    EXPECT_EQ(seen.nclients(), 2);
    EXPECT_EQ(seen.clients().back(), (seen_client{passed, WAIT}));
    EXPECT_EQ(client_atime(not_yet), (time_stamp{now.timeup - 10, now.timelow})) << "not admitted: not renewed";
}

TEST_P(BmInitSlot, RenewsTheAccessTimeOfAnAdmittedReader)
{
    const int writing = writer({"A"});
    store(client_at(writing) + 4, time_stamp{3, 3});
    const int reading = client({.ratio = {3600, 0}, .atime = {1, 0}});
    time_stamp before{};
    bm.get_cur_time(&before);
    EXPECT_EQ(slot(init_slot({.tmask = 0})).nclients(), 2);
    time_stamp renewed = client_atime(reading);
    time_stamp no_time{0, 0};
    EXPECT_TRUE(bm.time_expired(&renewed, &before, &no_time));
    EXPECT_EQ(client_events(reading), 0) << "counted when it is done";
    EXPECT_EQ(client_atime(writing), (time_stamp{3, 3}));
    EXPECT_EQ(slot(init_slot({.tmask = 0})).nclients(), 1) << "its time ratio starts again";
}

// ---- what fails inside

TEST_P(BmInitSlot, FailsWhenAHeadReaderThrows)
{
    writer({});
    char* at = block(put({}));
    bm.set_get_sts_func(TYPE, [](char*) -> int { throw std::runtime_error("of the user's"); });
    EXPECT_NO_THROW(EXPECT_TRUE(bm.init_ev_slot(TYPE, taken_slot(), at)));
}

TEST_P(BmInitSlot, FailsWhenTheKeyReaderHasNone)
{
    writer({});
    char* at = block(put({}));
    bm.set_get_key_func(TYPE, [](char*) -> time_stamp* { return nullptr; });
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.init_ev_slot(TYPE, taken_slot(), at)); }), "");
}

class BmInitSlotWithoutLocks : public BothGenerations {};
IN_BOTH_GENERATIONS(BmInitSlotWithoutLocks);

TEST_P(BmInitSlotWithoutLocks, OfTheClientsFails)
{
    in_own_process([](event_host& host) {
        host.writer({});
        char* at = host.block(host.put({}));
        host.remove_locks(host.clients_semid);
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.init_ev_slot(host.TYPE, 1, at))); }),
                  "throw C_shm::ctrl UP sem: 4   errno: 22  semid: " + std::to_string(host.clients_semid) + "\n");
    });
}

} // namespace
