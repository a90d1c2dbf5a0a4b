// Failures of system calls reach whoever calls: the shared library, the standard library, another program.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include "C_shm.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "latch.h"

using namespace zrk4::test;

namespace {

class Faults : public CleanNamespace {};

TEST_F(Faults, MeetTheSharedLibrary)
{
    captured_output captured;
    const fault full = fault::fails("shmget", ENOSPC, 2);
    C_shm part;
    EXPECT_TRUE(part.make("T_FAULT", 1, 1)) << "true is failure";
    EXPECT_EQ(captured.err(), "shmget: No space left on device\n");
}

TEST_F(Faults, MeetTheStandardLibrarysThreads)
{
    const fault none = fault::fails("pthread_create", EAGAIN);
    try {
        std::thread([] {}).join();
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), EAGAIN);
    }
    EXPECT_EQ(none.fired(), 1);
    latch ran;
    std::thread([&] { ran.open(); }).join();
    EXPECT_TRUE(ran.is_open()) << "the next one starts";
}

int result_of(const char* call)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    socklen_t length = sizeof to;
    const auto address = reinterpret_cast<sockaddr*>(&to);
    const std::string name = call;
    const int on = 1;
    char bytes[8] = {};
    if (name == "socket") return socket(AF_INET, SOCK_DGRAM, 0);
    if (name == "setsockopt") return setsockopt(-1, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (name == "bind") return bind(-1, address, length);
    if (name == "getsockname") return getsockname(-1, address, &length);
    if (name == "sendto") return static_cast<int>(sendto(-1, bytes, sizeof bytes, 0, address, length));
    if (name == "recv") return static_cast<int>(recv(-1, bytes, sizeof bytes, 0));
    if (name == "semget") return semget(IPC_PRIVATE, 1, 0600);
    if (name == "semctl") return semctl(-1, 0, GETVAL);
    if (name == "semop") return semop(-1, nullptr, 0);
    if (name == "shmctl") return shmctl(-1, IPC_RMID, nullptr);
    if (name == "shmdt") return shmdt(bytes);
    if (name == "shmget") return shmget(IPC_PRIVATE, 1, 0600);
    return shmat(-1, nullptr, 0) == reinterpret_cast<void*>(-1) ? -1 : 0;
}

TEST_F(Faults, GiveTheErrnoThatWasAskedFor)
{
    for (const char* call : {"socket", "setsockopt", "bind", "getsockname", "sendto", "recv", "semget", "semctl",
                             "semop", "shmctl", "shmdt", "shmget", "shmat"}) {
        const fault odd = fault::fails(call, ELNRNG);
        errno = 0;
        EXPECT_EQ(result_of(call), -1) << call;
        EXPECT_EQ(errno, ELNRNG) << call;
        EXPECT_EQ(odd.fired(), 1) << call;
    }
}

TEST_F(Faults, GiveTheResultThatWasAskedFor)
{
    const fault cut = fault::returns("sendto", 3);
    EXPECT_EQ(result_of("sendto"), 3);
    const fault end = fault::returns("recv", 0);
    EXPECT_EQ(result_of("recv"), 0);
}

TEST_F(Faults, LeaveDatagramsAlone)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends.data()), 0);
    EXPECT_EQ(sendto(ends[0], "abc", 3, 0, nullptr, 0), 3);
    char bytes[8] = {};
    EXPECT_EQ(recv(ends[1], bytes, sizeof bytes, 0), 3);
    EXPECT_STREQ(bytes, "abc");
    for (const int end : ends) close(end);
}

TEST_F(Faults, LookUpOfAHostFailsWithItsCode)
{
    hostent entry{};
    hostent* found = &entry;
    char room[1024];
    int code = 0;
    const fault again = fault::fails("gethostbyname_r", ERANGE);
    EXPECT_EQ(gethostbyname_r("localhost", &entry, room, sizeof room, &found, &code), ERANGE);
    EXPECT_EQ(found, nullptr);
}

TEST_F(Faults, PlansAreCopiedByForkAndEndWithTheChild)
{
    const fault plan = fault::fails("shmget", ENOSPC);
    child other([] { EXPECT_EQ(shmget(IPC_PRIVATE, 1, 0600), -1); });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(plan.fired(), 0) << "the parent's is still to come";
    EXPECT_EQ(shmget(IPC_PRIVATE, 1, 0600), -1);
}

TEST_F(Faults, ActionsOwnCallsAreNeitherCountedNorMet)
{
    const long before = calls_of("shmget");
    const fault race = fault::preceded(
        "shmget", [] { EXPECT_GE(shmget(IPC_PRIVATE, 1, 0600), 0); }, 1, 2);
    EXPECT_GE(shmget(IPC_PRIVATE, 1, 0600), 0);
    EXPECT_EQ(race.fired(), 1);
    EXPECT_EQ(calls_of("shmget") - before, 1);
    clear_ipc_namespace();
}

TEST_F(Faults, UnknownCallIsAMistakeOfTheTest)
{
    captured_output captured;
    child mistaken([] { fault::fails("shmgett", ENOSPC); });
    EXPECT_EQ(mistaken.wait(), 128 + SIGABRT);
    EXPECT_EQ(captured.err(), "faults: no such call: shmgett\n");
}

// A program that knows nothing of all this; the plan meets the second segment that it makes.
TEST_F(Faults, MeetAnotherProgramThroughItsEnvironment)
{
    Dl_info faults{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(calls_of), &faults), 0);
    const auto run = [&](const char* plan) {
        child program([&] {
            setenv("LD_PRELOAD", faults.dli_fname, 1);
            setenv("ZRK4_FAULTS", plan, 1);
            execlp("ipcmk", "ipcmk", "-M", "16", nullptr);
        });
        return program.wait();
    };
    captured_output captured;
    EXPECT_EQ(run("semget:28:1:1,shmget:28:1:1"), 1);
    EXPECT_NE(captured.err().find("No space left on device"), std::string::npos);
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_EQ(run("shmget:28:2:1"), 0) << "it makes one only";
    EXPECT_EQ(segments_in_namespace(), 1);
    clear_ipc_namespace();
}

} // namespace
