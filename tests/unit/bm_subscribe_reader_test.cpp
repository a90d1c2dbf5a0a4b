// The thread and the socket that come with a process's first reader slot and go with its last.
#include <cerrno>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "bm_client_slots.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

class BmSubscribeReader : public client_slots {};

TEST_F(BmSubscribeReader, FirstOneStartsTheThreadAndTheLastOneEndsIt)
{
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    subscribed(bm, CLI_T_READER, 1);
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_EQ(descriptors_now(), descriptors + 1);
    subscribed(bm, CLI_T_READER, 2);
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_EQ(descriptors_now(), descriptors + 1);
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(1), CLI_T_READER), 1);
    EXPECT_EQ(threads_now(), threads + 1) << "one is left";
    EXPECT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(2), CLI_T_READER), 2);
    EXPECT_TRUE(threads_become(threads));
    EXPECT_EQ(descriptors_now(), descriptors);
    EXPECT_EQ(bm.port, -1);
    EXPECT_EQ(bm.qid, -1);
    EXPECT_EQ(subscribed(bm, CLI_T_READER, 1), 3) << "it can begin again";
    EXPECT_EQ(threads_now(), threads + 1);
}

TEST_F(BmSubscribeReader, WriterNeedsNoThread)
{
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    subscribed(bm, CLI_T_WRITER);
    EXPECT_EQ(threads_now(), threads);
    EXPECT_EQ(descriptors_now(), descriptors);
}

TEST_F(BmSubscribeReader, SlotHoldsThePortOfItsSocket)
{
    const int n = subscribed(bm, CLI_T_READER);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ASSERT_EQ(getsockname(bm.qid, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(+slot(n).reader().qid, ntohs(address.sin_port));
    EXPECT_EQ(bm.port, ntohs(address.sin_port));
    const int m = subscribed(bm, CLI_T_READER, 2);
    EXPECT_EQ(+slot(m).reader().qid, bm.port) << "the same for every reader slot of the object";
}

// A writer that has notified somebody has a socket for that.
TEST_F(BmSubscribeReader, SocketThatOnlySendsMakesRoomForOneThatReceives)
{
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    bm.qid = socket(AF_INET, SOCK_DGRAM, 0);
    const int n = subscribed(bm, CLI_T_READER);
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_EQ(descriptors_now(), descriptors + 1);
    EXPECT_GT(+slot(n).reader().qid, 0);
}

/// A thread without a port runs all the same, and has its own say beside its starter's.
std::string without(std::string text, const std::string& of_thread)
{
    const size_t at = text.find(of_thread);
    return at == std::string::npos ? text : text.erase(at, of_thread.size());
}

struct start_failure {
    const char* call;
    int error;
    const char* out;
    const char* err;
};

class BmSubscribeDeaf : public client_slots, public testing::WithParamInterface<start_failure> {};

TEST_P(BmSubscribeDeaf, ReaderGetsNoSlot)
{
    const start_failure& f = GetParam();
    const long threads = threads_now();
    const long descriptors = descriptors_now();
    {
        const fault refused = fault::fails(f.call, f.error);
        captured_output captured;
        EXPECT_EQ(subscribed(bm, CLI_T_READER), -1);
        EXPECT_EQ(refused.fired(), 1);
        EXPECT_EQ(without(captured.out(), "recv() bad status going to IDLE \n"), f.out);
        EXPECT_EQ(without(captured.err(), "recv: Bad file descriptor\n"), f.err);
    }
    EXPECT_EQ(descriptors_now(), descriptors);
    EXPECT_EQ(counted(), counts{});
    EXPECT_EQ(free_buffers(), CLIENT_BUFFERS - 1);
    EXPECT_TRUE(bm.sreader.empty());
    EXPECT_EQ(subscribed(bm, CLI_T_READER), 1) << "the next try succeeds";
    EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), 1);
    out_of([&] { bm.all_clean_up(); });
    EXPECT_TRUE(threads_become(threads));
    EXPECT_EQ(descriptors_now(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(
    Without, BmSubscribeDeaf,
    testing::Values(
        start_failure{"socket", EMFILE, "Failed to create socket\n", "socket: Too many open files\n"},
        start_failure{"setsockopt", ENOMEM, "Failed to set socket option\n", "setsockopt: Cannot allocate memory\n"},
        start_failure{"bind", EADDRINUSE, "Failed to bind\n", "bind: Address already in use\n"},
        start_failure{"getsockname", ENOBUFS, "Failed to getsockname\n", "getsockname: No buffer space available\n"},
        start_failure{"pthread_create", EAGAIN, "Failed to start reader thread\n", ""}),
    [](const auto& of) { return std::string(of.param.call); });

} // namespace
