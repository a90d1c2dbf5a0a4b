// Clients that live and do nothing: the monitor ends their events in its eleventh look, and they find their way back.
#include <array>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../unit/event_host.h"
#include "../unit/monitor_texts.h"
#include "../unit/udp_inbox.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"
#include "road.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr int EVENTS = 40;

/// Whether a thread of the process stands in a receive. One that a datagram has come for does not.
bool waits_for_datagram(pid_t pid)
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream call(task.path() / "syscall");
        int number = -1;
        if (call >> number && number == SYS_recvfrom) return true;
    }
    return false;
}

/// This process writes block "A" of every event and runs the monitor; the others are children, made before its threads.
/// The monitor shows each of its cycles, so what it says tells when it said it.
class StalledClients : public EventHost {
  protected:
    static constexpr int PERIOD_US = 3000;

    StalledClients() : EventHost({.event_slots = EVENTS + 2}) { join(watching); }
    ~StalledClients() override { watching.stop_monitor(); }

    // ---- events: number `e` goes into slot `e` + 1

    static block_spec block_of(int e, const std::string& server)
    {
        return {.server = server, .time = {1000U + static_cast<uint32_t>(e), 500}, .mpulse = 7 + e};
    }
    static std::string name_of(int e) { return std::to_string(1000 + e) + ":500_" + std::to_string(7 + e); }
    void send(int e, const std::string& server = "A")
    {
        EXPECT_FALSE(bm.ev_update(TYPE, data_id, put(block_of(e, server)))) << "entered";
    }

    /// A writer in a child, subscribed.
    void be_writer(open_bm& its, std::list<std::string> names) const
    {
        join(its);
        its.add("T_DATA");
        zrk4_client none{};
        ASSERT_GT(its.subscribe(TYPE, CLI_T_WRITER, &none, &names), 0);
    }
    void send_from(open_bm& its, int e, const std::string& server) const
    {
        int bnum = -1;
        int id = data_id;
        char* at = its.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &id, &bnum);
        ASSERT_NE(at, nullptr);
        const std::string bytes = head_bytes(block_of(e, server), form);
        std::memcpy(at, bytes.data(), bytes.size());
        EXPECT_FALSE(its.ev_update(TYPE, id, bnum)) << "entered";
    }

    // ---- a reader

    /// A reader's life in a child. Its handler is given the number of the event; what it has said must in the end be
    /// what `expected` tells.
    void read(
        const std::function<void(int)>& handler, const std::function<std::string()>& expected = nothing,
        const std::function<void(open_bm&)>& prepare = [](open_bm&) {})
    {
        captured_output captured;
        open_bm its;
        join(its);
        static std::function<void(int)> on_event;
        static generation its_form;
        on_event = handler;
        its_form = form;
        its.set_ev_handler([](void* head, zrk4_client_sblock_data*) { on_event(event_number(head, its_form)); });
        zrk4_client all{};
        ASSERT_GT(its.subscribe(TYPE, CLI_T_READER, &all, nullptr), 0);
        prepare(its);
        ready.open();
        leave.wait();
        its.all_clean_up();
        EXPECT_EQ(dates_marked(captured.out()) + captured.err(), expected());
    }
    static std::string nothing() { return ""; }
    static std::string is_already_free(int n)
    {
        return "DATE reader_thread: event slot:" + std::to_string(n) + " is already free \n";
    }

    // ---- the monitor

    /// What it says in its first `count` cycles.
    std::string first_cycles(int count, int period = PERIOD_US)
    {
        const debug_level show(SHOW_EVERY_CYCLE);
        captured_output captured;
        watching.set_monitoring_period(period);
        EXPECT_FALSE(watching.start_monitor()) << "false is success";
        EXPECT_TRUE(eventually([&] { return end_of_cycle(times_marked(captured.out()), count) != std::string::npos; }));
        watching.stop_monitor();
        const std::string text = times_marked(captured.out());
        return text.substr(0, end_of_cycle(text, count));
    }
    static size_t end_of_cycle(const std::string& text, int count)
    {
        size_t at = 0;
        for (; count > 0; --count) {
            at = text.find(TOOK, at);
            if (at == std::string::npos) return at;
            at += sizeof TOOK - 1;
        }
        return at;
    }
    std::string cleaning(int e, int bnum, const std::string& server = "A", int filled = 1, int total = 1) const
    {
        return "DATE CLEANING[0]  " + name_of(e) + "  SHMID: " + std::to_string(data_id) +
               "  SLOT: " + std::to_string(bnum) + " filled:ttoal " + std::to_string(filled) + ":" +
               std::to_string(total) + "\nDATE ltotal: 400 server: " + server + "  mask: 0x1 status: 0  nchan: 0\n";
    }
    /// Event `e`, whose only block lies in buffer `e`, is ended.
    std::string ended(int e) const { return suspicious(e + 1, name_of(e)) + cleaning(e, e) + freed(e + 1); }

    bool all_back()
    {
        return eventually([&] { return balance_of(events_part).all_back(1); }) &&
               balance_of(*bm.find_by_id(data_id)).all_back();
    }

    open_bm watching;
    latch ready, leave;
};
IN_BOTH_GENERATIONS(StalledClients);

