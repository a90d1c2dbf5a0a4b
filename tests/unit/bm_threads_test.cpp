// Threads of one process on one object: writers of the same events beside the process's own reader.
#include <atomic>
#include <csignal>
#include <thread>

#include <sys/time.h>

#include "event_host.h"
#include "eventually.h"

using namespace zrk4::test;

namespace {

constexpr int EVENTS = 60;

std::atomic<int> complete{0};
std::atomic<int> incomplete{0};

class BmThreads : public EventHost {
  protected:
    BmThreads() : EventHost({.event_slots = EVENTS + 4}) { complete = incomplete = 0; }

    /// Enters the thread's own block into event after event.
    void write(const std::string& name, int id, int wanted)
    {
        for (int i = 0; i < wanted; ++i) {
            int bnum = -1;
            int from = id;
            char* at = bm.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &from, &bnum);
            ASSERT_NE(at, nullptr);
            const auto key = static_cast<uint32_t>(1000 + i);
            const std::string bytes = head_bytes({.server = name, .time = {key, 0}, .mpulse = i + 1}, form);
            std::memcpy(at, bytes.data(), bytes.size());
            EXPECT_FALSE(bm.ev_update(TYPE, id, bnum)) << name << i;
        }
    }
    int free_buffers(int id) { return std::stoi(bm.find_by_id(id)->getStat("freebuf")); }
    int free_slots() const { return std::stoi(events_part.getStat("freebuf")); }
};
IN_BOTH_GENERATIONS(BmThreads);

void count_blocks(int filled) { ++(filled == 3 ? complete : incomplete); }

TEST_P(BmThreads, FillTheSameEventsBesideTheirReader)
{
    bm.set_ev_handler(
        wide() ? [](void* head,
                    zrk4_client_sblock_data*) { count_blocks(static_cast<zrk4_event_slot_head_2024*>(head)->sbfilled); }
               : [](void* head, zrk4_client_sblock_data*) {
                     count_blocks(static_cast<zrk4_event_slot_head*>(head)->sbfilled);
                 });
    writer({"A", "B", "C"});
    zrk4_client every{};
    ASSERT_GT(bm.subscribe(TYPE, CLI_T_READER, &every, nullptr), 0);
    const int ids[] = {bm.add("T_A", EVENTS, BLOCK_LENGTH), bm.add("T_B", EVENTS, BLOCK_LENGTH),
                       bm.add("T_C", EVENTS, BLOCK_LENGTH)};
    const std::string text = said([&] {
        std::thread a([&] { write("A", ids[0], EVENTS); });
        std::thread b([&] { write("B", ids[1], EVENTS); });
        write("C", ids[2], EVENTS);
        a.join();
        b.join();
        EXPECT_TRUE(eventually([&] { return free_slots() == EVENTS + 4; }));
        bm.unsubscribe(TYPE, CLI_T_READER);
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(complete, EVENTS);
    EXPECT_EQ(incomplete, 0);
    for (const int id : ids) EXPECT_EQ(free_buffers(id), EVENTS);
}

/// A signal every 200 us to whichever thread takes it; its handler interrupts what that thread waits in.
class signal_storm {
  public:
    signal_storm()
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        start({0, 200});
    }
    ~signal_storm() { start({0, 0}); }
    signal_storm(const signal_storm&) = delete;
    signal_storm& operator=(const signal_storm&) = delete;

  private:
    static void start(timeval every)
    {
        const itimerval timer{every, every};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
};

TEST_P(BmThreads, GoOnUnderAStormOfSignals)
{
    bm.set_ev_handler([](void*, zrk4_client_sblock_data*) { ++complete; });
    writer({"A"});
    zrk4_client every{};
    ASSERT_GT(bm.subscribe(TYPE, CLI_T_READER, &every, nullptr), 0);
    const int id = bm.add("T_A", EVENTS, BLOCK_LENGTH);
    const std::string text = said([&] {
        const signal_storm storm;
        write("A", id, EVENTS);
        EXPECT_TRUE(eventually([] { return complete == EVENTS; }));
        EXPECT_GT(bm.unsubscribe(TYPE, CLI_T_READER), 0);
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(free_slots(), EVENTS + 4);
    EXPECT_EQ(free_buffers(id), EVENTS);
}

// Each thread ends its own events: they meet in the free queue, in the table, and in the writer's client slot.
TEST_P(BmThreads, EndTheirOwnEventsAtOnce)
{
    writer({"A"});
    const int ids[] = {bm.add("T_A", EVENTS, BLOCK_LENGTH), bm.add("T_B", EVENTS, BLOCK_LENGTH)};
    const auto write_own = [&](int thread) {
        for (int i = 0; i < EVENTS; ++i) {
            int bnum = -1;
            int from = ids[thread];
            char* at = bm.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &from, &bnum);
            ASSERT_NE(at, nullptr);
            const auto key = static_cast<uint32_t>(1000 * (thread + 1) + i);
            const std::string bytes = head_bytes({.time = {key, 0}, .mpulse = key}, form);
            std::memcpy(at, bytes.data(), bytes.size());
            EXPECT_FALSE(bm.ev_update(TYPE, from, bnum));
        }
    };
    EXPECT_EQ(said([&] {
                  std::thread other([&] { write_own(0); });
                  write_own(1);
                  other.join();
              }),
              "");
    EXPECT_EQ(free_slots(), EVENTS + 4);
    for (const int id : ids) EXPECT_EQ(free_buffers(id), EVENTS);
}

} // namespace
