// Events between real processes: who is told, who ends an event, and what a process leaves behind that dies in between.
#include <atomic>
#include <stdexcept>

#include <sys/wait.h>

#include "../unit/event_host.h"
#include "eventually.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr int SLOTS = 60;

class BmProcesses : public EventHost {
  protected:
    BmProcesses() : EventHost({.event_slots = SLOTS}) {}

    /// What another process does with a buffer manager of its own.
    std::unique_ptr<child> process(std::function<void(open_bm&)> work)
    {
        return std::make_unique<child>([this, work = std::move(work)] {
            open_bm own;
            join(own);
            work(own);
        });
    }
    static int subscribe(open_bm& own, BUF_MNG_CLI_TYPE cltype, std::list<std::string> names)
    {
        zrk4_client none{};
        const int c = own.subscribe(TYPE, cltype, &none, &names);
        EXPECT_GT(c, 0);
        return c;
    }
    /// Puts a block into a buffer of partition `id`. @return its number.
    static int put_into(open_bm& own, int id, const block_spec& b, generation g)
    {
        int bnum = -1;
        char* at = own.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &id, &bnum);
        if (at == nullptr) {
            ADD_FAILURE() << "no buffer left";
            return -1;
        }
        const std::string bytes = head_bytes(b, g);
        std::memcpy(at, bytes.data(), bytes.size());
        return bnum;
    }
    bool enter(const block_spec& b) { return bm.ev_update(TYPE, data_id, put(b)); }
    int free_blocks() { return std::stoi(bm.find_by_id(data_id)->getStat("freebuf")); }
    int free_slots() const { return std::stoi(events_part.getStat("freebuf")); }
};
IN_BOTH_GENERATIONS(BmProcesses);

// ---- what a reader's process is told

struct seen_event {
    int calls, filled, seconds;
    int64_t id;
    char first_name[256];
};
seen_event* seen = nullptr; // in memory that the processes share
latch* told = nullptr;

template <class Head> void look_at(void* at, zrk4_client_sblock_data* first)
{
    const auto* head = static_cast<Head*>(at);
    seen->filled = head->sbfilled;
    seen->seconds = static_cast<int>(head->time.timeup);
    seen->id = head->eventid;
    std::memcpy(seen->first_name, first->name, sizeof first->name);
    ++seen->calls;
    told->open();
}

TEST_P(BmProcesses, ReaderIsCalledOnceItsBlocksAreThere)
{
    const shared<seen_event> event;
    seen = &*event;
    latch ready, heard, leave;
    told = &heard;
    const auto reader = process([&](open_bm& own) {
        own.set_ev_handler(wide() ? look_at<zrk4_event_slot_head_2024> : look_at<zrk4_event_slot_head>);
        subscribe(own, CLI_T_READER, {"B"});
        ready.open();
        leave.wait();
    });
    ready.wait();
    writer({"A", "B"});
    EXPECT_FALSE(enter({.server = "A", .time = {1000, 0}, .mpulse = 4}));
    EXPECT_FALSE(heard.is_open());
    EXPECT_EQ(slot(1).clients(), (std::vector<seen_client>{{1, WAIT}, {2, PROC}}));
    EXPECT_FALSE(enter({.server = "B", .time = {1000, 100}, .mpulse = 8}));
    heard.wait();
    EXPECT_TRUE(eventually([&] { return slot_is_free(1); })) << "the reader is the last one, and ends it";
    EXPECT_EQ(event->filled, 2);
    EXPECT_EQ(event->seconds, 1000);
    EXPECT_EQ(event->id, wide() ? 8 : 12);
    EXPECT_STREQ(event->first_name, "A");
    EXPECT_EQ(free_blocks(), BLOCKS);
    leave.open();
    EXPECT_EQ(reader->wait(), 0);
    EXPECT_EQ(event->calls, 1);
}

TEST_P(BmProcesses, ReaderThatWasToldIsNotToldAgainByOthers)
{
    const shared<seen_event> event;
    seen = &*event;
    latch ready, heard, leave;
    told = &heard;
    const auto reader = process([&](open_bm& own) {
        own.set_ev_handler(wide() ? look_at<zrk4_event_slot_head_2024> : look_at<zrk4_event_slot_head>);
        subscribe(own, CLI_T_READER, {"A"});
        ready.open();
        leave.wait();
    });
    ready.wait();
    writer({"A", "B"});
    EXPECT_FALSE(enter({.server = "A"}));
    heard.wait();
    EXPECT_TRUE(eventually([&] { return slot(1).client_status(0) == DONE; }));
    const auto looking = process([](open_bm& own) { EXPECT_EQ(own.cl_notify(1), 0); });
    EXPECT_EQ(looking->wait(), 0);
    EXPECT_FALSE(enter({.server = "B"})) << "and the event ends";
    EXPECT_TRUE(eventually([&] { return slot_is_free(1); }));
    leave.open();
    EXPECT_EQ(reader->wait(), 0);
    EXPECT_EQ(event->calls, 1);
}

// ---- many at once