TEST_P(StalledClients, ReaderStoppedBeforeItHearsIsDoneInTheEleventhCycle)
{
    const shared<std::atomic<int>> sum;
    child reader([&] { read([&](int e) { *sum += 100 + e; }, [] { return is_already_free(1); }); });
    ready.wait();
    writer({"A"});
    reader.stop();
    send(0);
    EXPECT_EQ(first_cycles(11), cycles(10) + ended(0) + TOOK);
    EXPECT_EQ(slot(1).client_status(0), DONE);
    EXPECT_TRUE(all_back());
    reader.go_on();
    send(1);
    EXPECT_TRUE(eventually([&] { return *sum == 101; })) << "the next event comes, the old one never: " << *sum;
    EXPECT_TRUE(all_back());
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
}

TEST_P(StalledClients, ReaderStoppedInItsHandlerKeepsItsEventHoweverLong)
{
    latch in_handler, done;
    child reader([&] {
        read([&](int) {
            in_handler.open();
            done.wait();
        });
    });
    ready.wait();
    writer({"A"});
    send(0);
    in_handler.wait();
    reader.stop();
    const std::string again = suspicious(1, name_of(0)) + kept(1) + TOOK;
    EXPECT_EQ(first_cycles(31), cycles(10) + again + cycles(9) + again + cycles(9) + again);
    EXPECT_EQ(slot(1).client_status(0), PROC);
    EXPECT_FALSE(slot_is_free(1));
    done.open();
    reader.go_on();
    EXPECT_TRUE(all_back()) << "it ends as if nothing had happened";
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
}

TEST_P(StalledClients, EventsBehindAStuckHandlerAreEndedWithoutIt)
{
    latch in_handler, done;
    const shared<std::array<std::atomic<int>, 4>> calls;
    child reader([&] {
        read(
            [&](int e) {
                ++(*calls)[static_cast<size_t>(e)];
                if (e != 0) return;
                in_handler.open();
                done.wait();
            },
            [] { return is_already_free(2) + is_already_free(3); });
    });
    ready.wait();
    writer({"A"});
    send(0);
    in_handler.wait();
    send(1);
    send(2);
    EXPECT_EQ(first_cycles(11), cycles(10) + suspicious(1, name_of(0)) + kept(1) + ended(1) + ended(2) + TOOK);
    done.open();
    EXPECT_TRUE(all_back());
    send(3);
    EXPECT_TRUE(eventually([&] { return (*calls)[3] == 1; }));
    for (const size_t e : {0, 1, 2}) EXPECT_EQ((*calls)[e], e == 0 ? 1 : 0) << e;
    EXPECT_TRUE(all_back());
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
}

TEST_P(StalledClients, DeafReaderCostsOnlyItself)
{
    const shared<std::atomic<int>> sum;
    child deaf([] { pause(); });
    child hearing([&] { read([&](int e) { *sum += 100 + e; }); });
    ready.wait();
    writer({"A"});
    const udp_inbox nobody_listens;
    const int its_slot = client({.pid = deaf.pid(), .port = nobody_listens.port()});
    send(0);
    send(1);
    EXPECT_TRUE(eventually([&] { return *sum == 201; })) << "the other one is called at once";
    EXPECT_EQ(first_cycles(11), cycles(10) + ended(0) + ended(1) + TOOK);
    EXPECT_FALSE(client_is_free(its_slot)) << "it lives";
    EXPECT_TRUE(all_back());
    leave.open();
    EXPECT_EQ(hearing.wait(), 0);
    EXPECT_EQ(*sum, 201) << "and once";
}

TEST_P(StalledClients, EventsThatAFullSocketLostAreEndedAndNoOthers)
{
    const shared<std::array<std::atomic<int>, EVENTS>> calls;
    child reader([&] {
        read([&](int e) { ++(*calls)[static_cast<size_t>(e)]; }, nothing,
             [](open_bm& its) {
                 const int least = 1; // the kernel makes it the smallest that it has
                 setsockopt(its.qid, SOL_SOCKET, SO_RCVBUF, &least, sizeof least);
             });
    });
    ready.wait();
    writer({"A"});
    reader.stop();
    for (int e = 0; e < EVENTS; ++e) send(e);
    reader.go_on();
    // Those that it hears it also ends, and then it waits for another one.
    const auto heard = [&](int e) { return (*calls)[static_cast<size_t>(e)] == 1; };
    ASSERT_TRUE(eventually([&] { return heard(0) && slot_is_free(1); }));
    ASSERT_TRUE(eventually([&] { return waits_for_datagram(reader.pid()); }));
    int lost = 0;
    for (int e = 0; e < EVENTS; ++e) lost += heard(e) ? 0 : 1;
    EXPECT_EQ(balance_of(events_part).queued, EVENTS + 2 - lost);
    ASSERT_GT(lost, 0) << "the socket was not full";
    ASSERT_LT(lost, EVENTS);
    std::string all_lost;
    for (int e = 0; e < EVENTS; ++e) all_lost += heard(e) ? "" : ended(e);
    EXPECT_EQ(first_cycles(11), cycles(10) + all_lost + TOOK);
    EXPECT_TRUE(all_back());
    leave.open();
    EXPECT_EQ(reader.wait(), 0);
    for (const auto& count : *calls) EXPECT_LE(count, 1) << "never twice";
}

