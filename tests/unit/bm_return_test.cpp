// The way back of a whole event: its slot and all its buffers.
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bm_core.h"
#include "event_host.h"
#include "eventually.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class FreeEventSlot : public EventHost {
  protected:
    /// An event with one block per name.
    int event_of(const std::vector<std::string>& names)
    {
        const int n = used_slot();
        slot(n).put(&slot_layout::nsblocks, static_cast<int>(names.size()));
        for (const std::string& name : names) slot(n).add_entry(name, data_id, put({.server = name}));
        return n;
    }
    bool is_free(int n) const { return control(n).status() == EVT_C_FREE && slot_is_free(n); }
    int blocks_out() { return BLOCKS - std::stoi(bm.find_by_id(data_id)->getStat("freebuf")); }
    std::string free_slots() const { return events_part.getStat("freebuf"); }
};
IN_BOTH_GENERATIONS(FreeEventSlot);

TEST_P(FreeEventSlot, ReturnsSlotAndBuffers)
{
    const int n = event_of({"A", "B", "C"});
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)) << "false is success"; }), "");
    for (int bnum = 0; bnum < 3; ++bnum) EXPECT_TRUE(block_is_free(bnum)) << bnum;
    EXPECT_TRUE(is_free(n));
    EXPECT_EQ(free_slots(), "9");
}

TEST_P(FreeEventSlot, LeavesHolesUnderTheNames)
{
    const int n = event_of({"A", "B"});
    bm.free_ev_slot(n);
    EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"A", 0, -1}, {"B", 0, -1}}));
    EXPECT_EQ(slot(n).time(&slot_layout::time), (time_stamp{1000, 500})) << "the head stays as it was";
}

TEST_P(FreeEventSlot, KeepsKeyAndTypeOfTheControlEntry)
{
    const int n = event_of({});
    bm.free_ev_slot(n);
    EXPECT_EQ(control(n).key(), (time_stamp{1000, 500}));
    EXPECT_EQ(control(n).evtype(), TYPE);
    EXPECT_EQ(control(n).eventid(), 7);
}

TEST_P(FreeEventSlot, FreeOneIsLeftAlone)
{
    const int n = event_of({"A"});
    ASSERT_FALSE(bm.free_ev_slot(n));
    slot(n).put(&slot_layout::sbfilled, 0);
    slot(n).add_entry("A", data_id, put({})); // its next owner's, should anybody ask twice
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "");
    EXPECT_FALSE(block_is_free(std::get<2>(slot(n).entries().at(0))));
    EXPECT_EQ(free_slots(), "9");
}

TEST_P(FreeEventSlot, AnyOtherStatusThanFreeIsFreed)
{
    for (const int status : {1, 2, 3, -1}) {
        const int n = event_of({"A"});
        control(n).put_status(status);
        EXPECT_FALSE(bm.free_ev_slot(n));
        EXPECT_TRUE(is_free(n)) << status;
    }
}

TEST_P(FreeEventSlot, SlotThatDoesNotExist)
{
    for (const int n : {0, -1, 10, 11, INT_MAX, INT_MIN}) {
        EXPECT_EQ(said([&] { EXPECT_TRUE(bm.free_ev_slot(n)) << "true is failure"; }),
                  "DATE free_ev_slot(): Failed to find event slot: " + std::to_string(n) + "\n");
    }
}

TEST_P(FreeEventSlot, BeforeInit)
{
    BM detached;
    EXPECT_EQ(said([&] { EXPECT_TRUE(detached.free_ev_slot(1)); }),
              "DATE free_ev_slot(): Failed to find event slot: 1\n");
}

TEST_P(FreeEventSlot, HolesAreSkipped)
{
    const int n = event_of({"A"});
    const int kept = put({});
    slot(n).add_entry("NO SEGMENT", 0, kept);
    slot(n).add_entry("NO NUMBER", data_id, -1);
    slot(n).add_entry("ALSO NONE", data_id, -7);
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "");
    EXPECT_EQ(slot(n).entries(),
              (std::vector<seen_entry>{
                  {"A", 0, -1}, {"NO SEGMENT", 0, kept}, {"NO NUMBER", data_id, -1}, {"ALSO NONE", data_id, -7}}))
        << "as they were";
    EXPECT_FALSE(block_is_free(kept));
}

