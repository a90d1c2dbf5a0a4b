// Buffers that go between real processes.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/sem.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr bool MULTI = true;
constexpr int WAIT = 0;
constexpr int NBUF = 5;
enum semaphore { GATE, EMPTY, FULL, SYNCH };

class BuffersBetweenProcesses : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_DATA", NBUF, 64, /*sems=*/false};
    const int semid = semid_of(part);

    void expect_all_free() const
    {
        EXPECT_EQ(part.getStat("freebuf"), std::to_string(NBUF));
        EXPECT_EQ(semaphore_value(semid, EMPTY), NBUF);
        EXPECT_EQ(semaphore_value(semid, GATE), 1);
    }
    void take_all()
    {
        while (part.get_buffer(BM_NO_WAIT, MULTI) != nullptr) {}
    }
};

TEST_F(BuffersBetweenProcesses, OneTakesAndAnotherReturns)
{
    const shared<int> bnum;
    child writer([&] {
        C_shm_buffer mine("T_DATA");
        char* const addr = mine.get_buffer(BM_NO_WAIT, MULTI);
        ASSERT_NE(addr, nullptr);
        std::memset(addr, 'w', 64);
        *bnum = mine.get_buffer_id(addr);
    });
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(std::string(part.get_buffer_addr(*bnum), 64), std::string(64, 'w')) << "the same memory";
    EXPECT_EQ(semaphore_value(semid, EMPTY), NBUF - 1) << "a dead process's buffers stay out";
    EXPECT_FALSE(part.return_buffer(*bnum)) << "false is success";
    expect_all_free();
}

TEST_F(BuffersBetweenProcesses, KilledProcessLeavesItsBuffersOutUntilSomebodyReturnsThem)
{
    latch taken;
    child writer([&] {
        C_shm_buffer mine("T_DATA");
        mine.get_buffer(BM_NO_WAIT, MULTI);
        mine.get_buffer(BM_NO_WAIT, /*multi=*/false);
        taken.open();
        pause();
    });
    taken.wait();
    writer.kill_now();
    EXPECT_EQ(semaphore_value(semid, EMPTY), NBUF - 2);
    const live_segment raw(shmid_of(part));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(raw.int32(at_descriptor(i, IN_STATUS)), 0);
        EXPECT_EQ(raw.int32(at_descriptor(i, IN_OWNER)), writer.pid()) << "the owner is known";
        EXPECT_FALSE(part.return_buffer(i));
    }
    expect_all_free();
    live_segment(shmid_of(part), live_segment::WRITE).put_int32(AT_COUNT, 1); // the dead user
}

TEST_F(BuffersBetweenProcesses, TakeWaitsUntilOneIsReturned)
{
    take_all();
    child waiter([&] { EXPECT_EQ(part.get_buffer_id(part.get_buffer(WAIT, MULTI)), 3); });
    ASSERT_TRUE(eventually([&] { return semaphore_waiters(semid, EMPTY) == 1; }));
    EXPECT_FALSE(part.return_buffer(3));
    EXPECT_EQ(waiter.wait(), 0);
}

TEST_F(BuffersBetweenProcesses, SignalInTheWaitGivesNull)
{
    take_all();
    child waiter([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR1, &action, nullptr);
        EXPECT_EQ(part.get_buffer(WAIT, MULTI), nullptr);
    });
    ASSERT_TRUE(eventually([&] { return semaphore_waiters(semid, EMPTY) == 1; }));
    waiter.send(SIGUSR1);
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(semaphore_value(semid, EMPTY), 0);
}

TEST_F(BuffersBetweenProcesses, SetRemovedInTheWaitGivesNullWithoutAWord)
{
    take_all();
    const std::string text = out_of([&] {
        child waiter([&] { EXPECT_EQ(part.get_buffer(WAIT, MULTI), nullptr); });
        ASSERT_TRUE(eventually([&] { return semaphore_waiters(semid, EMPTY) == 1; }));
        semctl(semid, 0, IPC_RMID);
        EXPECT_EQ(waiter.wait(), 0);
    });
    EXPECT_EQ(text, "");
    clear_ipc_namespace();
}

TEST_F(BuffersBetweenProcesses, SynchModeWaitsForCountsAndNeverGivesABuffer)
{
    part.rqsynch(true);
    child waiter([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        EXPECT_EQ(part.get_buffer(WAIT, MULTI), nullptr);
    });
    ASSERT_TRUE(eventually([&] { return semaphore_waiters(semid, SYNCH) == 1; }));
    ASSERT_TRUE(change_semaphore(semid, SYNCH, 3));
    ASSERT_TRUE(eventually([&] { return semaphore_value(semid, SYNCH) == 0 && semaphore_waiters(semid, SYNCH) == 1; }))
        << "it eats the counts and waits for more";
    waiter.send(SIGUSR1);
    EXPECT_EQ(waiter.wait(), 0);
    part.rqsynch(false);
    expect_all_free();
}

