// The monitor thread: its start and end.
#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bm_core.h"
#include "monitoring_bm.h"
#include "thread_calls.h"

using namespace zrk4::test;
using zrk4::impl::monitor_go;

namespace {

/// A buffer manager that is not attached: its monitor runs and looks at nothing.
class MonitorThread : public testing::Test {
  protected:
    MonitorThread() { bm.set_monitoring_period(1000); }
    ~MonitorThread() override
    {
        bm.stop_monitor();
        EXPECT_TRUE(threads_more(0)) << "threads left";
    }
    void expect_stopped() const
    {
        EXPECT_EQ(bm.pid, 0U);
        EXPECT_FALSE(monitor_go);
        EXPECT_TRUE(threads_more(0));
    }
    /// What a stop prints whose one call fails. The thread ends all the same.
    std::string texts_of_a_stop_without(thread_call& call, int error)
    {
        const pthread_t thread = bm.pid;
        captured_output captured;
        {
            const failing refused(call, error);
            EXPECT_FALSE(bm.stop_monitor());
        }
        const std::string texts = captured.out();
        EXPECT_EQ(pthread_join(thread, nullptr), 0);
        expect_stopped();
        return texts;
    }
    // One that was joined can be seen a moment longer.
    bool threads_more(long count) const
    {
        return eventually([&] { return threads_now() == threads_ + count; });
    }
    monitoring_bm bm;

  private:
    const long threads_ = threads_now();
};

/// Blocks SIGABRT in this thread for its life.
class abort_blocked {
  public:
    abort_blocked()
    {
        sigset_t wanted;
        sigemptyset(&wanted);
        sigaddset(&wanted, SIGABRT);
        pthread_sigmask(SIG_SETMASK, &wanted, &before_);
    }
    ~abort_blocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    abort_blocked(const abort_blocked&) = delete;
    abort_blocked& operator=(const abort_blocked&) = delete;
    static bool still()
    {
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        return sigismember(&now, SIGABRT) == 1;
    }

