// Progress of one client on one event, and whether it has what it wants.
#include <algorithm>
#include <climits>

#include "event_host.h"
#include "fault.h"

using namespace zrk4::test;

namespace {

class BmClientStatus : public EventHost {
  protected:
    BmClientStatus() { used_slot(); }

    bool set(int client_slot, BUF_MNG_CLI_STATUS status) { return bm.set_cl_status(1, client_slot, status); }
    bool has_all(int client_slot) { return bm.check_if_all_collected(1, client_slot); }
    void collect(const std::vector<std::string>& names)
    {
        for (const std::string& name : names) slot(1).add_entry(name, data_id, 1);
    }
    static std::vector<std::string> many_names(int count)
    {
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i) names.push_back("N" + std::to_string(i));
        return names;
    }
};
IN_BOTH_GENERATIONS(BmClientStatus);

// ---- set_cl_status

TEST_P(BmClientStatus, IsSetInTheEventAndRenewsTheClient)
{
    const int reading = client({});
    slot(1).add_client(99, WAIT);
    slot(1).add_client(reading, WAIT);
    time_stamp none{0, 0};
    for (const auto status : {CLI_S_NTF, CLI_S_PROC, CLI_S_WAIT, CLI_S_INVAL}) {
        time_stamp before{};
        bm.get_cur_time(&before);
        store(client_at(reading) + 4, time_stamp{1, 1});
        EXPECT_EQ(said([&] { EXPECT_FALSE(set(reading, status)) << "false is success"; }), "");
        EXPECT_EQ(slot(1).client_status(1), status);
        EXPECT_EQ(client_events(reading), 0);
        time_stamp renewed = client_atime(reading);
        EXPECT_TRUE(bm.time_expired(&renewed, &before, &none));
    }
    EXPECT_EQ(slot(1).client_status(0), WAIT);
}

TEST_P(BmClientStatus, CountsAnEventWhenItIsDone)
{
    const int writing = client({.cltype = CLI_T_WRITER});
    slot(1).add_client(writing, PROC);
    EXPECT_FALSE(set(writing, CLI_S_DONE));
    EXPECT_EQ(slot(1).client_status(0), DONE);
    EXPECT_EQ(client_events(writing), 1);
    EXPECT_GT(+client_atime(writing).timeup, 1U) << "a time ratio counts from here";
    EXPECT_FALSE(set(writing, CLI_S_DONE));
    EXPECT_EQ(client_events(writing), 2) << "each time";
}

TEST_P(BmClientStatus, IsSetInTheFirstBlockOfTheClient)
{
    const int reading = client({});
    for (int i = 0; i < 2; ++i) slot(1).add_client(reading, WAIT);
    EXPECT_FALSE(set(reading, CLI_S_NTF));
    EXPECT_EQ(slot(1).clients(), (std::vector<seen_client>{{reading, NTF}, {reading, WAIT}}));
}

TEST_P(BmClientStatus, IsNotSetForAClientThatTakesNoPart)
{
    const int reading = client({});
    const int other = client({});
    slot(1).add_client(reading, WAIT);
    EXPECT_EQ(said([&] { EXPECT_TRUE(set(other, CLI_S_DONE)) << "true is failure"; }), "");
    EXPECT_EQ(slot(1).client_status(0), WAIT);
    EXPECT_EQ(client_events(other), 0);
    EXPECT_EQ(client_atime(other), (time_stamp{1, 0}));
}

TEST_P(BmClientStatus, IsNotSetInAnEventWithoutClients)
{
    const int reading = client({});
    for (const int count : {0, -1, INT_MIN}) {
        slot(1).put(&slot_layout::nclients, count);
        EXPECT_EQ(said([&] { EXPECT_TRUE(set(reading, CLI_S_DONE)); }), "") << count;
    }
    EXPECT_EQ(client_events(reading), 0);
}

TEST_P(BmClientStatus, IsNotSetInASlotWithoutAddress)
{
    const int count = events_part.getBufferCount();
    EXPECT_EQ(said([&] {
                  for (const int n : {-1, 0, count, INT_MAX}) EXPECT_TRUE(bm.set_cl_status(n, 1, CLI_S_DONE));
              }),
              "DATE set_cl_status(): failed to get the buffer address for event slot: -1\n"
              "DATE set_cl_status(): failed to get the buffer address for event slot: 0\n"
              "DATE set_cl_status(): failed to get the buffer address for event slot: " +
                  std::to_string(count) +
                  "\n"
                  "DATE set_cl_status(): failed to get the buffer address for event slot: 2147483647\n");
    open_bm alone;
    EXPECT_EQ(said([&] { EXPECT_TRUE(alone.set_cl_status(1, 1, CLI_S_DONE)); }),
              "DATE set_cl_status(): failed to get the buffer address for event slot: 1\n");
}