// Each taker writes its mark all over the buffer and finds it whole again: nobody else had the buffer meanwhile.
void take_mark_and_return(C_shm_buffer& part, int turns, char mark)
{
    for (int i = 0; i < turns; ++i) {
        char* const addr = part.get_buffer(WAIT, MULTI);
        ASSERT_NE(addr, nullptr);
        std::memset(addr, mark, 64);
        if (i % 8 == 0) sched_yield();
        ASSERT_EQ(std::string(addr, 64), std::string(64, mark)) << "handed out twice";
        const bool failed = i % 2 == 0 ? part.return_buffer(part.get_buffer_id(addr)) : part.return_buffer(addr);
        ASSERT_FALSE(failed);
    }
}

TEST_F(BuffersBetweenProcesses, NoneIsHandedOutTwiceAndNoneIsLost)
{
    constexpr int TURNS = 2000;
    const auto use = [&](char mark) {
        return [mark] {
            C_shm_buffer mine("T_DATA");
            take_mark_and_return(mine, TURNS, mark);
        };
    };
    {
        child a(use('a')), b(use('b')), c(use('c')), d(use('d'));
        for (child* one : {&a, &b, &c, &d}) EXPECT_EQ(one->wait(), 0);
    }
    expect_all_free();
}

TEST_F(BuffersBetweenProcesses, ThreadsShareAHandle)
{
    constexpr int TURNS = 1000;
    std::vector<std::thread> threads;
    for (const char mark : {'p', 'q', 'r'})
        threads.emplace_back([&, mark] { take_mark_and_return(part, TURNS, mark); });
    for (std::thread& one : threads) one.join();
    expect_all_free();
}

// Two processes return the same buffers at the same moment: each buffer is taken back once. They meet by spinning: a
// latch wakes its waiter long after the other one has done it all.
TEST_F(BuffersBetweenProcesses, DoubleReturnFromTwoProcessesCountsOnce)
{
    constexpr int ROUNDS = 500;
    const shared<std::atomic<int>> begun, ended, taken_back;
    const auto return_all = [&] {
        for (int i = 0; i < NBUF; ++i) taken_back->fetch_add(part.return_buffer(i) ? 0 : 1);
    };
    child other([&] {
        for (int round = 1; round <= ROUNDS; ++round) {
            while (begun->load() < round) sched_yield();
            return_all();
            ended->store(round);
        }
    });
    for (int round = 1; round <= ROUNDS; ++round) {
        take_all();
        begun->store(round);
        return_all();
        ASSERT_TRUE(eventually([&] { return ended->load() == round; }));
        ASSERT_EQ(taken_back->load(), NBUF * round);
        ASSERT_EQ(part.getStat("freebuf"), std::to_string(NBUF));
    }
    EXPECT_EQ(other.wait(), 0);
    expect_all_free();
}

/// The free queue by its links; a number that is met twice or lies outside ends the test.
std::set<int> queued_in(const live_segment& raw)
{
    std::set<int> found;
    for (int i = raw.int32(AT_FREE); i != -1; i = raw.int32(at_descriptor(i, IN_LINK))) {
        if (i < 0 || i >= NBUF || !found.insert(i).second) throw std::runtime_error("the queue is damaged");
    }
    return found;
}

// Killed anywhere in taking and returning: the gate is open, the queue is whole, the count is never above its length,
// and what is not in it names the dead process. So everything can be put right again, which each round does.
TEST_F(BuffersBetweenProcesses, KillAnywhereLosesNothingThatCannotBeFoundAgain)
{
    live_segment raw(shmid_of(part), live_segment::WRITE);
    for (int round = 0; round < 80; ++round) {
        latch started;
        child victim([&] {
            started.open();
            while (true) take_mark_and_return(part, 1, 'v');
        });
        started.wait();
        take_mark_and_return(part, round * 5, 'm');
        victim.kill_now();
        ASSERT_EQ(semaphore_value(semid, GATE), 1);
        const std::set<int> queued = queued_in(raw);
        ASSERT_GE(queued.size(), NBUF - 1U) << "it had one buffer at a time";
        ASSERT_LE(semaphore_value(semid, EMPTY), static_cast<int>(queued.size()));
        for (int i = 0; i < NBUF; ++i) {
            const bool is_queued = queued.count(i) != 0;
            ASSERT_TRUE(is_queued || raw.int32(at_descriptor(i, IN_OWNER)) == victim.pid()) << "round " << round;
            raw.put_int32(at_descriptor(i, IN_STATUS), is_queued ? 1 : 0);
            ASSERT_EQ(part.return_buffer(i), is_queued);
        }
        const int missing = NBUF - semaphore_value(semid, EMPTY);
        ASSERT_TRUE(missing == 0 || change_semaphore(semid, EMPTY, missing));
        expect_all_free();
    }
}

} // namespace
