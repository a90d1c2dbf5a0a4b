// Clients of processes that are gone: the first event that would wait for them throws them out.
#include <csignal>

#include "event_host.h"

using namespace zrk4::test;

namespace {

class BmKickOut : public EventHost {
  protected:
    bystanders others;
};
IN_BOTH_GENERATIONS(BmKickOut);

TEST_P(BmKickOut, KicksOutClientsOfProcessesThatAreGone)
{
    const int ours = writer({"A"});
    const pid_t dead = dead_pid();
    const int reading = client({.names = {"A"}, .pid = dead});
    const int writing = client({.cltype = CLI_T_WRITER, .names = {"B"}, .pid = dead});
    const int of_another_type = client({.pid = dead, .evtype = TYPE + 1});
    int n = -1;
    const std::string line = "DATE init_ev_slot(): " + std::to_string(dead) + "  will be kicked out\n";
    EXPECT_EQ(said([&] { n = init_slot(); }), line + line);
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{ours, PROC}}));
    EXPECT_EQ(slot(n).nsblocks(), 1);
    for (const int c : {reading, writing}) {
        EXPECT_TRUE(client_is_free(c));
        EXPECT_TRUE(client_is_zero(c));
    }
    EXPECT_FALSE(client_is_free(of_another_type)) << "it takes no part in this event";
}

TEST_P(BmKickOut, CountsKickedOutClientsDown)
{
    writer({"A"});
    zrk4_client none{};
    child subscriber([&] {
        open_bm other;
        join(other);
        std::list<std::string> names{"B"};
        EXPECT_GT(other.subscribe(TYPE, CLI_T_WRITER, &none, &names), 0);
        raise(SIGKILL);
    });
    subscriber.wait();
    int writers = 0;
    bm.cl_subscribed(&writers, nullptr);
    EXPECT_EQ(writers, 2);
    init_slot();
    bm.cl_subscribed(&writers, nullptr);
    EXPECT_EQ(writers, 1);
    a_user_was_killed = true;
}

TEST_P(BmKickOut, NeverClosesTheSocketOfAKickedOutReader)
{
    writer({"A"});
    zrk4_client every{};
    const pid_t dead = dead_pid();
    const int reading = bm.subscribe(TYPE, CLI_T_READER, &every, nullptr);
    const int port = bm.port;
    const int socket = bm.qid;
    // The kernel has given the dead reader's port to us.
    const int gone = client({.pid = dead, .port = port});
    int n = -1;
    said([&] { n = init_slot(); });
    EXPECT_TRUE(client_is_free(gone));
    EXPECT_EQ(slot(n).clients().back(), (seen_client{reading, WAIT}));
    EXPECT_EQ(bm.port, port);
    EXPECT_EQ(bm.qid, socket);
    bm.unsubscribe(TYPE, CLI_T_READER);
}

// Whoever subscribes holds its slot's lock while it waits for the control record: to wait here would be for ever.
TEST_P(BmKickOut, LeavesADeadClientWhoseSlotIsLocked)
{
    const int ours = writer({"A"});
    const pid_t dead = dead_pid();
    const int reading = client({.pid = dead});
    const std::string line = "DATE init_ev_slot(): " + std::to_string(dead) + "  will be kicked out\n";
    int n = -1;
    clients_part.ctrl(reading, true);
    EXPECT_EQ(said([&] { n = init_slot(); }), line);
    EXPECT_EQ(slot(n).clients(), (std::vector<seen_client>{{ours, PROC}}));
    EXPECT_FALSE(client_is_free(reading));
    clients_part.ctrl(reading, false);
    EXPECT_EQ(said([&] { init_slot(); }), line) << "the next event has it out";
    EXPECT_TRUE(client_is_free(reading));
}

TEST_P(BmKickOut, NeverKicksOutItsOwnProcessOrOneThatLives)
{
    const pid_t other = others.one_more();
    writer({"A"});
    client({});
    client({.pid = other});
    int n = -1;
    EXPECT_EQ(said([&] { n = init_slot(); }), "");
    EXPECT_EQ(slot(n).nclients(), 3);
}

// ---- many slots

class BmClientsAmongMany : public EventHost {
  protected:
    BmClientsAmongMany() : EventHost({.client_slots = 500, .client_length = 305}) {}
};
IN_BOTH_GENERATIONS(BmClientsAmongMany);

TEST_P(BmClientsAmongMany, MeetsClientsFarBehindTheOthers)
{
    const int ours = writer({"A"});
    std::vector<int> between;
    for (int i = 0; i < 400; ++i) between.push_back(client({.cltype = CLI_T_INVAL}));
    const int far = client({});
    EXPECT_EQ(slot(init_slot()).clients(), (std::vector<seen_client>{{ours, PROC}, {far, WAIT}}));
    for (const int c : between) clients_part.return_buffer(c);
    EXPECT_EQ(slot(init_slot()).clients(), (std::vector<seen_client>{{ours, PROC}, {far, WAIT}}));
}

} // namespace
