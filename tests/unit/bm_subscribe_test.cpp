// Client slots: what a subscription takes and leaves, and what it refuses.
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <list>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bm_client_slots.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

class BmSubscribe : public client_slots {};
class BmSubscribeRefusal : public client_slots {};

// ---- what a subscription leaves

TEST_F(BmSubscribe, TakesTheSlotsInTheirOrder)
{
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 1);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 2);
    EXPECT_EQ(subscribed(bm, CLI_T_READER), 3);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 4);
    EXPECT_EQ(bm.swriter, (std::list<int>{1, 2, 4}));
    EXPECT_EQ(bm.sreader, std::list<int>{3});
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1 - 4);
}

TEST_F(BmSubscribe, WritesWhoWhenAndWhat)
{
    const uint64_t before = microseconds_now();
    const int n = subscribed(bm, CLI_T_WRITER, ZRK4_EV_EVMAX - 1);
    const auto head = slot(n).head_now();
    EXPECT_EQ(+head.pid, getpid());
    const uint64_t at = head.atime.timeup * uint64_t{1000000} + head.atime.timelow;
    EXPECT_LT(+head.atime.timelow, 1000000U);
    EXPECT_GE(at, before);
    EXPECT_LE(at, microseconds_now());
    EXPECT_EQ(+head.evcnt, 0);
    EXPECT_EQ(static_cast<int>(head.evtype), 31);
    EXPECT_EQ(static_cast<int>(head.cltype), CLI_T_WRITER);
}

// The process that constructed the object, not the one that calls.
TEST_F(BmSubscribe, WritesTheProcessOfTheConstructor)
{
    bm.mpid = 4711;
    EXPECT_EQ(+slot(subscribed(bm, CLI_T_WRITER)).head_now().pid, 4711);
}

TEST_F(BmSubscribe, CopiesTheParameters)
{
    zrk4_client parameters{};
    parameters.time_ratio = {0x01020304, 0x05060708};
    parameters.pri = -3;
    parameters.tmask = 0x0F0F0F0F;
    const int reader = bm.subscribe(TYPE, CLI_T_READER, &parameters, nullptr);
    const int writer = bm.subscribe(TYPE, CLI_T_WRITER, &parameters, nullptr);
    EXPECT_EQ(std::memcmp(address(reader) + 24, &parameters, 16), 0);
    EXPECT_EQ(std::memcmp(address(writer) + 24, &parameters, 16), 0);
    EXPECT_EQ(+slot(reader).reader().client.time_ratio.timelow, 0x05060708U);
    EXPECT_EQ(+slot(writer).writer().client.time_out.timeup, 0x01020304U);
}

TEST_F(BmSubscribe, CountsReadersAndWritersByType)
{
    subscribed(bm, CLI_T_READER, 0);
    subscribed(bm, CLI_T_READER, 31);
    subscribed(bm, CLI_T_WRITER, 31);
    subscribed(bm, CLI_T_WRITER, 31);
    EXPECT_EQ(counted(0), (counts{4, 2, 2, 1, 0}));
    EXPECT_EQ(counted(31), (counts{4, 2, 2, 1, 2}));
    EXPECT_EQ(counted(1), (counts{4, 2, 2, 0, 0}));
}

TEST_F(BmSubscribe, MarksTheControlBlockUpdated)
{
    ASSERT_EQ(+bm.clictrl->status, CLI_C_INIT);
    subscribed(bm, CLI_T_WRITER);
    EXPECT_EQ(+bm.clictrl->status, CLI_C_UPD);
    bm.unsubscribe(TYPE, CLI_T_WRITER);
    EXPECT_EQ(+bm.clictrl->status, CLI_C_UPD) << "stays so";
}

TEST_F(BmSubscribe, SaysNothing)
{
    EXPECT_EQ(said([&] {
                  subscribed(bm, CLI_T_READER);
                  subscribed(bm, CLI_T_WRITER);
                  bm.unsubscribe(TYPE, CLI_T_READER);
                  bm.unsubscribe(TYPE, CLI_T_WRITER);
              }),
              "");
}