TEST_P(FreeEventSlot, BlockThatIsFreeAlreadyIsReportedAndTheOthersGoBack)
{
    const int n = event_of({"A", "B", "C"});
    ASSERT_FALSE(bm.return_buffer_in_pool(1, data_id));
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.free_ev_slot(n)) << "one could not be returned"; }),
              "DATE free_ev_slot(): failed to free id: " + std::to_string(data_id) + " bnum: 1\n");
    EXPECT_TRUE(block_is_free(0));
    EXPECT_TRUE(block_is_free(2));
    EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"A", 0, -1}, {"B", 0, -1}, {"C", 0, -1}}));
    EXPECT_TRUE(is_free(n));
    EXPECT_EQ(bm.find_by_id(data_id)->getStat("freebuf"), "64");
}

TEST_P(FreeEventSlot, EntryThatNamesAControlRecordDoesNotFreeIt)
{
    for (const int id : {shmid_of(events_part), shmid_of(clients_part)}) {
        const int n = event_of({"A"});
        slot(n).add_entry("CONTROL RECORD", id, 0);
        const std::string before = clients_part.getStat("freebuf");
        EXPECT_EQ(said([&] { EXPECT_TRUE(bm.free_ev_slot(n)) << "one could not be returned"; }),
                  "DATE free_ev_slot(): failed to free id: " + std::to_string(id) + " bnum: 0\n");
        EXPECT_EQ(slot(n).entries(), (std::vector<seen_entry>{{"A", 0, -1}, {"CONTROL RECORD", 0, -1}}));
        EXPECT_TRUE(is_free(n));
        EXPECT_EQ(free_slots(), "9");
        EXPECT_EQ(clients_part.getStat("freebuf"), before);
    }
}

TEST_P(FreeEventSlot, BlockWithoutAnAddressIsForgotten)
{
    const int n = event_of({"A"});
    slot(n).add_entry("NO SUCH SEGMENT", 123456789, 0);
    slot(n).add_entry("NO SUCH BUFFER", data_id, BLOCKS);
    slot(n).add_entry("NEITHER", -5, INT_MAX);
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "SYSERROR: 22\nSYSERROR: 22\n")
        << "two segments that cannot be attached";
    EXPECT_EQ(slot(n).entries(),
              (std::vector<seen_entry>{
                  {"A", 0, -1}, {"NO SUCH SEGMENT", 0, -1}, {"NO SUCH BUFFER", 0, -1}, {"NEITHER", 0, -1}}));
    EXPECT_TRUE(is_free(n));
}

TEST_P(FreeEventSlot, PartitionThatWasNotInThePoolIsAttached)
{
    BM other;
    join(other);
    const int n = event_of({"A"});
    EXPECT_EQ(other.find_by_id(data_id), nullptr);
    EXPECT_FALSE(other.free_ev_slot(n));
    EXPECT_TRUE(block_is_free(0));
    EXPECT_NE(other.find_by_id(data_id), nullptr);
}

TEST_P(FreeEventSlot, SlotThatIsInTheQueueAlready)
{
    const int n = event_of({"A"});
    ASSERT_FALSE(events_part.return_buffer(n));
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.free_ev_slot(n)); }),
              "DATE free_ev_slot(): failed to free event slot: " + std::to_string(n) + " \n");
    EXPECT_TRUE(block_is_free(0));
    EXPECT_EQ(control(n).status(), EVT_C_FREE);
    EXPECT_EQ(free_slots(), "9");
}

TEST_P(FreeEventSlot, EntriesBeyondTheSlotAreNotFollowed)
{
    for (const int filled : {INT_MAX, 1 << 20, 63}) {
        const int n = event_of({"A"});
        slot(n).put(&slot_layout::sbfilled, filled);
        EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "");
        EXPECT_EQ(blocks_out(), 0);
        EXPECT_TRUE(is_free(n));
    }
    const int n = event_of({"A"});
    slot(n).put(&slot_layout::sbfilled, -1);
    EXPECT_FALSE(bm.free_ev_slot(n));
    EXPECT_EQ(blocks_out(), 1) << "a head without entries has nothing to give back";
}

// ---- the order ---------------------------------------------------------------------------------------------------------

TEST_P(FreeEventSlot, EntryIsAHoleBeforeItsBufferGoesBack)
{
    const int n = event_of({"A"});
    const C_shm_buffer& data = *bm.find_by_id(data_id);
    const int data_semid = semid_of(data);
    ASSERT_TRUE(data.bgate(true));
    std::thread freeing([&] { EXPECT_FALSE(bm.free_ev_slot(n)); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(data_semid, 0) == 1; }));
    EXPECT_EQ(zrk4::impl::word_unlocked(slot(n).entry_at(0) + 260), -1) << "whoever comes now does not return it again";
    EXPECT_TRUE(event_lock_is_held(0));
    ASSERT_TRUE(data.bgate(false));
    freeing.join();
    EXPECT_TRUE(is_free(n));
}

