// Client slots: given back by their owner, freed by others, counted.
#include <cerrno>
#include <climits>
#include <cstring>
#include <list>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bm_client_slots.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

class BmUnsubscribe : public client_slots {};
class BmFreeSlot : public client_slots {};
class BmSubscribed : public client_slots {};

// ---- unsubscribing

TEST_F(BmUnsubscribe, GivesTheSlotBackEmpty)
{
    const int n = subscribed(bm, CLI_T_WRITER, TYPE, {"ADC_1", "ADC_2", "ADC_3"});
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), n);
    EXPECT_TRUE(slot_is_zero(n));
    EXPECT_TRUE(is_queued(n));
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1);
    EXPECT_EQ(counted(), counts{});
    EXPECT_TRUE(bm.swriter.empty());
}

TEST_F(BmUnsubscribe, WithoutASlotOfTheKindAnswersMinus1)
{
    captured_output captured;
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), -1);
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), -1);
    subscribed(bm, CLI_T_WRITER, TYPE);
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), -1) << "it is a writer's";
    EXPECT_EQ(bm.unsubscribe(ZRK4_EV_HB, CLI_T_WRITER), -1) << "it is of another type";
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_INVAL), -1);
    EXPECT_EQ(bm.unsubscribe(TYPE, static_cast<BUF_MNG_CLI_TYPE>(0)), -1);
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(32), CLI_T_WRITER), -1);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(counted(), (counts{1, 0, 1, 0, 1})) << "nothing has happened";
    seen_bm unattached;
    EXPECT_EQ(unattached.unsubscribe(TYPE, CLI_T_WRITER), -1);
}

TEST_F(BmUnsubscribe, FreesAllSlotsOfTheTypeAndAnswersTheLast)
{
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER, 6), 1);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER, 7), 2);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER, 6), 3);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER, 8), 4);
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(6), CLI_T_WRITER), 3);
    EXPECT_EQ(bm.swriter, (std::list<int>{2, 4})) << "the others stay";
    EXPECT_TRUE(is_queued(1) && is_queued(3));
    EXPECT_FALSE(is_queued(2) || is_queued(4));
    EXPECT_EQ(counted(6), (counts{2, 0, 2, 0, 0}));
    EXPECT_EQ(counted(7), (counts{2, 0, 2, 0, 1}));
}

// "Later" is by the list, whatever the numbers: slot 1 was taken again after slot 3.
TEST_F(BmUnsubscribe, AnswersTheLastOfTheListNotTheLargest)
{
    subscribed(bm, CLI_T_WRITER, 6);
    subscribed(bm, CLI_T_WRITER, 7);
    subscribed(bm, CLI_T_WRITER, 7);
    bm.unsubscribe(static_cast<ZRK4_EVTYPE>(6), CLI_T_WRITER);
    while (subscribed(bm, CLI_T_WRITER, 8) != 1) {}
    bm.swriter.remove_if([](int n) { return n > 3; });
    ASSERT_EQ(bm.swriter, (std::list<int>{2, 3, 1}));
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(7), CLI_T_WRITER), 3);
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(8), CLI_T_WRITER), 1);
}

TEST_F(BmUnsubscribe, SlotThatWasTakenAwayOnlyLeavesTheList)
{
    const long threads = threads_now();
    const int n = subscribed(bm, CLI_T_READER);
    take_away(n);
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), -1) << "nothing was freed";
    EXPECT_TRUE(bm.sreader.empty());
    EXPECT_TRUE(threads_become(threads)) << "the last reader is gone";
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1);
    EXPECT_EQ(counted(), counts{});
}

// A free slot reads type 0, which is a type.
TEST_F(BmUnsubscribe, SlotThatWasTakenAwayIsNotOneOfType0)
{
    const int n = subscribed(bm, CLI_T_WRITER, TYPE);
    take_away(n);
    subscribed(bm, CLI_T_WRITER, ZRK4_EV_HB);
    const counts before = counted(ZRK4_EV_HB);
    bm.swriter.remove_if([n](int m) { return m != n; });
    EXPECT_EQ(bm.unsubscribe(ZRK4_EV_HB, CLI_T_WRITER), -1);
    EXPECT_EQ(counted(ZRK4_EV_HB), before);
}

