// The calls that go past the C library: the same answers, and nobody who stands before it is passed over.
#include "direct_call.h"

#include <array>
#include <cstring>
#include <numeric>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include "clean_namespace.h"
#include "live_segment.h"

using namespace zrk4::test;
using namespace zrk4::impl;

namespace {

int own_sendto_calls = 0;

} // namespace

// This program's own, which the library's way to a datagram must find.
extern "C" __attribute__((visibility("default"))) ssize_t sendto(int socket, const void* message, size_t bytes,
                                                                 int flags, const sockaddr* to, socklen_t length)
{
    ++own_sendto_calls;
    return syscall(SYS_sendto, socket, message, bytes, flags, to, length);
}

namespace {

class DirectCall : public CleanNamespace {
  protected:
    const int semid = semget(IPC_PRIVATE, 2, 0600);
    ~DirectCall() override { semctl(semid, 0, IPC_RMID); }

    static int semop(int id, unsigned short number, short by, short flags = IPC_NOWAIT)
    {
        sembuf operation{number, by, flags};
        return direct::semop(id, &operation, 1);
    }
};

TEST_F(DirectCall, ChangesASemaphore)
{
    EXPECT_EQ(semop(semid, 1, 3), 0);
    EXPECT_EQ(semop(semid, 1, -1), 0);
    EXPECT_EQ(semaphore_value(semid, 0), 0);
    EXPECT_EQ(semaphore_value(semid, 1), 2);
}

TEST_F(DirectCall, FailsWithTheReasonInErrno)
{
    EXPECT_EQ(semop(semid, 1, -1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(semop(semid, 2, 1), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(semop(-1, 0, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(direct::semop(semid, nullptr, 1), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(DirectCall, LeavesErrnoAloneWhenItSucceeds)
{
    errno = ERANGE;
    EXPECT_EQ(semop(semid, 1, 1), 0);
    EXPECT_EQ(errno, ERANGE);
}

TEST_F(DirectCall, AsksWhetherAProcessIsThere)
{
    EXPECT_EQ(direct::kill(getpid(), 0), 0);
    EXPECT_EQ(direct::kill(0x3FFFFFFF, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

// A socket that has one datagram waiting, sent by itself.
class loaded_socket {
  public:
    explicit loaded_socket(const char* text) : fd_(socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof own;
        auto* const at = reinterpret_cast<sockaddr*>(&own);
        EXPECT_EQ(bind(fd_, at, sizeof own), 0);
        EXPECT_EQ(getsockname(fd_, at, &length), 0);
        EXPECT_EQ(direct::sendto(fd_, text, strlen(text), 0, at, sizeof own), static_cast<ssize_t>(strlen(text)));
    }
    ~loaded_socket() { close(fd_); }
    loaded_socket(const loaded_socket&) = delete;
    loaded_socket& operator=(const loaded_socket&) = delete;

    int fd() const { return fd_; }

  private:
    int fd_;
};

TEST_F(DirectCall, AFunctionOfTheProgramsOwnIsCalled)
{
    EXPECT_FALSE(direct::made_here.sendto);
    own_sendto_calls = 0;
    const loaded_socket socket("event");
    EXPECT_EQ(own_sendto_calls, 1);
}

TEST_F(DirectCall, ReceivesADatagramCutToTheRoomThereIs)
{
    const loaded_socket socket("event");
    char room[3] = {};
    EXPECT_EQ(direct::recv(socket.fd(), room, sizeof room, MSG_WAITALL), 3);
    EXPECT_EQ(std::string(room, 3), "eve");
    EXPECT_EQ(direct::recv(socket.fd(), room, sizeof room, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(direct::recv(-1, room, sizeof room, 0), -1);
    EXPECT_EQ(errno, EBADF);
}

// A sanitizer has functions of its own.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(DirectCall, TheCLibrarysOwnFunctionIsNotAskedFor)
{
    EXPECT_TRUE(direct::made_here.semop);
    EXPECT_TRUE(direct::made_here.kill);
    EXPECT_TRUE(direct::made_here.recv);
    EXPECT_TRUE(direct::made_here.sched_yield);
}
#endif

// What a function keeps below its stack pointer, and where it returns to, is as before.
__attribute__((noinline)) int sum_below(int semid, int depth)
{
    std::array<int, 16> own{};
    std::iota(own.begin(), own.end(), depth);
    sembuf operation{1, 1, 0};
    if (direct::semop(semid, &operation, 1) != 0) return -1;
    const int below = depth == 0 ? 0 : sum_below(semid, depth - 1);
    return below + own.front() + own.back() - 15;
}

TEST_F(DirectCall, ReturnsThroughMoreFunctionsThanItHasReplacedAddressesOf)
{
    EXPECT_EQ(sum_below(semid, 40), 40 * 41);
    EXPECT_EQ(semaphore_value(semid, 1), 41);
}

} // namespace