  private:
    sigset_t before_{};
};

TEST_F(MonitorThread, StartsAndStops)
{
    captured_output captured;
    EXPECT_FALSE(bm.start_monitor()) << "false is success";
    EXPECT_TRUE(threads_more(1));
    EXPECT_NE(bm.pid, 0U);
    EXPECT_TRUE(monitor_go);
    EXPECT_FALSE(bm.stop_monitor()) << "always false";
    expect_stopped();
    EXPECT_FALSE(bm.start_monitor()) << "and again";
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(MonitorThread, StopsAtOnceHoweverLongItSleeps)
{
    bm.set_monitoring_period(100'000'000);
    ASSERT_FALSE(bm.start_monitor());
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(bm.stop_monitor());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

// No setter looks at its value: none at all spins, a negative one sleeps for more than an hour.
TEST_F(MonitorThread, StartsAndStopsWithAnyPeriod)
{
    for (const int period : {0, -1, INT_MIN, INT_MAX}) {
        bm.set_monitoring_period(period);
        ASSERT_FALSE(bm.start_monitor()) << period;
        EXPECT_TRUE(threads_more(1)) << period;
        EXPECT_FALSE(bm.stop_monitor()) << period;
        expect_stopped();
    }
}

// Nobody asks whether one runs.
TEST_F(MonitorThread, SecondStartRunsASecondThreadAndTheStopEndsBothAtOnce)
{
    bm.set_monitoring_period(100'000'000);
    ASSERT_FALSE(bm.start_monitor());
    ASSERT_FALSE(bm.start_monitor());
    EXPECT_TRUE(threads_more(2));
    EXPECT_FALSE(bm.stop_monitor());
    expect_stopped();
}

TEST_F(MonitorThread, OneWhosePlaceAFailedStartTookEndsWithTheStop)
{
    bm.set_monitoring_period(100'000'000);
    ASSERT_FALSE(bm.start_monitor());
    captured_output captured;
    {
        const fault none_left = fault::fails("pthread_create", EAGAIN);
        EXPECT_TRUE(bm.start_monitor());
    }
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_FALSE(bm.stop_monitor());
    expect_stopped();
    EXPECT_EQ(captured.out() + captured.err(), "Failed to start monitor thread\n");
}

TEST_F(MonitorThread, StopOfOneThatNeverRanTouchesNoFlag)
{
    monitor_go = true;
    EXPECT_FALSE(bm.stop_monitor());
    EXPECT_TRUE(monitor_go);
    monitor_go = false;
}

TEST_F(MonitorThread, SignalHandlerInterruptsAndHoldsItsOwnSignalBack)
{
    ASSERT_FALSE(bm.start_monitor());
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGABRT, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, &monitor_int_handler);
    EXPECT_EQ(action.sa_flags & (SA_RESTART | SA_SIGINFO | SA_RESETHAND | SA_NODEFER), 0);
    for (int number = 1; number < NSIG; ++number)
        EXPECT_EQ(sigismember(&action.sa_mask, number) == 1, number == SIGABRT) << number;
}

TEST_F(MonitorThread, HandlerEndsTheMonitorForThatSignalAlone)
{
    monitor_go = true;
    for (const int number : {0, SIGINT, SIGTERM, SIGUSR1}) monitor_int_handler(number);
    EXPECT_TRUE(monitor_go);
    zrk4::impl::is_reader_thread = true;
    monitor_int_handler(SIGABRT);
    EXPECT_TRUE(monitor_go) << "a reader's thread was meant";
    zrk4::impl::is_reader_thread = false;
    monitor_int_handler(SIGABRT);
    EXPECT_FALSE(monitor_go);
}

TEST_F(MonitorThread, SignalToTheProcessEndsItsMonitor)
{
    ASSERT_FALSE(bm.start_monitor());
    kill(getpid(), SIGABRT);
    EXPECT_TRUE(eventually([] { return !monitor_go; }));
    EXPECT_TRUE(threads_more(0)) << "it leaves at its next look";
    EXPECT_FALSE(bm.stop_monitor());
    EXPECT_EQ(bm.pid, 0U);
}

TEST_F(MonitorThread, CallersSignalMaskIsAsBefore)
{
    const abort_blocked blocked;
    ASSERT_FALSE(bm.start_monitor());
    EXPECT_TRUE(abort_blocked::still());
    EXPECT_FALSE(bm.stop_monitor()) << "the thread can be signalled all the same";
}

// The signals that each thread of this process blocks.
std::vector<unsigned long long> masks_of_threads()
{
    std::vector<unsigned long long> masks;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word == "SigBlk:" && status >> word) masks.push_back(std::stoull(word, nullptr, 16));
        }
    }
    return masks;
}

TEST_F(MonitorThread, ItsThreadBlocksTheSignalsOfTheProgram)
{
    ASSERT_FALSE(bm.start_monitor());
    unsigned long long wanted = 0;
    for (const int number : {SIGIO, SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2}) wanted |= 1ULL << (number - 1);
    // Its mask is set a moment after its start.
    const auto one_blocks_these = [&] {
        const std::vector<unsigned long long> masks = masks_of_threads();
        return std::count(masks.begin(), masks.end(), wanted) == 1;
    };
    EXPECT_TRUE(eventually(one_blocks_these)) << ::testing::PrintToString(masks_of_threads());
}

TEST_F(MonitorThread, AttributeThatCannotBeMade)
{
    const abort_blocked blocked;
    captured_output captured;
    {
        const failing refused(attr_init_call, ENOMEM);
        EXPECT_TRUE(bm.start_monitor()) << "true is failure";
    }
    EXPECT_EQ(captured.out(), "Failed to init attribute for the monitor thread\n");
    EXPECT_FALSE(abort_blocked::still()) << "not restored on this path";
    expect_stopped();
}