TEST_F(BmSubscribe, NamesBehindAReadersRecordAreKeptInTheirOrder)
{
    const int n = subscribed(bm, CLI_T_READER, TYPE, {"ADC_1", "", "ADC_3"});
    EXPECT_EQ(+slot(n).reader().nsblocks, 3);
    EXPECT_STREQ(address(n) + 48, "ADC_1");
    EXPECT_STREQ(address(n) + 304, "");
    EXPECT_STREQ(address(n) + 560, "ADC_3");
}

TEST_F(BmSubscribe, NamesBehindAWritersRecordBegin4BytesEarlier)
{
    const int n = subscribed(bm, CLI_T_WRITER, TYPE, {"ADC_1", "ADC_2", "ADC_3"});
    EXPECT_EQ(+slot(n).writer().nsblocks, 3);
    EXPECT_STREQ(address(n) + 44, "ADC_1");
    EXPECT_STREQ(address(n) + 300, "ADC_2");
    EXPECT_STREQ(address(n) + 556, "ADC_3");
}

TEST_F(BmSubscribe, NoListIsNoName)
{
    zrk4_client none{};
    const int n = bm.subscribe(TYPE, CLI_T_READER, &none, nullptr);
    EXPECT_EQ(+slot(n).reader().nsblocks, 0);
    const int m = bm.subscribe(TYPE, CLI_T_WRITER, &none, nullptr);
    EXPECT_EQ(+slot(m).writer().nsblocks, 0);
}

TEST_F(BmSubscribe, NameIsCutAt255Characters)
{
    for (const size_t length : {254U, 255U, 256U, 300U}) {
        const int n = subscribed(bm, CLI_T_READER, TYPE, {std::string(length, 'x'), "next"});
        EXPECT_EQ(std::string(address(n) + 48), std::string(std::min<size_t>(length, 255), 'x'));
        EXPECT_STREQ(address(n) + 304, "next");
    }
}

// Bytes of an earlier life of the slot do not show behind a short name.
TEST_F(BmSubscribe, EntryIsZeroBehindTheName)
{
    std::memset(address(1), 'z', CLIENT_LENGTH);
    ASSERT_EQ(subscribed(bm, CLI_T_WRITER, TYPE, {"ADC_1", "ADC_2"}), 1);
    EXPECT_EQ(std::string(address(1) + 44, 256), "ADC_1" + std::string(251, '\0'));
    EXPECT_EQ(std::string(address(1) + 300, 256), "ADC_2" + std::string(251, '\0'));
    EXPECT_EQ(std::string(address(1) + 556, 256), std::string(256, 'z')) << "no name, not touched";
}

// A master that died between making the partition and taking its control record leaves it so.
TEST_F(BmSubscribe, ControlRecordInTheQueueIsNobodysSlot)
{
    C_shm_buffer& clients = *bm.cl_buf;
    while (clients.get_buffer(BM_NO_WAIT, true) != nullptr) {}
    EXPECT_FALSE(clients.return_buffer(0));
    EXPECT_FALSE(clients.return_buffer(7));
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), 7);
    EXPECT_FALSE(is_queued(0)) << "kept out";
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), -1);
    EXPECT_EQ(counted(), (counts{1, 0, 1, 0, 1})) << "not written over";
}

// Without names a slot is shorter than the control record.
TEST_F(CleanNamespace, ControlRecordReachesIntoNobodysSlot)
{
    still_master bm;
    bm.set_nblocks(0);
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    ASSERT_EQ(bm.cl_buf.load()->getBufferLength(), 48);
    ASSERT_EQ(subscribed(bm, CLI_T_WRITER), 6) << "272 bytes reach into slot 5";
    EXPECT_EQ(+bm.clictrl->evtypew[TYPE], 1);
    EXPECT_EQ(+bm.clictrl->clitotal, 1);
}

// ---- refusals

TEST_F(BmSubscribeRefusal, ObjectWithoutPartitions)
{
    seen_bm unattached;
    EXPECT_EQ(subscribed(unattached, CLI_T_READER), -1);
    EXPECT_EQ(subscribed(unattached, CLI_T_WRITER), -1);
    EXPECT_EQ(unattached.port, -1);
}

