// Locks between real processes: waiting, death, signals, removal.
#include <cerrno>
#include <csignal>
#include <ostream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <unistd.h>

#include "C_shm.h"
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

/// One of a partition's two kinds of lock.
struct lock_kind {
    const char* name;
    int semaphore;
    bool (*change)(const C_shm& part, bool lock);

    friend std::ostream& operator<<(std::ostream& os, const lock_kind& kind) { return os << kind.name; }
};

constexpr int SLOT = 1;
const lock_kind KINDS[] = {
    {"Gate", 0, [](const C_shm& part, bool lock) { return part.gate(lock); }},
    {"Slot", 4 + SLOT, [](const C_shm& part, bool lock) { return part.ctrl(SLOT, lock); }},
};

class LockBetweenProcesses : public CleanNamespace, public testing::WithParamInterface<lock_kind> {
  protected:
    C_shm part{"T_LOCKS", 3, 10, /*sems=*/true};
    const int semid = semid_of(part);

    static bool change(const C_shm& p, bool lock) { return GetParam().change(p, lock); }
    static void take(const C_shm& p)
    {
        while (!change(p, true)) {}
    }
    int value() const { return semaphore_value(semid, GetParam().semaphore); }
    bool somebody_waits() const
    {
        return eventually([&] { return semaphore_waiters(semid, GetParam().semaphore) == 1; });
    }
};

INSTANTIATE_TEST_SUITE_P(BothKinds, LockBetweenProcesses, testing::ValuesIn(KINDS),
                         [](const auto& kind) { return std::string(kind.param.name); });

/// A process that holds the lock until it is told to let go, or dies. It uses the handle that it inherits: a handle of
/// its own would stay counted as a user after its death.
class holder {
  public:
    explicit holder(const C_shm& part)
        : process_([this, &part, kind = LockBetweenProcesses::GetParam()] {
              while (!kind.change(part, true)) {}
              taken_.open();
              let_go_.wait();
              EXPECT_TRUE(kind.change(part, false));
          })
    {
        taken_.wait();
    }
    void let_go()
    {
        let_go_.open();
        EXPECT_EQ(process_.wait(), 0);
    }
    child& process() { return process_; }

  private:
    latch taken_, let_go_;
    child process_;
};

TEST_P(LockBetweenProcesses, TakeWaitsForTheHolderAndCountsIt)
{
    holder other(part);
    const shared<int> counted;
    child waiter([&] {
        EXPECT_TRUE(change(part, true));
        *counted = part.getLockCount();
        EXPECT_TRUE(change(part, false));
    });
    ASSERT_TRUE(somebody_waits());
    other.let_go();
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(*counted, 1);
    EXPECT_EQ(value(), 1);
}

TEST_P(LockBetweenProcesses, WaitIsCountedWhileItLasts)
{
    holder other(part);
    std::thread waiter([&] { take(part); });
    EXPECT_TRUE(somebody_waits());
    EXPECT_EQ(part.getLockCount(), 1);
    other.let_go();
    waiter.join();
    EXPECT_EQ(part.getLockCount(), 1);
    EXPECT_TRUE(change(part, false));
}

TEST_P(LockBetweenProcesses, HolderThatIsKilledGivesItBack)
{
    holder other(part);
    EXPECT_EQ(value(), 0);
    other.process().kill_now();
    EXPECT_EQ(value(), 1);
    EXPECT_TRUE(change(part, true)) << "nothing to wait for";
    EXPECT_TRUE(change(part, false));
}

TEST_P(LockBetweenProcesses, WaiterGetsItWhenTheHolderIsKilled)
{
    holder other(part);
    child waiter([&] {
        EXPECT_TRUE(change(part, true));
        EXPECT_TRUE(change(part, false));
    });
    ASSERT_TRUE(somebody_waits());
    other.process().kill_now();
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(value(), 1);
}

TEST_P(LockBetweenProcesses, WaiterThatIsKilledTakesNothing)
{
    holder other(part);
    child waiter([&] { take(part); });
    ASSERT_TRUE(somebody_waits());
    waiter.kill_now();
    other.let_go();
    EXPECT_EQ(value(), 1);
}