TEST_P(StalledClients, EventThatAStoppedWriterOwesABlockIsEnded)
{
    latch go, listed;
    const shared<std::atomic<int>> calls;
    child reader([&] { read([&](int) { ++*calls; }); });
    child late([&] {
        open_bm its;
        be_writer(its, {"B"});
        listed.open();
        go.wait();
        send_from(its, 0, "B"); // begins the event anew
        leave.wait();
        its.all_clean_up();
    });
    ready.wait();
    listed.wait();
    writer({"A"});
    late.stop();
    send(0);
    EXPECT_EQ(first_cycles(11), cycles(10) + suspicious(1, name_of(0)) + cleaning(0, 0, "A", 1, 2) + freed(1) + TOOK);
    EXPECT_TRUE(all_back());
    go.open();
    late.go_on();
    ASSERT_TRUE(eventually([&] { return !slot_is_free(2); }));
    EXPECT_EQ(first_cycles(11), cycles(10) + suspicious(2, name_of(0)) + cleaning(0, 1, "B", 1, 2) + freed(2) + TOOK);
    EXPECT_TRUE(all_back());
    EXPECT_EQ(*calls, 0) << "nobody gets half an event";
    leave.open();
    EXPECT_EQ(late.wait(), 0);
    EXPECT_EQ(reader.wait(), 0);
}

/// A writer that has begun an event of two blocks and stands still.
class StalledAuthor : public StalledClients {
  protected:
    /// `between` runs in the writer when its first block is being entered, under the event's lock.
    void begin_event(const std::function<void()>& between)
    {
        static std::function<void()> in_length;
        open_bm its;
        be_writer(its, {"A", "B"});
        in_length = between;
        its.set_get_length_func(TYPE, [](char* block) {
            in_length();
            return get_len_known(block);
        });
        send_from(its, 0, "A");
        ready.open();
        leave.wait();
        its.all_clean_up();
    }
    /// Returns as a second begins.
    static time_stamp begin_of_a_second()
    {
        const auto seconds = [] {
            timespec now{};
            clock_gettime(CLOCK_REALTIME, &now);
            return now.tv_sec;
        };
        const time_t before = seconds();
        EXPECT_TRUE(eventually([&] { return seconds() > before; }));
        return {static_cast<uint32_t>(seconds()), 0};
    }
    std::string half_an_event() const
    {
        return suspicious(1, name_of(0)) + cleaning(0, 0, "A", 1, 2) + freed(1) + TOOK;
    }
};
IN_BOTH_GENERATIONS(StalledAuthor);

TEST_P(StalledAuthor, KeepsItsEventForTwentyPeriodsOfWholeSeconds)
{
    child author([&] { begin_event([] {}); });
    ready.wait();
    author.stop();
    // Twenty periods are three seconds: not over in the eleventh cycle, and over in the next that asks. Only whole seconds
    // are looked at, so that an update late in its second would leave the eleventh cycle little more than its time.
    slot(1).put_time(&slot_layout::lupdate, begin_of_a_second());
    constexpr int PERIOD = 150'000;
    EXPECT_EQ(first_cycles(21, PERIOD),
              cycles(10) + suspicious(1, name_of(0)) + kept(1) + TOOK + cycles(9) + half_an_event());
    EXPECT_TRUE(all_back());
    author.go_on();
    leave.open();
    EXPECT_EQ(author.wait(), 0);
}

TEST_P(StalledAuthor, IsNotSparedWhereTwentyPeriodsAreNoSecond)
{
    child author([&] { begin_event([] {}); });
    ready.wait();
    author.stop();
    EXPECT_EQ(first_cycles(11, 49'000), cycles(10) + half_an_event());
    author.go_on();
    leave.open();
    EXPECT_EQ(author.wait(), 0);
}

TEST_P(StalledAuthor, StoppedWithTheEventsLockHoldsNobodyUp)
{
    latch in_lock, go;
    child author([&] {
        begin_event([&] {
            in_lock.open();
            go.wait();
        });
    });
    in_lock.wait();
    author.stop();
    EXPECT_TRUE(event_lock_is_held(1));
    EXPECT_EQ(first_cycles(11), cycles(10) + half_an_event());
    EXPECT_TRUE(all_back());
    go.open();
    author.go_on();
    ready.wait();
    EXPECT_EQ(locks_held(), "");
    EXPECT_TRUE(all_back()) << "and nothing went back a second time";
    leave.open();
    EXPECT_EQ(author.wait(), 0);
}

} // namespace