// A client slot without a lock would be waited for without end.
TEST_P(BmClientStatus, IsNotSetForAClientSlotThatCannotBe)
{
    const int count = clients_part.getBufferCount();
    for (const int c : {-1, 0, count, INT_MAX}) {
        slot(1).put(&slot_layout::nclients, 0);
        slot(1).add_client(c, WAIT);
        EXPECT_EQ(said([&] { EXPECT_TRUE(set(c, CLI_S_DONE)); }), "") << c;
    }
}

TEST_P(BmClientStatus, IsSetUnderOneLockAfterTheOther)
{
    const int reading = client({});
    slot(1).add_client(reading, WAIT);
    std::vector<std::pair<bool, bool>> held; // before each operation: the event slot's lock, the client slot's
    {
        const fault watched = fault::preceded(
            "semop", [&] { held.emplace_back(event_lock_is_held(1), client_lock_is_held(reading)); }, 1, FOR_EVER);
        EXPECT_FALSE(set(reading, CLI_S_NTF));
    }
    EXPECT_EQ(held, (std::vector<std::pair<bool, bool>>{{false, false}, {true, false}, {false, false}, {false, true}}));
}

class BmClientStatusWithoutLocks : public BothGenerations {};
IN_BOTH_GENERATIONS(BmClientStatusWithoutLocks);

TEST_P(BmClientStatusWithoutLocks, OfTheEventsIsNotSet)
{
    in_own_process([](event_host& host) {
        host.used_slot();
        const int reading = host.client({});
        host.slot(1).add_client(reading, host.WAIT);
        host.remove_locks(host.events_semid);
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.set_cl_status(1, reading, CLI_S_DONE))); }),
                  "throw C_shm::ctrl UP sem: 5   errno: 22  semid: " + std::to_string(host.events_semid) + "\n");
        EXPECT_EQ(host.slot(1).client_status(0), host.WAIT);
    });
}

TEST_P(BmClientStatusWithoutLocks, OfTheClientsGivesTheEventSlotBack)
{
    in_own_process([](event_host& host) {
        host.used_slot();
        const int reading = host.client({});
        host.slot(1).add_client(reading, host.WAIT);
        host.remove_locks(host.clients_semid);
        EXPECT_EQ(out_of([&] { EXPECT_NO_THROW(EXPECT_TRUE(host.bm.set_cl_status(1, reading, CLI_S_DONE))); }),
                  "throw C_shm::ctrl UP sem: 5   errno: 22  semid: " + std::to_string(host.clients_semid) + "\n");
        EXPECT_FALSE(host.event_lock_is_held(1));
        EXPECT_EQ(host.client_events(reading), 0);
    });
}

// ---- check_if_all_collected

TEST_P(BmClientStatus, HasAllWhenEveryNameIsThere)
{
    const int reading = client({.names = {"A", "B"}});
    const int writing = client({.cltype = CLI_T_WRITER, .names = {"A", "B"}});
    for (const int c : {reading, writing}) {
        slot(1).put(&slot_layout::sbfilled, 0);
        collect({"B"});
        EXPECT_FALSE(has_all(c)) << "fewer entries than names";
        collect({"X"});
        EXPECT_FALSE(has_all(c)) << "as many entries, one of another name";
        collect({"A"});
        EXPECT_EQ(said([&] { EXPECT_TRUE(has_all(c)) << "true: it has all"; }), "");
    }
}

TEST_P(BmClientStatus, HasAllWhenItIsDone)
{
    const int reading = client({.names = {"A"}});
    slot(1).add_client(reading, PROC);
    EXPECT_FALSE(has_all(reading));
    slot(1).put_client_status(0, DONE);
    EXPECT_TRUE(has_all(reading));
    store<int32_t>(client_at(reading) + 20, CLI_T_INVAL);
    EXPECT_EQ(said([&] { EXPECT_TRUE(has_all(reading)) << "whatever it is by now"; }), "");
}

TEST_P(BmClientStatus, HasAllWhenItWantsNone)
{
    const int reading = client({});
    const int writing = client({.cltype = CLI_T_WRITER});
    EXPECT_TRUE(has_all(reading)) << "no entries";
    EXPECT_TRUE(has_all(writing));
    collect({"A"});
    EXPECT_TRUE(has_all(reading));
    EXPECT_TRUE(has_all(writing));
}

