// Start and end of the reader thread, and its socket.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>

#include "bm_core.h"
#include "reader_host.h"
#include "thread_calls.h"

// A thread that is made impossible to stop, or is not told to, sits in its call while its socket is closed.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions()
{
    return "race:BM::remove_queue";
}

using namespace zrk4::test;

namespace {

/// A buffer manager that meets nobody: what the socket and the thread need, and no more.
class ReaderStart : public testing::Test {
  protected:
    ~ReaderStart() override
    {
        bm.stop_reader();
        EXPECT_TRUE(no_thread_more()) << "threads left";
        EXPECT_EQ(sockets_now(), sockets_ + (bm.qid == -1 ? 0 : 1)) << "sockets left";
    }
    // One that was joined can be seen a moment longer.
    bool no_thread_more() const
    {
        return eventually([&] { return threads_now() == threads_; });
    }
    void expect_nothing_started() const
    {
        EXPECT_EQ(bm.qid, -1);
        EXPECT_EQ(bm.port, -1);
        EXPECT_EQ(bm.rid, static_cast<pthread_t>(-1));
        EXPECT_FALSE(bm.reader_go);
        EXPECT_TRUE(no_thread_more());
        EXPECT_EQ(sockets_now(), sockets_);
    }
    static sockaddr_in address_of(int socket)
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        return address;
    }
    static int option_of(int socket, int name)
    {
        int value = -1;
        socklen_t length = sizeof value;
        EXPECT_EQ(getsockopt(socket, SOL_SOCKET, name, &value, &length), 0);
        return value;
    }

    handling_bm bm;

  private:
    const long threads_ = threads_now();
    const long sockets_ = sockets_now();
};

// ---- start -----------------------------------------------------------------------------------------------------------

TEST_F(ReaderStart, OpensASocketOnAnyAddressAndRunsAThread)
{
    const long threads = threads_now();
    EXPECT_FALSE(bm.start_reader()) << "false: the thread runs";
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_TRUE(bm.reader_go);
    EXPECT_NE(bm.rid, static_cast<pthread_t>(-1));
    const sockaddr_in address = address_of(bm.qid);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_GT(bm.port, 0);
    EXPECT_EQ(bm.port, ntohs(address.sin_port)) << "in host order";
    EXPECT_EQ(option_of(bm.qid, SO_TYPE), SOCK_DGRAM);
}