TEST_P(FreeEventSlot, WaitsForTheTableAndNotForTheSlot)
{
    const int n = event_of({"A"});
    ASSERT_TRUE(events_part.ctrl(0, true));
    ASSERT_TRUE(events_part.ctrl(n, true));
    std::thread freeing([&] { EXPECT_FALSE(bm.free_ev_slot(n)); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; }));
    ASSERT_TRUE(events_part.ctrl(0, false));
    freeing.join();
    ASSERT_TRUE(events_part.ctrl(n, false));
    EXPECT_TRUE(is_free(n));
}

TEST_P(FreeEventSlot, SignalsDoNotKeepItFromTheLock)
{
    const int n = event_of({"A"});
    const fault interrupted = fault::fails("semop", EINTR, 1, 3);
    EXPECT_FALSE(bm.free_ev_slot(n));
    EXPECT_EQ(interrupted.fired(), 3);
    EXPECT_TRUE(is_free(n));
}

// Of two that look at a finished event, the second comes too late: by then another one may be in the slot.
TEST_P(FreeEventSlot, LookAtAFinishedEventFreesNoOther)
{
    const int done = client({});
    const int n = used_slot();
    slot(n).add_client(done, DONE);
    slot(n).put_time(&slot_layout::start, {1000, 1});
    for (const auto& move :
         std::vector<std::function<void(slot_bytes)>>{[](slot_bytes s) {
                                                          s.put_time(&slot_layout::time, {1000, 501});
                                                      },
                                                      [](slot_bytes s) {
                                                          s.put_time(&slot_layout::time, {1001, 501});
                                                      },
                                                      [](slot_bytes s) {
                                                          s.put_time(&slot_layout::start, {1000, 2});
                                                      },
                                                      [](slot_bytes s) {
                                                          s.put_time(&slot_layout::start, {1001, 2});
                                                      },
                                                      [](slot_bytes s) { s.put(&slot_layout::pid, 4711); }}) {
        ASSERT_TRUE(events_part.ctrl(0, true));
        std::thread looking([&] { EXPECT_EQ(said([&] { EXPECT_EQ(bm.cl_notify(n), 0); }), ""); });
        EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; })) << "it has seen all done";
        EXPECT_FALSE(event_lock_is_held(n));
        move(slot(n));
        ASSERT_TRUE(events_part.ctrl(0, false));
        looking.join();
        EXPECT_EQ(control(n).status(), EVT_C_USED);
        EXPECT_FALSE(slot_is_free(n));
    }
}

TEST_P(FreeEventSlot, LookAtAFinishedEventFreesItWhateverItsIdIsByNow)
{
    const int n = used_slot();
    slot(n).add_client(client({}), DONE);
    ASSERT_TRUE(events_part.ctrl(0, true));
    std::thread looking([&] { EXPECT_EQ(bm.cl_notify(n), 0); });
    EXPECT_TRUE(eventually([&] { return semaphore_waiters(events_semid, 4) == 1; }));
    slot(n).put_wide(&slot_layout::eventid, 99);
    slot(n).put_time(&slot_layout::lupdate, {5, 5});
    slot(n).put(&slot_layout::status, 5);
    ASSERT_TRUE(events_part.ctrl(0, false));
    looking.join();
    EXPECT_TRUE(is_free(n));
}

// ---- the report that the monitor has made -------------------------------------------------------------------------------

class FreeEventSlotAloud : public FreeEventSlot {
  protected:
    FreeEventSlotAloud() { zrk4::impl::free_flag = 1; }
    ~FreeEventSlotAloud() override { zrk4::impl::free_flag = 0; }
    std::string id() const { return std::to_string(data_id); }
};
IN_BOTH_GENERATIONS(FreeEventSlotAloud);