TEST_F(MonitorThread, ThreadThatCannotBeMade)
{
    const abort_blocked blocked;
    captured_output captured;
    {
        const fault refused = fault::fails("pthread_create", EAGAIN);
        EXPECT_TRUE(bm.start_monitor());
    }
    EXPECT_EQ(captured.out(), "Failed to start monitor thread\n");
    EXPECT_TRUE(abort_blocked::still());
    expect_stopped();
}

TEST_F(MonitorThread, ThreadThatCannotBeSignalled)
{
    ASSERT_FALSE(bm.start_monitor());
    const std::string thread = std::to_string(bm.pid);
    EXPECT_EQ(texts_of_a_stop_without(kill_call, ESRCH), "Failed to kill my monitoring thread: " + thread + "\n");
}

TEST_F(MonitorThread, ThreadThatCannotBeJoined)
{
    ASSERT_FALSE(bm.start_monitor());
    EXPECT_EQ(texts_of_a_stop_without(join_call, EINVAL), "Joining monitoring thread failed \n");
}

TEST_F(MonitorThread, BodyReturnsAtOnceWithoutTheRunFlag)
{
    bm.set_monitoring_period(100'000'000);
    bm.monitor_exec();
    EXPECT_EQ(monitor_thread(&bm), nullptr) << "the entry too";
}

TEST_F(MonitorThread, EntryBlocksTheSignalsOfTheProgramAndNoOther)
{
    sigset_t before;
    sigset_t behind;
    std::thread([&] {
        pthread_sigmask(SIG_SETMASK, nullptr, &before);
        monitor_thread(&bm);
        pthread_sigmask(SIG_SETMASK, nullptr, &behind);
    }).join();
    for (int number = 1; number < NSIG; ++number) {
        EXPECT_EQ(sigismember(&behind, number), is_for_the_program(number) ? 1 : sigismember(&before, number))
            << number;
    }
}

TEST_F(MonitorThread, MasterHasOneAndNobodyElse)
{
    EXPECT_FALSE(bm.set_master(false)) << "no change";
    EXPECT_EQ(bm.pid, 0U);
    EXPECT_FALSE(bm.set_master(true));
    EXPECT_TRUE(bm.master);
    const pthread_t first = bm.pid;
    EXPECT_NE(first, 0U);
    EXPECT_FALSE(bm.set_master(true)) << "no change";
    EXPECT_EQ(bm.pid, first);
    EXPECT_FALSE(bm.set_master(false));
    EXPECT_FALSE(bm.master);
    expect_stopped();
}

TEST_F(MonitorThread, MasterWithoutOneIsNoMaster)
{
    const captured_output quiet;
    const fault refused = fault::fails("pthread_create", EAGAIN);
    EXPECT_TRUE(bm.set_master(true)) << "true is failure";
    EXPECT_FALSE(bm.master);
}

TEST_F(MonitorThread, NewPeriodRestartsAMastersMonitorOnly)
{
    const long before = calls_of("pthread_create");
    bm.set_monitoring_period(5000);
    EXPECT_EQ(calls_of("pthread_create"), before);
    EXPECT_FALSE(bm.set_master(true));
    bm.set_monitoring_period(1000000);
    EXPECT_EQ(bm.mperiod, 1000000U);
    EXPECT_EQ(calls_of("pthread_create"), before + 2);
    EXPECT_TRUE(threads_more(1)) << "the first one has ended";
    EXPECT_FALSE(bm.set_master(false));
}

// Both threads are ended with the same signal, and the handler of the last one started is in force.
TEST_F(MonitorThread, EndOfAReaderIsNotItsOwn)
{
    handling_bm reader;
    ASSERT_FALSE(reader.start_reader());
    ASSERT_FALSE(bm.start_monitor());
    EXPECT_FALSE(reader.stop_reader());
    EXPECT_TRUE(monitor_go);
    EXPECT_TRUE(threads_more(1));
    ASSERT_FALSE(reader.start_reader());
    EXPECT_FALSE(bm.stop_monitor());
    EXPECT_TRUE(reader.reader_go);
    EXPECT_TRUE(threads_more(1));
    reader.stop_reader();
}

} // namespace