TEST_F(ReaderStart, PortCannotBeHadByAnother)
{
    ASSERT_FALSE(bm.start_reader());
    EXPECT_EQ(option_of(bm.qid, SO_REUSEADDR), 0);
    const int thief = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    ASSERT_EQ(setsockopt(thief, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    sockaddr_in address = address_of(bm.qid);
    EXPECT_NE(bind(thief, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(errno, EADDRINUSE);
    close(thief);
}

TEST_F(ReaderStart, SocketHoldsMoreThanOneOfDefaultSize)
{
    const int plain = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_FALSE(bm.start_reader());
    EXPECT_GT(option_of(bm.qid, SO_RCVBUF), option_of(plain, SO_RCVBUF));
    close(plain);
}

TEST_F(ReaderStart, SocketThatIsGrantedNothingMoreServesAllTheSame)
{
    // The first call asks for SO_REUSEADDR, which it must have.
    const fault refused = fault::fails("setsockopt", EPERM, /*nth=*/2, FOR_EVER);
    EXPECT_FALSE(bm.start_reader());
    EXPECT_GE(refused.fired(), 3);
}

TEST_F(ReaderStart, SecondStartChangesNothing)
{
    ASSERT_FALSE(bm.start_reader());
    const long threads = threads_now();
    const int port = bm.port;
    const int socket = bm.qid;
    EXPECT_FALSE(bm.start_reader());
    EXPECT_EQ(threads_now(), threads);
    EXPECT_EQ(bm.port, port);
    EXPECT_EQ(bm.qid, socket);
}

TEST_F(ReaderStart, SocketThatOnlySentMakesRoom)
{
    const long before = sockets_now();
    bm.qid = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_FALSE(bm.start_reader());
    EXPECT_GT(bm.port, 0);
    EXPECT_EQ(sockets_now(), before + 1);
}

TEST_F(ReaderStart, HandlerOfTheStopSignalInterruptsAndDoesNothing)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGABRT, &action, nullptr);
    ASSERT_FALSE(bm.start_reader());
    ASSERT_EQ(sigaction(SIGABRT, nullptr, &action), 0);
    EXPECT_EQ(action.sa_flags & (SA_RESTART | SA_SIGINFO | SA_RESETHAND | SA_NODEFER), 0);
    for (int number = 1; number < NSIG; ++number) EXPECT_NE(sigismember(&action.sa_mask, number), 1) << number;
    ASSERT_NE(action.sa_handler, SIG_DFL);
    ASSERT_NE(action.sa_handler, SIG_IGN);
    raise(SIGABRT);
    EXPECT_TRUE(bm.reader_go);
}

TEST_F(ReaderStart, CallersSignalMaskIsAsBefore)
{
    sigset_t wanted, before, now;
    sigemptyset(&wanted);
    for (const int number : {SIGABRT, SIGUSR2}) sigaddset(&wanted, number);
    pthread_sigmask(SIG_SETMASK, &wanted, &before);
    EXPECT_FALSE(bm.start_reader());
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    for (int number = 1; number < NSIG; ++number)
        EXPECT_EQ(sigismember(&now, number), number == SIGABRT || number == SIGUSR2 ? 1 : 0) << number;
    EXPECT_FALSE(bm.stop_reader()) << "the thread can be signalled although its maker cannot";
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// ---- start that fails ------------------------------------------------------------------------------------------------

struct failure {
    const char* call;
    int error;
    int nth;
    const char* err;
    const char* out;
};

void PrintTo(const failure& f, std::ostream* os) { *os << f.call << " " << strerror(f.error); }

class ReaderStartFails : public ReaderStart, public testing::WithParamInterface<failure> {};

INSTANTIATE_TEST_SUITE_P(
    Calls, ReaderStartFails,
    testing::Values(failure{"socket", EMFILE, 1, "socket: Too many open files\n", "Failed to create socket\n"},
                    failure{"socket", EACCES, 1, "socket: Permission denied\n", "Failed to create socket\n"},
                    failure{"setsockopt", EINVAL, 1, "setsockopt: Invalid argument\n", "Failed to set socket option\n"},
                    failure{"bind", EADDRINUSE, 1, "bind: Address already in use\n", "Failed to bind\n"}),
    [](const auto& one) { return one.param.call + std::to_string(one.index); });

TEST_P(ReaderStartFails, WithItsTextsAndNothingLeftOpen)
{
    const failure f = GetParam();
    captured_output captured;
    {
        const fault refused = fault::fails(f.call, f.error, f.nth);
        EXPECT_TRUE(bm.start_reader()) << "true is failure";
        EXPECT_EQ(refused.fired(), 1);
    }
    EXPECT_EQ(captured.err(), f.err);
    EXPECT_EQ(captured.out(), f.out);
    expect_nothing_started();
    EXPECT_FALSE(bm.start_reader()) << "and it can be tried again";
}

TEST_P(ReaderStartFails, AlsoForASocketThatOnlySent)
{
    const failure f = GetParam();
    captured_output captured;
    bm.qid = socket(AF_INET, SOCK_DGRAM, 0);
    const fault refused = fault::fails(f.call, f.error, f.nth);
    EXPECT_TRUE(bm.start_reader());
    expect_nothing_started();
}

TEST_F(ReaderStart, AttributeThatCannotBeMade)
{
    captured_output captured;
    const failing refused(attr_init_call, ENOMEM);
    EXPECT_TRUE(bm.start_reader());
    EXPECT_EQ(captured.out(), "Failed to init attribute for the thread\n");
    EXPECT_EQ(captured.err(), "");
    expect_nothing_started();
}

TEST_F(ReaderStart, ThreadThatCannotBeMade)
{
    sigset_t wanted, before, now;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGABRT);
    pthread_sigmask(SIG_SETMASK, &wanted, &before);
    captured_output captured;
    {
        const fault refused = fault::fails("pthread_create", EAGAIN);
        EXPECT_TRUE(bm.start_reader());
    }
    EXPECT_EQ(captured.out(), "Failed to start reader thread\n");
    EXPECT_EQ(captured.err(), "");
    expect_nothing_started();
    pthread_sigmask(SIG_SETMASK, &before, &now);
    EXPECT_EQ(sigismember(&now, SIGABRT), 1) << "the mask is as before";
    EXPECT_FALSE(bm.start_reader());
}

TEST_F(ReaderStart, PortThatCannotBeLearntFailsWhileTheThreadRuns)
{
    const long threads = threads_now();
    captured_output captured;
    {
        const fault refused = fault::fails("getsockname", ENOBUFS);
        EXPECT_TRUE(bm.start_reader()) << "there is no socket";
    }
    ASSERT_TRUE(eventually([&] { return calls_of("recv") > 0; }));
    EXPECT_NE(captured.err().find("getsockname: No buffer space available\n"), std::string::npos);
    EXPECT_NE(captured.out().find("Failed to getsockname\n"), std::string::npos);
    EXPECT_EQ(bm.qid, -1);
    EXPECT_EQ(bm.port, -1) << "nobody subscribes with it";
    EXPECT_EQ(threads_now(), threads + 1);
    const int joined = made(join_call);
    EXPECT_FALSE(bm.start_reader()) << "tried again";
    EXPECT_GT(bm.port, 0);
    EXPECT_GT(made(join_call), joined);
    EXPECT_TRUE(eventually([&] { return threads_now() == threads + 1; })) << "the deaf thread is gone";
}

TEST_F(ReaderStart, SocketZeroIsTakenForAFailureAlthoughTheThreadRuns)
{
    child without_standard_input([] {
        close(0);
        handling_bm here;
        const long threads = threads_now();
        EXPECT_TRUE(here.start_reader());
        EXPECT_EQ(here.qid, 0);
        EXPECT_GT(here.port, 0);
        EXPECT_EQ(threads_now(), threads + 1);
        here.stop_reader();
        EXPECT_EQ(here.qid, -1);
    });
    EXPECT_EQ(without_standard_input.wait(), 0);
}

// ---- stop ------------------------------------------------------------------------------------------------------------

TEST_F(ReaderStart, StopOfAReaderThatNeverRanIsNothing)
{
    captured_output captured;
    const int before = made(kill_call);
    for (const unsigned long none : {static_cast<unsigned long>(-1), 0UL}) {
        bm.rid = none;
        EXPECT_FALSE(bm.stop_reader());
    }
    bm.rid = static_cast<pthread_t>(-1);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(made(kill_call), before);
}

TEST_F(ReaderStart, StopLeavesASocketThatOnlySendsOpen)
{
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    bm.qid = sender;
    EXPECT_FALSE(bm.stop_reader());
    EXPECT_EQ(bm.qid, sender);
    EXPECT_EQ(option_of(sender, SO_TYPE), SOCK_DGRAM) << "open";
}

TEST_F(ReaderStart, StopEndsTheThreadAndClosesTheSocket)
{
    const long before = calls_of("recv");
    ASSERT_FALSE(bm.start_reader());
    ASSERT_TRUE(eventually([&] { return calls_of("recv") > before; })) << "it waits for a datagram";
    captured_output captured;
    EXPECT_FALSE(bm.stop_reader()) << "always false";
    expect_nothing_started();
    EXPECT_EQ(captured.out() + captured.err(), "") << "a stop is no receive error";
    EXPECT_FALSE(bm.stop_reader());
    EXPECT_FALSE(bm.start_reader()) << "and it can be started again";
}

TEST_F(ReaderStart, StopSignalsAgainUntilTheThreadHasHeard)
{
    // The first receive overhears one signal, as a thread does that is between its look at the flag and the call.
    const fault deaf = fault::preceded("recv", [] {
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGABRT);
        int number = 0;
        pthread_sigmask(SIG_BLOCK, &stop, nullptr);
        sigwait(&stop, &number);
        pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    });
    const int before = made(kill_call);
    ASSERT_FALSE(bm.start_reader());
    ASSERT_TRUE(eventually([&] { return deaf.fired() == 1; }));
    EXPECT_FALSE(bm.stop_reader());
    EXPECT_GE(made(kill_call) - before, 2);
}

TEST_F(ReaderStart, ThreadThatCannotBeSignalled)
{
    ASSERT_FALSE(bm.start_reader());
    const pthread_t thread = bm.rid;
    const int socket = dup(bm.qid);
    captured_output captured;
    {
        const failing refused(kill_call, ESRCH);
        EXPECT_FALSE(bm.stop_reader());
    }
    EXPECT_EQ(captured.out(), "Failed to kill my reading thread: " + std::to_string(thread) + "\n");
    EXPECT_EQ(bm.rid, static_cast<pthread_t>(-1));
    EXPECT_EQ(bm.port, -1);
    EXPECT_EQ(bm.qid, -1) << "its socket is closed all the same";
    pthread_kill(thread, SIGABRT);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    close(socket);
}

TEST_F(ReaderStart, ThreadThatCannotBeJoined)
{
    ASSERT_FALSE(bm.start_reader());
    const pthread_t thread = bm.rid;
    captured_output captured;
    {
        const failing refused(join_call, EINVAL);
        EXPECT_FALSE(bm.stop_reader());
    }
    EXPECT_EQ(captured.out(), "Joining reading thread failed \n");
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(bm.rid, static_cast<pthread_t>(-1));
    EXPECT_EQ(bm.port, -1);
    EXPECT_EQ(bm.qid, -1);
}

TEST_F(ReaderStart, CleanUpAndDestructorStopTheThread)
{
    {
        handling_bm one;
        EXPECT_FALSE(one.start_reader());
        one.all_clean_up();
        EXPECT_TRUE(no_thread_more());
        EXPECT_EQ(one.port, -1);
        EXPECT_FALSE(one.start_reader());
        one.forced_clean();
        EXPECT_TRUE(no_thread_more());
        EXPECT_FALSE(one.start_reader());
    }
    EXPECT_TRUE(no_thread_more());
}

// ---- the socket of a client slot ----------------------------------------------------------------------------------------

TEST_F(ReaderStart, QueueOfAnotherProcessIsNotClosed)
{
    ASSERT_FALSE(bm.start_reader());
    const int socket = bm.qid;
    const int port = bm.port;
    int none = -1, negative = -5, other = port == 1 ? 2 : port - 1;
    bm.remove_queue(&none);
    bm.remove_queue(&negative);
    bm.remove_queue(&other);
    EXPECT_EQ(none, -1);
    EXPECT_EQ(negative, -5) << "untouched";
    EXPECT_EQ(other, -1);
    EXPECT_EQ(bm.qid, socket);
    EXPECT_EQ(bm.port, port);
    EXPECT_EQ(option_of(socket, SO_TYPE), SOCK_DGRAM) << "open";
}

TEST_F(ReaderStart, OwnQueueIsClosed)
{
    ASSERT_FALSE(bm.start_reader());
    const int socket = bm.qid;
    int own = bm.port;
    bm.remove_queue(&own);
    EXPECT_EQ(own, -1);
    EXPECT_EQ(bm.qid, -1);
    EXPECT_EQ(bm.port, -1);
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(ReaderStart, QueueOfANumberBeforeAnyReaderIsForgotten)
{
    int port = 4711;
    bm.remove_queue(&port);
    EXPECT_EQ(port, -1);
    EXPECT_EQ(bm.qid, -1);
}

// ---- by a subscription -----------------------------------------------------------------------------------------------

class ReaderSubscribes : public ReaderHost {
  protected:
    int port_in_slot(int c) const { return load<int32_t>(client_at(c) + 40); }
};
IN_BOTH_GENERATIONS(ReaderSubscribes);

TEST_P(ReaderSubscribes, FirstOneStartsTheThreadLastOneStopsIt)
{
    const long threads = threads_now();
    const int first = listen();
    const int second = reading.subscribe(ZRK4_EV_BOR, CLI_T_READER, std::make_unique<zrk4_client>().get(), nullptr);
    EXPECT_EQ(threads_now(), threads + 1);
    EXPECT_EQ(port_in_slot(first), reading.port);
    EXPECT_EQ(port_in_slot(second), reading.port);
    EXPECT_EQ(reading.unsubscribe(TYPE, CLI_T_READER), first);
    EXPECT_GT(reading.port, 0);
    EXPECT_EQ(reading.unsubscribe(ZRK4_EV_BOR, CLI_T_READER), second);
    EXPECT_EQ(reading.port, -1);
    EXPECT_TRUE(eventually([&] { return threads_now() == threads; }));
}

TEST_P(ReaderSubscribes, OneWhoseThreadCannotBeHadGetsNoSlot)
{
    captured_output captured;
    zrk4_client all{};
    for (const char* call : {"socket", "setsockopt", "bind", "getsockname", "pthread_create"}) {
        const fault refused = fault::fails(call, EAGAIN);
        EXPECT_EQ(reading.subscribe(TYPE, CLI_T_READER, &all, nullptr), -1) << call;
        EXPECT_EQ(refused.fired(), 1);
    }
    EXPECT_TRUE(client_is_free(1)) << "no slot was taken";
    EXPECT_GT(reading.subscribe(TYPE, CLI_T_READER, &all, nullptr), 0);
}

TEST_P(ReaderSubscribes, OneThatNotifiedOthersBeforeHearsAsWell)
{
    ASSERT_GT(reading.subscribe(TYPE, CLI_T_WRITER, std::make_unique<zrk4_client>().get(), nullptr), 0);
    const int other = client({});
    store<int32_t>(client_at(other) + 40, 9);
    const int n = used_slot();
    slot(n).add_client(other, WAIT);
    EXPECT_EQ(reading.cl_notify(n), 1);
    EXPECT_GE(reading.qid, 0) << "it has a socket now, to send with";
    EXPECT_EQ(reading.port, -1);
    const int reader = listen();
    EXPECT_GT(reading.port, 0);
    const int event = notified_event(reader);
    deliver(message_of(event, reader));
    EXPECT_EQ(calls, 1);
}

TEST_P(ReaderSubscribes, ThreadBlocksTheSignalsOfTheProgramAndNotItsOwn)
{
    const int reader = listen();
    const int n = notified_event(reader);
    sigset_t mask;
    sigemptyset(&mask);
    on_event = [&](void*, zrk4_client_sblock_data*) { pthread_sigmask(SIG_SETMASK, nullptr, &mask); };
    deliver(message_of(n, reader));
    ASSERT_EQ(calls, 1);
    for (const int number : {SIGIO, SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2})
        EXPECT_EQ(sigismember(&mask, number), 1) << number;
    for (const int number : {SIGABRT, SIGHUP, SIGSEGV, SIGPIPE, SIGCHLD})
        EXPECT_EQ(sigismember(&mask, number), 0) << number;
}

// Called by a thread of the program, the entry leaves nothing else behind in it.
TEST_F(ReaderStart, EntryBlocksTheSignalsOfTheProgramAndNoOther)
{
    sigset_t before;
    sigset_t behind;
    bool marked = true;
    std::thread([&] {
        pthread_sigmask(SIG_SETMASK, nullptr, &before);
        EXPECT_EQ(reader_thread(&bm), nullptr);
        pthread_sigmask(SIG_SETMASK, nullptr, &behind);
        marked = zrk4::impl::is_reader_thread;
    }).join();
    for (int number = 1; number < NSIG; ++number) {
        EXPECT_EQ(sigismember(&behind, number), is_for_the_program(number) ? 1 : sigismember(&before, number))
            << number;
    }
    EXPECT_FALSE(marked);
}

TEST_P(ReaderSubscribes, StopWaitsForTheHandlerWithoutSignallingItAgain)
{
    const int reader = listen();
    const int n = notified_event(reader);
    std::atomic<bool> stopping{false};
    const int joined = made(join_call);
    const int signalled = made(kill_call);
    on_event = [&](void*, zrk4_client_sblock_data*) {
        EXPECT_TRUE(eventually([&] { return made(join_call) >= joined + 4; })) << "three times 50 ms have passed";
        EXPECT_TRUE(stopping);
    };
    send(message_of(n, reader));
    ASSERT_TRUE(eventually([&] { return calls == 1; }));
    stopping = true;
    EXPECT_FALSE(reading.stop_reader());
    EXPECT_EQ(made(kill_call), signalled + 1) << "the first one, and none while the program's code runs";
    see_all();
    EXPECT_EQ(slot(n).client_status(0), DONE) << "the event that was being read is done";
    EXPECT_TRUE(slot_is_free(n));
}

} // namespace