TEST_P(BmClientStatus, HasNotAllInAnEventWithoutEntries) { EXPECT_FALSE(has_all(client({.names = {"A"}}))); }

TEST_P(BmClientStatus, HasAPlaceholderToo)
{
    const int reading = client({.names = {"A"}});
    slot(1).add_entry("A", 0, -1);
    EXPECT_TRUE(has_all(reading));
}

TEST_P(BmClientStatus, NeverHasANameThatItListsTwice)
{
    const int reading = client({.names = {"A", "A"}});
    collect({"A", "B"});
    EXPECT_FALSE(has_all(reading)) << "one entry, two names";
}

TEST_P(BmClientStatus, HasEntriesCountedNotNames)
{
    const int reading = client({.names = {"A", "B"}});
    collect({"A", "A"});
    EXPECT_TRUE(has_all(reading)) << "two entries that carry one of its names";
    collect({"B"});
    EXPECT_FALSE(has_all(reading)) << "three are not two";
}

TEST_P(BmClientStatus, HasNamesComparedOver256Characters)
{
    const std::string longest(255, 'n');
    const std::string filled(256, 'f'); // no NUL, as a foreign program may leave it
    const int reading = client({.names = {longest, filled}});
    collect({longest.substr(1), filled});
    EXPECT_FALSE(has_all(reading));
    collect({longest});
    EXPECT_TRUE(has_all(reading));
}

TEST_P(BmClientStatus, HasAllOfMany)
{
    auto names = many_names(44);
    const int reading = client({.names = names});
    auto others = names;
    std::reverse(others.begin(), others.end());
    others.pop_back();
    collect(others);
    collect({"X"});
    EXPECT_FALSE(has_all(reading));
    collect({"N0"});
    EXPECT_TRUE(has_all(reading));
}

TEST_P(BmClientStatus, HasNotAllWhenItsCountCannotBe)
{
    collect({"A"});
    const int reading = client({});
    const int writing = client({.cltype = CLI_T_WRITER});
    for (const int count : {INT_MAX, 100, -1, INT_MIN}) {
        store<int32_t>(client_at(reading) + 44, count);
        store<int32_t>(client_at(writing) + 40, count);
        EXPECT_FALSE(has_all(reading)) << count;
        EXPECT_FALSE(has_all(writing)) << count;
    }
}

TEST_P(BmClientStatus, HasNoAnswerForOtherClientTypes)
{
    const int nobody = client({.cltype = CLI_T_INVAL});
    EXPECT_EQ(said([&] { EXPECT_FALSE(has_all(nobody)); }), "DATE check_if_all_collected(): invalid client type: 3\n");
    store<int32_t>(client_at(nobody) + 20, 0);
    EXPECT_EQ(said([&] { EXPECT_FALSE(has_all(nobody)); }), "DATE check_if_all_collected(): invalid client type: 0\n");
}

TEST_P(BmClientStatus, HasNoAnswerWithoutSlots)
{
    const int reading = client({});
    const std::string events = std::to_string(events_part.getBufferCount());
    const std::string clients = std::to_string(clients_part.getBufferCount());
    const std::string of_event = "DATE check_if_all_collected(): failed to get the buffer address for event slot: ";
    const std::string of_client = "DATE check_if_all_collected(): failed to get the buffer address for client slot: ";
    EXPECT_EQ(said([&] {
                  for (const int n : {-1, 0, events_part.getBufferCount()})
                      EXPECT_FALSE(bm.check_if_all_collected(n, reading));
                  for (const int c : {-1, 0, clients_part.getBufferCount()}) EXPECT_FALSE(has_all(c));
                  EXPECT_FALSE(bm.check_if_all_collected(-1, -1)) << "the event slot comes first";
              }),
              of_event + "-1\n" + of_event + "0\n" + of_event + events + "\n" + of_client + "-1\n" + of_client + "0\n" +
                  of_client + clients + "\n" + of_event + "-1\n");
    open_bm alone;
    EXPECT_EQ(said([&] { EXPECT_FALSE(alone.check_if_all_collected(1, 1)); }), of_event + "1\n");
}

TEST_P(BmClientStatus, IsLookedUpWithoutALock)
{
    const int reading = client({.names = {"A"}});
    collect({"A"});
    const long before = calls_of("semop");
    EXPECT_TRUE(has_all(reading));
    EXPECT_EQ(calls_of("semop"), before);
}

} // namespace
