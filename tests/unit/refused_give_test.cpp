// A semaphore operation that is refused once: nothing that was on its way is lost with it.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "event_host.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class RefusedGive : public EventHost {
  protected:
    /// Lets the `nth` operation of `action` be refused; it must say so by a SysError.
    template <class Action> static void refuse(int nth, Action action)
    {
        const captured_output quiet;
        const fault refused = fault::fails("semop", ENOMEM, nth);
        EXPECT_THROW(action(), SysError);
        EXPECT_EQ(refused.fired(), 1);
    }
    std::string balance_of_data()
    {
        const C_shm_buffer& data = *bm.find_by_id(data_id);
        return data.getStat("freebuf") + " queued, " + std::to_string(semaphore_value(semid_of(data), 1)) + " counted";
    }
    const std::string all_back = std::to_string(BLOCKS) + " queued, " + std::to_string(BLOCKS) + " counted";
};
IN_BOTH_GENERATIONS(RefusedGive);

TEST_P(RefusedGive, OfTheGateKeepsItNot)
{
    ASSERT_TRUE(events_part.bgate(true));
    refuse(1, [this] { events_part.bgate(false); });
    EXPECT_EQ(semaphore_value(events_semid, 0), 1);
}

TEST_P(RefusedGive, OfASlotsLockKeepsItNot)
{
    ASSERT_TRUE(events_part.bctrl(3, true));
    refuse(1, [this] { events_part.bctrl(3, false); });
    EXPECT_EQ(locks_held(), "");
}

TEST_P(RefusedGive, InTheMiddleOfATakeGivesBackWhatWasTaken)
{
    C_shm_buffer& data = *bm.find_by_id(data_id);
    for (const int nth : {2, 3}) { // the gate's take, with the count down already; and its give
        refuse(nth, [&] { data.get_buffer(BM_NO_WAIT, true); });
        EXPECT_EQ(balance_of_data(), all_back) << nth;
    }
    EXPECT_EQ(locks_held(), "");
}

TEST_P(RefusedGive, BehindAReturnLeavesTheBufferCounted)
{
    C_shm_buffer& data = *bm.find_by_id(data_id);
    const int bnum = put({});
    refuse(2, [&] { data.return_buffer(bnum); });
    EXPECT_EQ(balance_of_data(), all_back);
}

TEST_P(RefusedGive, OfACountIsTriedOnceMore)
{
    C_shm_buffer& data = *bm.find_by_id(data_id);
    const int bnum = put({});
    const fault refused = fault::fails("semop", ENOMEM, 3);
    EXPECT_FALSE(data.return_buffer(bnum)) << "false is success";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_EQ(balance_of_data(), all_back);
}

// Lock 0, then the block's way back (gate twice, count), then the slot's.
TEST_P(RefusedGive, WhileAnEventIsFreedLeavesTheRestToTheNextOne)
{
    for (const int nth : {2, 5}) {
        const int n = used_slot();
        slot(n).add_entry("A", data_id, put({.server = "A"}));
        refuse(nth, [&] { bm.free_ev_slot(n); });
        EXPECT_EQ(control(n).status(), EVT_C_USED) << nth;
        EXPECT_EQ(locks_held(), "");
        EXPECT_FALSE(bm.free_ev_slot(n)) << "the next one finishes it";
        EXPECT_TRUE(slot_is_free(n)) << nth;
        EXPECT_EQ(balance_of_data(), all_back) << nth;
    }
}

} // namespace