TEST_P(FreeEventSlotAloud, EveryBlockIsReported)
{
    const int n = used_slot();
    slot(n).put(&slot_layout::nsblocks, 5);
    slot(n).add_entry("HOLE", 0, -1);
    slot(n).add_entry("A", data_id,
                      put({.server = "A",
                           .time = {1000, 500},
                           .mpulse = 7,
                           .ltotal = 400,
                           .tmask = 0xAB,
                           .status = -3,
                           .nchan = 12}));
    EXPECT_EQ(said([&] { bm.free_ev_slot(n); }), "DATE CLEANING[1]  1000:500_7  SHMID: " + id() +
                                                     "  SLOT: 0 filled:ttoal 2:5\n"
                                                     "DATE ltotal: 400 server: A  mask: 0xAB status: -3  nchan: 12\n");
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(FreeEventSlotAloud, WithTheWidestNumbers)
{
    const int n = used_slot();
    const int64_t pulse = wide() ? -9007199254740993 : -3;
    const int64_t length = wide() ? 9007199254740993 : -4;
    slot(n).add_entry("A", data_id,
                      put({.server = std::string(255, 'x'),
                           .time = {4294967295U, 4294967294U},
                           .mpulse = pulse,
                           .ltotal = length,
                           .tmask = -1,
                           .status = 1,
                           .nchan = -1}));
    EXPECT_EQ(said([&] { bm.free_ev_slot(n); }),
              "DATE CLEANING[0]  -1:-2_" + std::to_string(pulse) + "  SHMID: " + id() +
                  "  SLOT: 0 filled:ttoal 1:0\nDATE ltotal: " + std::to_string(length) +
                  " server: " + std::string(255, 'x') + "  mask: 0xFFFFFFFF status: 1  nchan: -1\n");
}

TEST_P(FreeEventSlotAloud, BlockOfTheOtherFormWithoutDetails)
{
    const int n = used_slot();
    const generation other = wide() ? generation::of_2010 : generation::of_2024;
    slot(n).add_entry("A", data_id, put({}, other));
    slot(n).add_entry("B", data_id, put({.server = "B"}));
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }),
              "DATE CLEANING[0]  corrupted data(no details)\n"
              "DATE CLEANING[1]  1000:500_7  SHMID: " +
                  id() +
                  "  SLOT: 1 filled:ttoal 2:0\n"
                  "DATE ltotal: 400 server: B  mask: 0x1 status: 0  nchan: 0\n");
    EXPECT_TRUE(block_is_free(0));
}

TEST_P(FreeEventSlotAloud, BlockWithoutAnAddressHasNothingToReport)
{
    const int n = used_slot();
    slot(n).add_entry("A", 123456789, 3);
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.free_ev_slot(n)); }), "SYSERROR: 22\n") << "the failed attachment alone";
}

TEST_P(FreeEventSlotAloud, ReportStandsBeforeTheFailure)
{
    const int n = event_of({"A"});
    ASSERT_FALSE(bm.return_buffer_in_pool(0, data_id));
    EXPECT_EQ(said([&] { EXPECT_TRUE(bm.free_ev_slot(n)); }),
              "DATE CLEANING[0]  1000:500_7  SHMID: " + id() +
                  "  SLOT: 0 filled:ttoal 1:1\n"
                  "DATE ltotal: 400 server: A  mask: 0x1 status: 0  nchan: 0\n"
                  "DATE free_ev_slot(): failed to free id: " +
                  id() + " bnum: 0\n");
}

// ---- partitions that are gone --------------------------------------------------------------------------------------------

class FreeEventSlotAlone : public BothGenerations {};
IN_BOTH_GENERATIONS(FreeEventSlotAlone);

TEST_P(FreeEventSlotAlone, RemovedLocksReachTheCaller)
{
    in_own_process([](event_host& host) {
        const int n = host.used_slot();
        host.remove_locks(host.events_semid);
        const captured_output quiet;
        EXPECT_THROW(host.bm.free_ev_slot(n), SysError);
        clear_ipc_namespace();
    });
}

TEST_P(FreeEventSlotAlone, RemovedDataPartitionReachesTheCallerAndTheTableIsGivenBack)
{
    in_own_process([](event_host& host) {
        const int n = host.used_slot();
        for (const char* name : {"A", "B"}) host.slot(n).add_entry(name, host.data_id, host.put({}));
        host.remove_locks(semid_of(*host.bm.find_by_id(host.data_id)));
        const captured_output quiet;
        EXPECT_THROW(host.bm.free_ev_slot(n), SysError);
        EXPECT_EQ(host.locks_held(), "");
        EXPECT_THROW(host.bm.free_ev_slot(n), SysError) << "the second block; the first one is a hole";
        EXPECT_FALSE(host.bm.free_ev_slot(n));
        EXPECT_TRUE(host.slot_is_free(n));
        clear_ipc_namespace();
    });
}

} // namespace