TEST_F(BmSubscribeRefusal, BadArgumentsHaveNoEffect)
{
    const long threads = threads_now();
    captured_output captured;
    for (const int type : {-1, 32, 33, INT_MAX, INT_MIN}) {
        EXPECT_EQ(subscribed(bm, CLI_T_READER, type), -1) << type;
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER, type), -1) << type;
    }
    for (const int cltype : {0, 3, 4, -1}) EXPECT_EQ(subscribed(bm, static_cast<BUF_MNG_CLI_TYPE>(cltype)), -1);
    EXPECT_EQ(bm.subscribe(TYPE, CLI_T_READER, nullptr, nullptr), -1);
    EXPECT_EQ(bm.subscribe(TYPE, CLI_T_WRITER, nullptr, nullptr), -1);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1);
    EXPECT_EQ(counted(), counts{});
    EXPECT_EQ(+bm.clictrl->status, CLI_C_INIT);
    EXPECT_EQ(threads_now(), threads);
    EXPECT_TRUE(bm.sreader.empty() && bm.swriter.empty());
}

TEST_F(BmSubscribeRefusal, MoreNamesThanTheSlotHolds)
{
    const long threads = threads_now();
    captured_output captured;
    EXPECT_EQ(subscribed(bm, CLI_T_READER, TYPE, {"1", "2", "3", "4"}), -1);
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER, TYPE, {"1", "2", "3", "4"}), -1);
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(threads_now(), threads) << "no reader thread for a refused reader";
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1);
    EXPECT_EQ(subscribed(bm, CLI_T_READER, TYPE, {"1", "2", "3"}), 1);
}

// By the partition as it is: a member's own limits say nothing of it.
TEST_F(BmSubscribeRefusal, RoomForNamesIsThatOfThePartition)
{
    seen_bm member;
    ASSERT_FALSE(quiet_init(member)) << "false is success";
    ASSERT_EQ(member.nsbl, 4094);
    EXPECT_EQ(subscribed(member, CLI_T_WRITER, TYPE, {"1", "2", "3", "4"}), -1);
    EXPECT_EQ(subscribed(member, CLI_T_WRITER, TYPE, {"1", "2", "3"}), 1);
}

TEST_F(BmSubscribeRefusal, NoSlotIsFree)
{
    while (bm.cl_buf.load()->get_buffer(BM_NO_WAIT, true) != nullptr) {}
    captured_output captured;
    EXPECT_EQ(subscribed(bm, CLI_T_WRITER), -1) << "at once";
    EXPECT_EQ(subscribed(bm, CLI_T_READER), -1);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(counted(), counts{});
}

TEST(BmSubscribeRefusals, SlotsTooShortForARecord)
{
    for (const int length : {20, 24, 43, 44, 47}) {
        const C_shm_buffer clients(CLIENTS, 3, length, true), events(EVENTS, 3, 100, true);
        seen_bm bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        EXPECT_EQ(subscribed(bm, CLI_T_WRITER), -1) << length;
        EXPECT_EQ(subscribed(bm, CLI_T_READER), -1) << length;
        EXPECT_EQ(stat_of(clients, "freebuf"), 3);
    }
}

// ---- signals

TEST_F(BmSubscribe, TryThatASignalEndsIsRepeated)
{
    // The first is the count of free buffers, which is never waited for.
    const long calls = semops_of([&] { subscribed(bm, CLI_T_WRITER); });
    bm.unsubscribe(TYPE, CLI_T_WRITER);
    ASSERT_EQ(calls, 7);
    for (const int take : {2, 4, 5}) {
        SCOPED_TRACE(take);
        captured_output captured;
        const fault interrupted = fault::fails("semop", EINTR, take, 3);
        EXPECT_GT(subscribed(bm, CLI_T_WRITER), 0);
        EXPECT_EQ(interrupted.fired(), 3);
        EXPECT_EQ(captured.out() + captured.err(), "");
        EXPECT_GT(bm.unsubscribe(TYPE, CLI_T_WRITER), 0);
    }
    EXPECT_EQ(counted(), counts{});
}

} // namespace
