// The test tools themselves: a test is worth what its tools are.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "captured_output.h"
#include "child.h"
#include "eventually.h"
#include "fault.h"
#include "ipc_namespace.h"
#include "latch.h"
#include "live_segment.h"
#include "shared.h"

using namespace zrk4::test;

TEST(IpcNamespace, IsEmptyAndItsFirstSegmentIdIsNotZero)
{
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
    const int id = shmget(IPC_PRIVATE, 10, 0600);
    EXPECT_GT(id, 0);
    EXPECT_EQ(segments_in_namespace(), 1);
    clear_ipc_namespace();
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_FALSE(segment_exists(id));
}

TEST(Child, TellsHowItEnded)
{
    EXPECT_EQ(child([] {}).wait(), 0);
    EXPECT_EQ(child([] { raise(SIGKILL); }).wait(), 128 + SIGKILL);
    EXPECT_EQ(child([] { _exit(7); }).wait(), 7);
    captured_output captured;
    EXPECT_EQ(child([] { throw std::runtime_error("on purpose"); }).wait(), 3);
    EXPECT_EQ(captured.err(), "child: exception left it: on purpose\n");
}

TEST(Child, FailedExpectationInItIsNotLost)
{
    const shared<int> one;
    *one = 1;
    std::string report = out_of([&] { EXPECT_EQ(child([&] { EXPECT_EQ(*one, 2); }).wait(), 1); });
    EXPECT_NE(report.find("Failure"), std::string::npos);
}

TEST(Child, IsGoneWhenKillNowReturns)
{
    latch started;
    child sleeper([&] {
        started.open();
        pause();
    });
    started.wait();
    const pid_t pid = sleeper.pid();
    EXPECT_EQ(kill(pid, 0), 0);
    sleeper.kill_now();
    EXPECT_NE(kill(pid, 0), 0);
    EXPECT_EQ(sleeper.wait(), 128 + SIGKILL);
}

TEST(Latch, OpensForAParentAndItsChildren)
{
    latch both_here(2), go_on;
    const shared<int> seen;
    child first([&] {
        both_here.open();
        go_on.wait();
    });
    child second([&] {
        both_here.open();
        go_on.wait();
        *seen = 5;
    });
    both_here.wait();
    EXPECT_EQ(*seen, 0);
    go_on.open();
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(*seen, 5);
}

TEST(Latch, WaitOfAClosedOneThrows)
{
    latch never;
    EXPECT_THROW(never.wait(/*patience_ms=*/20), std::runtime_error);
}

TEST(CapturedOutput, KeepsBothStreamsApartAndTakesChildrenIn)
{
    captured_output captured;
    std::printf("one\n");
    std::fprintf(stderr, "two\n");
    child([] { std::printf("three\n"); }).wait();
    EXPECT_EQ(captured.out(), "one\nthree\n");
    EXPECT_EQ(captured.err(), "two\n");
    captured.forget();
    std::printf("four\n");
    EXPECT_EQ(captured.out(), "four\n");
}

TEST(CapturedOutput, DatesAreMarkedAtTheBeginningOfLinesOnly)
{
    const std::string text = "2024-05-06T07:08:09.123456+02:00 a\nb 2024-05-06T07:08:09Z c\n2024-05-06T07:08:09Z d\n";
    EXPECT_EQ(dates_marked(text), "DATE a\nb 2024-05-06T07:08:09Z c\nDATE d\n");
    EXPECT_EQ(dates_stripped(text), "a\nb 2024-05-06T07:08:09Z c\nd\n");
}

TEST(LiveSegment, ReadsAndWritesByOffset)
{
    const int id = shmget(40, 16, IPC_CREAT | 0600);
    live_segment seen(id, live_segment::WRITE);
    seen.put_int32(1, -5);
    EXPECT_EQ(seen.int32(1), -5);
    EXPECT_EQ(seen.byte(0), 0);
    EXPECT_EQ(seen.size(), 16U);
    EXPECT_THROW(seen.int32(13), std::out_of_range);
    EXPECT_EQ(segment_at_key(40), id);
    EXPECT_EQ(segment_at_key(41), -1);
    clear_ipc_namespace();
}

TEST(Fault, MeetsTheNthCallAndNoOther)
{
    const fault plan = fault::fails("shmget", ENOSPC, 2);
    const long before = calls_of("shmget");
    EXPECT_GE(shmget(40, 16, IPC_CREAT | 0600), 0);
    EXPECT_EQ(shmget(41, 16, IPC_CREAT | 0600), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_GE(shmget(41, 16, IPC_CREAT | 0600), 0);
    EXPECT_EQ(plan.fired(), 1);
    EXPECT_EQ(calls_of("shmget") - before, 3);
    clear_ipc_namespace();
}

TEST(Fault, EndsWithItsObject)
{
    {
        const fault plan = fault::fails("geteuid", EPERM, 1, FOR_EVER);
        EXPECT_EQ(geteuid(), static_cast<uid_t>(-1));
    }
    EXPECT_NE(geteuid(), static_cast<uid_t>(-1));
    const fault other = fault::returns("geteuid", 77);
    EXPECT_EQ(geteuid(), 77U);
}

TEST(Fault, ActionRunsRightBeforeTheCall)
{
    const int id = shmget(40, 16, IPC_CREAT | 0600);
    const fault race = fault::preceded("shmat", [&] { shmctl(id, IPC_RMID, nullptr); });
    EXPECT_EQ(shmat(id, nullptr, 0), reinterpret_cast<void*>(-1));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(race.fired(), 1);
}