TEST_P(BmProcesses, FillEveryEventTogether)
{
    constexpr int WRITERS = 3;
    for (const int smode : {BM_SYNCH_TIME, BM_SYNCH_EVID}) {
        const shared<std::atomic<int>> complete, incomplete;
        static std::atomic<int>*whole, *broken;
        whole = &*complete;
        broken = &*incomplete;
        latch ready(WRITERS + 2), go;
        captured_output captured;
        std::vector<std::unique_ptr<child>> all;
        for (const bool every : {true, false}) {
            all.push_back(process([&, every](open_bm& own) {
                own.set_ev_handler(wide() ? [](void* head, zrk4_client_sblock_data*) {
                    ++*(static_cast<zrk4_event_slot_head_2024*>(head)->sbfilled == WRITERS ? whole : broken);
                } : [](void* head, zrk4_client_sblock_data*) {
                    ++*(static_cast<zrk4_event_slot_head*>(head)->sbfilled == WRITERS ? whole : broken);
                });
                own.set_smode(smode);
                subscribe(own, CLI_T_READER,
                          every ? std::list<std::string>{} : std::list<std::string>{"W0", "W1", "W2"});
                ready.open();
                go.wait();
                EXPECT_TRUE(eventually([&] { return *whole + *broken == 2 * SLOTS; }));
                EXPECT_TRUE(eventually([&] { return free_slots() == SLOTS; }));
            }));
        }
        for (int w = 0; w < WRITERS; ++w) {
            all.push_back(process([&, w](open_bm& own) {
                const std::string name = "W" + std::to_string(w);
                const int id = own.add(("T_" + name).c_str(), SLOTS, BLOCK_LENGTH);
                own.set_smode(smode);
                subscribe(own, CLI_T_WRITER, {name});
                ready.open();
                go.wait();
                for (int i = 0; i < SLOTS; ++i) {
                    const auto key = static_cast<uint32_t>(1000 + i);
                    const int bnum = put_into(own, id, {.server = name, .time = {key, 0}, .mpulse = i + 1}, form);
                    EXPECT_FALSE(own.ev_update(TYPE, id, bnum)) << name << " " << i;
                }
                EXPECT_TRUE(eventually([&] { return own.find_by_id(id)->getStat("freebuf") == std::to_string(SLOTS); }))
                    << "every block of " << name << " is back";
            }));
        }
        ready.wait();
        go.open();
        for (const auto& one : all) EXPECT_EQ(one->wait(), 0);
        EXPECT_EQ(dates_marked(captured.out()), "");
        EXPECT_EQ(*complete, 2 * SLOTS);
        EXPECT_EQ(*incomplete, 0);
        EXPECT_EQ(free_slots(), SLOTS);
    }
}

/// One event slot only: whoever ends an event late would end the next one.
class BmOneSlot : public EventHost {
  protected:
    BmOneSlot() : EventHost({.event_slots = 1}) {}
};
IN_BOTH_GENERATIONS(BmOneSlot);

TEST_P(BmOneSlot, NobodyEndsAnEventThatHasJustBegun)
{
    const shared<std::atomic<bool>> over;
    latch looking(2);
    std::vector<std::unique_ptr<child>> lookers;
    for (int i = 0; i < 2; ++i) {
        lookers.push_back(std::make_unique<child>([&] {
            open_bm own;
            join(own);
            looking.open();
            while (!*over) EXPECT_EQ(own.cl_notify(1), 0);
        }));
    }
    looking.wait();
    writer({"A"});
    const std::string text = said([&] {
        for (unsigned i = 0; i < 400; ++i) {
            const int bnum = put({.server = "A", .time = {1000 + i, 0}});
            ASSERT_GE(bnum, 0) << "a block was lost, " << i;
            // The slot may still be on its way back from the last event.
            ASSERT_TRUE(eventually([&] { return !bm.ev_update(TYPE, data_id, bnum); })) << i;
        }
    });
    *over = true;
    for (const auto& one : lookers) EXPECT_EQ(one->wait(), 0);
    EXPECT_EQ(text.find("UUuups"), std::string::npos);
    EXPECT_EQ(text.find("duplication"), std::string::npos);
    EXPECT_EQ(bm.find_by_id(data_id)->getStat("freebuf"), std::to_string(BLOCKS));
    EXPECT_TRUE(slot_is_free(1));
}

// ---- what others write by hand

TEST_P(BmProcesses, MeetEventsThatOthersBeganByHand)
{
    child by_hand([&] {
        control(3).put(EVT_C_USED, TYPE, {1000, 0}, 7);
        slot(3).put(&slot_layout::nsblocks, 1);
        client({.names = {"A"}, .pid = getppid()});
    });
    ASSERT_EQ(by_hand.wait(), 0);
    EXPECT_FALSE(enter({.server = "A", .time = {1000, 20000}}));
    EXPECT_EQ(slot(3).sbfilled(), 1);
    writer({"A"});
    EXPECT_FALSE(enter({.server = "A", .time = {5000, 0}}));
    EXPECT_EQ(slot(1).clients().front().first, 1) << "the client that was written by hand takes part";
}