TEST_F(BmUnsubscribe, SlotThatSomebodyElseHasNowIsLeftAlone)
{
    const int n = subscribed(bm, CLI_T_WRITER);
    take_away(n);
    C_shm_buffer& clients = *bm.cl_buf;
    while (clients.buffer_id(clients.get_buffer(BM_NO_WAIT, true)) != n) {}
    clients.get_bufptr()[n].owner_pid = getppid();
    slot(n).head() = {getppid(), {1, 2}, 3, TYPE, CLI_T_WRITER};
    bm.clictrl->clitotal = 1;
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), -1);
    EXPECT_TRUE(bm.swriter.empty());
    EXPECT_EQ(+slot(n).head().evcnt, 3) << "as it was";
    EXPECT_FALSE(is_queued(n));
    EXPECT_EQ(+bm.clictrl->clitotal, 1);
}

// ---- freeing one slot

TEST_F(BmFreeSlot, WithoutAnAddressAnswers1AndChangesNothing)
{
    subscribed(bm, CLI_T_READER);
    int queue = 77;
    captured_output captured;
    for (const int n : {0, -1, CLIENT_BUFFERS, INT_MAX, INT_MIN}) EXPECT_EQ(bm.free_cl_slot(n, &queue), 1) << n;
    EXPECT_EQ(queue, 77);
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(counted(), (counts{1, 1, 0, 1, 0}));
    seen_bm unattached;
    EXPECT_EQ(unattached.free_cl_slot(1, nullptr), 1);
}

TEST_F(BmFreeSlot, ReadersPortIsTold)
{
    const int n = subscribed(bm, CLI_T_READER);
    const int port = bm.port;
    int queue = -1;
    EXPECT_EQ(bm.free_cl_slot(n, &queue), 0);
    EXPECT_EQ(queue, port);
    EXPECT_EQ(counted(), counts{});
    EXPECT_TRUE(slot_is_zero(n));
    EXPECT_TRUE(is_queued(n));
}

TEST_F(BmFreeSlot, WritersSlotHasNoPortToTell)
{
    const int n = subscribed(bm, CLI_T_WRITER);
    int queue = -1;
    EXPECT_EQ(bm.free_cl_slot(n, &queue), 0);
    EXPECT_EQ(queue, -1);
}

TEST_F(BmFreeSlot, CountersNeverFallBelow0)
{
    for (const auto cltype : {CLI_T_READER, CLI_T_WRITER}) {
        const int n = subscribed(bm, cltype);
        zrk4_client_ctrl_block& c = *bm.clictrl;
        c.clitotal = c.clireader = c.cliwriter = c.evtyper[TYPE] = c.evtypew[TYPE] = 0;
        EXPECT_EQ(bm.free_cl_slot(n, nullptr), 0);
        EXPECT_EQ(counted(), counts{});
        c.clitotal = c.clireader = c.cliwriter = c.evtyper[TYPE] = c.evtypew[TYPE] = -5;
        const int m = bm.cl_buf.load()->buffer_id(bm.cl_buf.load()->get_buffer(BM_NO_WAIT, true));
        slot(m).head() = {getpid(), {1, 2}, 3, TYPE, cltype};
        EXPECT_EQ(bm.free_cl_slot(m, nullptr), 0);
        EXPECT_EQ(counted(), (counts{-5, -5, -5, -5, -5})) << "not below, nor up to it";
        c.clitotal = c.clireader = c.cliwriter = c.evtyper[TYPE] = c.evtypew[TYPE] = 0;
    }
}

TEST_F(BmFreeSlot, OnlyTheTotalCountsASlotOfNoKind)
{
    subscribed(bm, CLI_T_READER);
    subscribed(bm, CLI_T_WRITER);
    for (const int cltype : {0, 3, -1}) {
        const int n = bm.cl_buf.load()->buffer_id(bm.cl_buf.load()->get_buffer(BM_NO_WAIT, true));
        slot(n).head() = {getpid(), {1, 2}, 3, TYPE, static_cast<BUF_MNG_CLI_TYPE>(cltype)};
        bm.clictrl->clitotal = 3;
        EXPECT_EQ(bm.free_cl_slot(n, nullptr), 0);
        EXPECT_EQ(counted(), (counts{2, 1, 1, 1, 1}));
        EXPECT_TRUE(slot_is_zero(n));
    }
}

// Already free: the total loses one all the same, the queue is not touched.
TEST_F(BmFreeSlot, FreeSlotCountsOnceMore)
{
    subscribed(bm, CLI_T_WRITER);
    EXPECT_EQ(bm.free_cl_slot(5, nullptr), 0);
    EXPECT_EQ(counted(), (counts{0, 0, 1, 0, 1}));
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 2);
}

