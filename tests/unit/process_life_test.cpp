// Who still lives, and who only has a dead one's number.
#include "process_life.h"

#include <csignal>
#include <ctime>
#include <thread>

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "child.h"
#include "latch.h"

using namespace zrk4::impl;

namespace zrk4::test {
namespace {

time_stamp seconds_from_now(int seconds)
{
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return {static_cast<uint32_t>(t.tv_sec + seconds), static_cast<uint32_t>(t.tv_nsec / 1000)};
}

/// Runs until it is killed.
void stay() { pause(); }

TEST(ProcessLife, ThisProcessRuns)
{
    EXPECT_TRUE(is_running(getpid()));
    EXPECT_EQ(process_state(getpid()), 'R');
}

TEST(ProcessLife, NobodyHasANumberBelowOne)
{
    EXPECT_FALSE(is_running(0));
    EXPECT_FALSE(is_running(-1)) << "which would be everybody";
}

TEST(ProcessLife, AStoppedOneRunsAndAnEndedOneDoesNot)
{
    child one(stay);
    one.stop();
    EXPECT_TRUE(is_running(one.pid()));
    EXPECT_EQ(process_state(one.pid()), 'T');
    one.kill_now();
    EXPECT_FALSE(is_running(one.pid()));
    EXPECT_EQ(process_state(one.pid()), '?');
}

TEST(ProcessLife, AZombieDoesNotRun)
{
    child one(stay);
    one.send(SIGKILL);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(one.pid()), &info, WEXITED | WNOWAIT), 0);
    ASSERT_EQ(kill(one.pid(), 0), 0) << "a signal cannot tell";
    EXPECT_FALSE(is_running(one.pid()));
}

TEST(ProcessLife, OneWhoseFirstThreadHasEndedRuns)
{
    latch begun;
    child one([&] {
        std::thread([&] {
            begun.open();
            pause();
        }).detach();
        begun.wait();
        syscall(SYS_exit, 0); // this thread alone
    });
    begun.wait();
    while (process_state(one.pid()) != 'Z') std::this_thread::yield();
    EXPECT_TRUE(is_running(one.pid()));
}

TEST(ProcessLife, AThreadsNumberIsNoProcess)
{
    latch done;
    pid_t thread = 0;
    latch known;
    std::thread other([&] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        known.open();
        done.wait();
    });
    known.wait();
    EXPECT_EQ(kill(thread, 0), 0) << "a signal cannot tell";
    EXPECT_FALSE(is_running(thread));
    done.open();
    other.join();
}

TEST(ProcessLife, AYoungerOneDidNotWriteAnOlderRecord)
{
    child one(stay);
    EXPECT_TRUE(began_after(one.pid(), seconds_from_now(-60)));
    EXPECT_FALSE(began_after(one.pid(), seconds_from_now(0))) << "it may have";
    EXPECT_FALSE(began_after(one.pid(), seconds_from_now(60)));
    one.kill_now();
    EXPECT_FALSE(began_after(one.pid(), seconds_from_now(-60))) << "it did not begin at all";
}

TEST(ProcessLife, OnlyWhoHasASegmentAttachedCanHoldWhatIsInIt)
{
    const int id = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    EXPECT_FALSE(may_have_attached(getpid(), id));
    void* at = shmat(id, nullptr, 0);
    EXPECT_TRUE(may_have_attached(getpid(), id));
    EXPECT_TRUE(segment_users(id).can_hold(getpid()));
    child inherits(stay);
    EXPECT_TRUE(may_have_attached(inherits.pid(), id));
    shmdt(at);
    EXPECT_FALSE(may_have_attached(getpid(), id));
    EXPECT_FALSE(segment_users(id).can_hold(getpid()));
    inherits.kill_now();
    EXPECT_FALSE(segment_users(id).can_hold(inherits.pid()));
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
} // namespace zrk4::test