// ---- what a process leaves that dies

TEST_P(BmProcesses, DeadClientsAreThrownOutByTheNextEvent)
{
    latch ready(2);
    const auto reader = process([&](open_bm& own) {
        subscribe(own, CLI_T_READER, {"A"});
        ready.open();
        pause();
    });
    const auto other = process([&](open_bm& own) {
        subscribe(own, CLI_T_WRITER, {"B"});
        ready.open();
        pause();
    });
    ready.wait();
    writer({"A"});
    const pid_t first = load<int32_t>(client_at(1));
    const pid_t second = load<int32_t>(client_at(2));
    reader->kill_now();
    other->kill_now();
    const auto line = [](pid_t pid) {
        return "DATE init_ev_slot(): " + std::to_string(pid) + "  will be kicked out\n";
    };
    EXPECT_EQ(said([&] { EXPECT_FALSE(enter({.server = "A"})); }), line(first) + line(second));
    for (const int c : {1, 2}) {
        EXPECT_TRUE(client_is_free(c));
        EXPECT_TRUE(client_is_zero(c));
    }
    int writers = -1;
    int readers = -1;
    bm.cl_subscribed(&writers, &readers);
    EXPECT_EQ(writers, 1);
    EXPECT_EQ(readers, 0);
    EXPECT_TRUE(slot_is_free(1)) << "nobody else had a part in the event";
    a_user_was_killed = true;
}

// A zombie is alive for kill(): only its parent's wait ends it.
TEST_P(BmProcesses, DeadClientsStayUntilTheyAreReaped)
{
    const pid_t zombie = fork();
    if (zombie == 0) _exit(0);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT), 0);
    const int reading = client({.pid = zombie});
    writer({"A", "B"});
    EXPECT_EQ(said([&] { EXPECT_FALSE(enter({.server = "A", .time = {1000, 0}})); }), "");
    EXPECT_EQ(slot(1).clients().front(), (seen_client{reading, WAIT}));
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED), 0);
    EXPECT_EQ(said([&] {
                  EXPECT_FALSE(enter({.server = "A", .time = {2000, 0}}));
              }),
              "DATE init_ev_slot(): " + std::to_string(zombie) + "  will be kicked out\n");
}

latch* in_reader = nullptr;

TEST_P(BmProcesses, ALockOfASlotComesBackFromADeadWriter)
{
    ASSERT_EQ(used_slot({1000, 0}), 1);
    slot(1).put(&slot_layout::nsblocks, 2);
    latch inside;
    in_reader = &inside;
    const int id = data_id;
    const int theirs = put({.server = "A", .time = {1000, 0}});
    const auto dying = process([&](open_bm& own) {
        own.set_get_name_func(TYPE, [](char*) -> char* {
            in_reader->open();
            for (;;) pause();
        });
        own.ev_update(TYPE, id, theirs);
    });
    inside.wait();
    EXPECT_TRUE(event_lock_is_held(1));
    dying->kill_now();
    EXPECT_FALSE(enter({.server = "B", .time = {1000, 0}})) << "neither waits nor fails";
    EXPECT_EQ(slot(1).sbfilled(), 1);
    a_user_was_killed = true;
}

TEST_P(BmProcesses, TheTablesLockComesBackFromADeadWriter)
{
    latch inside;
    in_reader = &inside;
    const int id = data_id;
    const int theirs = put({.server = "A", .time = {1000, 0}});
    const auto dying = process([&](open_bm& own) {
        subscribe(own, CLI_T_WRITER, {"A"});
        own.set_get_trg_func(TYPE, [](char*) -> int {
            in_reader->open();
            for (;;) pause();
        });
        own.ev_update(TYPE, id, theirs);
    });
    inside.wait();
    EXPECT_TRUE(event_lock_is_held(0));
    dying->kill_now();
    writer({"A"});
    said([&] { EXPECT_FALSE(enter({.server = "A", .time = {2000, 0}})); });
    EXPECT_EQ(control(1).status(), EVT_C_USED) << "what it had begun is the monitor's";
    a_user_was_killed = true;
}

TEST_P(BmProcesses, LocksAreFreeForOthersAfterAReaderOfAHeadHasThrown)
{
    writer({"A", "B"});
    bm.set_get_trg_func(TYPE, [](char*) -> int { throw std::runtime_error("of the user's"); });
    EXPECT_TRUE(enter({.server = "A"})) << "thrown while the event begins";
    bm.set_get_trg_func(TYPE, get_trg_known);
    bm.set_get_name_func(TYPE, [](char*) -> char* { throw std::runtime_error("of the user's"); });
    EXPECT_TRUE(enter({.server = "A"})) << "thrown while the block is entered";
    child other([&] {
        for (const int n : {0, 1, 2}) EXPECT_TRUE(events_part.ctrl(n, true)) << n;
        EXPECT_TRUE(clients_part.ctrl(0, true));
    });
    EXPECT_EQ(other.wait(), 0);
}

} // namespace