TEST_F(BmFreeSlot, TypeThatIsNoneIsNoIndex)
{
    for (const int type : {-1, 32, INT_MAX, INT_MIN}) {
        for (const auto cltype : {CLI_T_READER, CLI_T_WRITER}) {
            const int n = subscribed(bm, cltype);
            const std::string before(reinterpret_cast<char*>(bm.clictrl) + 16, 256);
            std::memcpy(address(n) + 16, &type, sizeof type);
            EXPECT_EQ(bm.free_cl_slot(n, nullptr), 0);
            EXPECT_EQ(std::string(reinterpret_cast<char*>(bm.clictrl) + 16, 256), before);
            EXPECT_EQ(bm.clictrl->clireader + bm.clictrl->cliwriter, 0);
        }
    }
}

TEST_F(BmFreeSlot, NothingOfALongSlotStays)
{
    const int n = subscribed(bm, CLI_T_WRITER);
    std::memset(address(n) + 44, 'z', CLIENT_LENGTH - 44);
    char* next = address(n + 1);
    *next = 'n';
    EXPECT_EQ(bm.free_cl_slot(n, nullptr), 0);
    EXPECT_TRUE(slot_is_zero(n));
    EXPECT_EQ(*next, 'n') << "of its neighbour nothing is taken";
}

// ---- questions

TEST_F(BmSubscribed, StatusWordOfTheDescriptorIsAnsweredAsItStands)
{
    const int n = subscribed(bm, CLI_T_WRITER);
    EXPECT_EQ(bm.if_cl_slot_free(n), 0);
    EXPECT_EQ(bm.if_cl_slot_free(n + 1), 1);
    bm.cl_buf.load()->get_bufptr()[n].status = -2;
    EXPECT_EQ(bm.if_cl_slot_free(n), -2);
    bm.cl_buf.load()->get_bufptr()[n].status = 0;
    EXPECT_EQ(semops_of([&] { bm.if_cl_slot_free(n); }), 0) << "no lock";
    seen_bm unattached;
    EXPECT_EQ(unattached.if_cl_slot_free(n), 1) << "without partitions nobody holds one";
}

TEST_F(BmSubscribed, BeforeInitThereIsNobody)
{
    seen_bm unattached;
    int writers = 5;
    int readers = 6;
    unattached.cl_subscribed(&writers, &readers);
    EXPECT_EQ(writers, 0);
    EXPECT_EQ(readers, 0);
    unattached.cl_subscribed(nullptr, nullptr);
}

TEST_F(BmSubscribed, WritersComeFirst)
{
    subscribed(bm, CLI_T_READER, 1);
    subscribed(bm, CLI_T_WRITER, 2);
    subscribed(bm, CLI_T_WRITER, 3);
    int writers = -1;
    int readers = -1;
    bm.cl_subscribed(&writers, &readers);
    EXPECT_EQ(writers, 2);
    EXPECT_EQ(readers, 1);
}

TEST_F(BmSubscribed, EitherCountMayBeLeftOut)
{
    subscribed(bm, CLI_T_WRITER);
    int writers = -1;
    int readers = -1;
    bm.cl_subscribed(&writers, nullptr);
    EXPECT_EQ(writers, 1);
    bm.cl_subscribed(nullptr, &readers);
    EXPECT_EQ(readers, 0);
    bm.cl_subscribed(nullptr, nullptr);
}

TEST_F(BmSubscribed, AsksUnderTheControlLock)
{
    int writers = -1;
    int held = -1;
    {
        const fault look = fault::preceded(
            "semop", [&] { held = semaphore_value(semid_of(*bm.cl_buf), 4); }, 2);
        bm.cl_subscribed(&writers, nullptr);
    }
    EXPECT_EQ(held, 0) << "when it is given back, it was taken";
}

// ---- signals

TEST_F(BmUnsubscribe, TryThatASignalEndsIsRepeated)
{
    subscribed(bm, CLI_T_WRITER);
    const long calls = semops_of([&] { bm.unsubscribe(TYPE, CLI_T_WRITER); });
    ASSERT_EQ(calls, 7);
    for (const int take : {1, 2, 3}) {
        SCOPED_TRACE(take);
        const int n = subscribed(bm, CLI_T_WRITER);
        const fault interrupted = fault::fails("semop", EINTR, take, 3);
        EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), n);
        EXPECT_EQ(interrupted.fired(), 3);
    }
    EXPECT_EQ(counted(), counts{});
}

} // namespace