// No restart of an interrupted wait, whatever the handler was installed with.
TEST_P(LockBetweenProcesses, SignalInTheWaitGivesFalseWithoutTaking)
{
    for (const int flags : {0, SA_RESTART}) {
        holder other(part);
        child waiter([&] {
            struct sigaction action {};
            action.sa_handler = [](int) {};
            action.sa_flags = flags;
            sigaction(SIGUSR1, &action, nullptr);
            EXPECT_FALSE(change(part, true)) << "interrupted";
            EXPECT_EQ(part.getLockCount(), 1);
        });
        ASSERT_TRUE(somebody_waits());
        waiter.send(SIGUSR1);
        EXPECT_EQ(waiter.wait(), 0);
        EXPECT_EQ(value(), 0) << "still the holder's";
        other.let_go();
        EXPECT_EQ(value(), 1);
    }
}

TEST_P(LockBetweenProcesses, StopAndContinueInTheWaitGivesFalseWithoutAnyHandler)
{
    holder other(part);
    child waiter([&] { EXPECT_FALSE(change(part, true)) << "interrupted"; });
    ASSERT_TRUE(somebody_waits());
    waiter.stop();
    waiter.go_on();
    EXPECT_EQ(waiter.wait(), 0);
    other.let_go();
    EXPECT_EQ(value(), 1);
}

TEST_P(LockBetweenProcesses, HolderThatIsStoppedKeepsIt)
{
    holder other(part);
    other.process().stop();
    child waiter([&] {
        take(part);
        EXPECT_TRUE(change(part, false));
    });
    ASSERT_TRUE(somebody_waits());
    other.process().go_on();
    other.let_go();
    EXPECT_EQ(waiter.wait(), 0);
}

TEST_P(LockBetweenProcesses, LoopThatMustHaveItSurvivesSignals)
{
    holder other(part);
    child waiter([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        take(part);
        EXPECT_TRUE(change(part, false));
    });
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(somebody_waits());
        waiter.send(SIGUSR1);
    }
    other.let_go();
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(value(), 1);
}

TEST_P(LockBetweenProcesses, SetRemovedUnderAWaiterThrows)
{
    holder other(part);
    const int removed = semid;
    const std::string text = out_of([&] {
        child waiter([&] {
            try {
                change(part, true);
                ADD_FAILURE() << "no exception";
            } catch (const SysError& e) {
                EXPECT_STREQ(e.what(), "Identifier removed");
            }
        });
        ASSERT_TRUE(somebody_waits());
        semctl(removed, 0, IPC_RMID);
        EXPECT_EQ(waiter.wait(), 0);
    });
    const std::string id = std::to_string(removed);
    const std::string gate_text =
        "throw C_shm::gate DOWN sem: 0  rrno: 43 semid: " + id +
        " Partition name:T_LOCKS  buffers:3  size:10 status:3 version:102 count:1 semid:" + id + " sems:1\n";
    const std::string slot_text = "throw C_shm::ctrl UP sem: 5   errno: 43  semid: " + id + "\n";
    EXPECT_EQ(text, GetParam().semaphore == 0 ? gate_text : slot_text) << "one line";
    captured_output captured;
    other.process().kill_now();
    clear_ipc_namespace();
}

// Killed again and again wherever it happens to be: the lock is free afterwards every time.
TEST_P(LockBetweenProcesses, KilledAnywhereLeavesItFree)
{
    for (int round = 0; round < 50; ++round) {
        latch started;
        child busy([&] {
            started.open();
            while (true) {
                take(part);
                change(part, false);
            }
        });
        started.wait();
        for (int i = 0; i < round * 20; ++i) {
            take(part);
            change(part, false);
        }
        busy.kill_now();
        ASSERT_EQ(value(), 1) << "round " << round;
    }
}

TEST_P(LockBetweenProcesses, ExcludesAllOthers)
{
    constexpr int PROCESSES = 4, TURNS = 3000;
    const shared<int> counter; // plain: only the lock orders its changes
    const auto count = [&] {
        for (int i = 0; i < TURNS; ++i) {
            take(part);
            const int seen = *counter;
            *counter = seen + 1;
            change(part, false);
        }
    };
    {
        child a(count), b(count), c(count), d(count);
        for (child* one : {&a, &b, &c, &d}) EXPECT_EQ(one->wait(), 0);
    }
    EXPECT_EQ(*counter, PROCESSES * TURNS);
    EXPECT_EQ(value(), 1);
}

} // namespace
