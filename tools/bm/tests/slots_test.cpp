// bm clients and bm events on slots whose every byte is known.
#include <atomic>
#include <numeric>
#include <stdexcept>
#include <thread>

#include "a_host.h"
#include "eventually.h"
#include "host/in_parts.h"
#include "unit/udp_inbox.h"

namespace bm::test {
namespace {

class Slots : public AHost {
  protected:
    nlohmann::json clients(int status)
    {
        const outcome seen = run_bm({"clients", "--json"});
        EXPECT_EQ(seen.status, status) << seen.err;
        return seen.document()["clients"];
    }
    nlohmann::json events(int status, const std::vector<std::string>& options = {})
    {
        std::vector<std::string> all{"events", "--json"};
        all.insert(all.end(), options.begin(), options.end());
        const outcome seen = run_bm(all);
        EXPECT_EQ(seen.status, status) << seen.err;
        return seen.document()["events"];
    }
};
IN_BOTH_GENERATIONS(Slots);

TEST_P(Slots, AReaderIsShownWithItsSocket)
{
    const udp_inbox inbox;
    inbox.hear_nobody();
    const int n =
        client({.names = {"A", "B"}, .ratio = {2, 500}, .tmask = 6, .atime = seconds_ago(0), .port = inbox.port()});
    const nlohmann::json one = clients(0).at(0);
    EXPECT_EQ(one["slot"], n);
    EXPECT_EQ(one["pid"], getpid());
    EXPECT_EQ(one["state"], "alive");
    EXPECT_EQ(one["role"], "reader");
    EXPECT_EQ(one["type"], 1);
    EXPECT_EQ(one["type_name"], "NORMAL");
    EXPECT_EQ(one["mask"], 6);
    EXPECT_EQ(one["ratio_us"], 2000500);
    EXPECT_EQ(one["blocks"], nlohmann::json({"A", "B"}));
    EXPECT_EQ(one["port"], inbox.port());
    EXPECT_EQ(one["queued"], 0);
    EXPECT_EQ(one["drops"], 0);
    EXPECT_EQ(one["complaint"], "");
}

TEST_P(Slots, AWritersNamesBeginFourBytesEarlier)
{
    client({.cltype = CLI_T_WRITER, .names = {"ADC", std::string(255, 'x')}, .atime = seconds_ago(0)});
    const nlohmann::json one = clients(0).at(0);
    EXPECT_EQ(one["role"], "writer");
    EXPECT_EQ(one["blocks"], nlohmann::json({"ADC", std::string(255, 'x')}));
    EXPECT_FALSE(one.contains("port"));
}

TEST_P(Slots, ADeadClientNeedsAttention)
{
    client({.cltype = CLI_T_WRITER, .names = {"A"}, .pid = dead_pid()});
    EXPECT_EQ(clients(1).at(0)["complaint"], "dead");
}

TEST_P(Slots, AYoungerProcessIsNotTheOneThatSubscribed)
{
    client({.cltype = CLI_T_WRITER, .names = {"A"}, .atime = {1000, 0}});
    EXPECT_EQ(clients(1).at(0)["complaint"], "other process");
}

TEST_P(Slots, ACountWithoutRoomIsCutAndTold)
{
    const int n = client({.cltype = CLI_T_WRITER, .names = {"A"}, .atime = seconds_ago(0)});
    store<int32_t>(client_at(n) + 40, 1000000);
    const nlohmann::json one = clients(1).at(0);
    EXPECT_EQ(one["blocks"].size(), 48U);
    EXPECT_EQ(one["complaint"], "says 1000000 blocks, there is room for 48");
}

TEST_P(Slots, RateIsCountedOverTheInterval)
{
    client({.cltype = CLI_T_WRITER, .names = {"A"}, .atime = seconds_ago(0)});
    const outcome seen = run_bm({"clients", "--json", "-i", "0.1"});
    EXPECT_EQ(seen.document()["clients"][0]["rate"], 0.0);
    EXPECT_FALSE(clients(0).at(0).contains("rate"));
}

TEST_P(Slots, AnEventNamesWhatIsMissingAndWhoOwesIt)
{
    bystanders others;
    const pid_t owing = others.one_more();
    const int w1 = client({.cltype = CLI_T_WRITER, .names = {"A"}, .atime = seconds_ago(0)});
    const int w2 = client({.cltype = CLI_T_WRITER, .names = {"B", "C"}, .pid = owing, .atime = seconds_ago(0)});
    const int r = client({.names = {}, .atime = seconds_ago(0)});
    const int n = event(3);
    slot(n).add_client(w1, DONE);
    slot(n).add_client(w2, WAIT);
    slot(n).add_client(r, WAIT);
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    const nlohmann::json one = events(0).at(0);
    EXPECT_EQ(one["slot"], n);
    EXPECT_EQ(one["key"], nlohmann::json({{"s", 1000}, {"us", 500}}));
    EXPECT_EQ(one["id"], 7);
    EXPECT_EQ(one["expected"], 3);
    EXPECT_EQ(one["filled"], 1);
    EXPECT_EQ(one["used"], true);
    EXPECT_EQ(one["missing"].size(), 2U);
    EXPECT_EQ(one["missing"][0]["name"], "B");
    EXPECT_EQ(one["missing"][1]["name"], "C");
    EXPECT_EQ(one["missing"][1]["pid"], owing);
    EXPECT_EQ(one["missing"][1]["slot"], w2);
    EXPECT_EQ(one["missing_of_writers_gone"], 0);
    EXPECT_EQ(one["clients"][0]["state"], "done");
    EXPECT_EQ(one["clients"][2]["role"], "reader");
    const std::string text = run_bm({"events"}).out;
    EXPECT_NE(text.find("B, C from " + std::to_string(owing)), std::string::npos) << text;
}

TEST_P(Slots, ABlockOfAWriterThatHasLeftIsCounted)
{
    const int n = event(2);
    slot(n).add_client(5, WAIT);
    const nlohmann::json one = events(0).at(0);
    EXPECT_EQ(one["missing"].size(), 0U);
    EXPECT_EQ(one["missing_of_writers_gone"], 2);
    EXPECT_EQ(one["clients"][0]["role"], "gone");
}

TEST_P(Slots, FiltersLeaveOut)
{
    const int w = client({.cltype = CLI_T_WRITER, .names = {"A"}, .atime = seconds_ago(0)});
    const int whole = event(1);
    slot(whole).add_client(w, DONE);
    slot(whole).add_entry("A", data_id, put({}));
    const int open = event(1);
    slot(open).add_client(w, WAIT);
    EXPECT_EQ(events(0).size(), 2U);
    EXPECT_EQ(events(0, {"--open"}).at(0)["slot"], open);
    EXPECT_EQ(events(0, {"--incomplete"}).at(0)["slot"], open);
    EXPECT_EQ(events(0, {"--slow"}).size(), 0U);
    slot(whole).put_time(&slot_layout::start, {1000, 0});
    EXPECT_EQ(events(0, {"--slow", "60"}).at(0)["slot"], whole);
}

TEST_P(Slots, AnEventWithoutChangeForLongHangs)
{
    const int n = event(1);
    slot(n).put_time(&slot_layout::start, {1000, 0});
    slot(n).put_time(&slot_layout::lupdate, {1001, 0});
    EXPECT_EQ(events(1).at(0)["complaint"], "hangs: bm why " + std::to_string(n));
}

TEST_P(Slots, WhatASlotCannotHoldIsTold)
{
    const int n = event(1);
    slot(n).put(&slot_layout::nclients, 0x7fffffff);
    EXPECT_NE(events(1).at(0)["complaint"].get<std::string>().find("its head says 2147483647 clients"),
              std::string::npos);
    slot(n).put(&slot_layout::nclients, -1);
    EXPECT_EQ(events(1).at(0)["complaint"], "its head says -1 clients, there is room for 0");
    slot(n).put(&slot_layout::nclients, 0);
}

TEST_P(Slots, ASlotWhoseEntryAndBufferDisagreeIsTold)
{
    const int n = event(1);
    control(n).put_status(EVT_C_FREE);
    EXPECT_EQ(events(1).at(0)["complaint"], "taken, but not marked used");
    control(n).put_status(EVT_C_USED);
    events_part.return_buffer(n);
    EXPECT_EQ(events(1).at(0)["complaint"], "marked used, but its buffer is free");
}

TEST_P(Slots, TheGenerationIsSeenAndAWrongOneRefused)
{
    event(1);
    const outcome seen = run_bm({"events", "--json"});
    EXPECT_EQ(seen.document()["records"], wide() ? 2024 : 2010);
    const outcome wrong = run_bm({"events", "--records", wide() ? "2010" : "2024"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.err, std::string("bm: the event slots of \"ZRK4_EVENT_SLOTS\" are of another generation\n") +
                             "  seen:   records of " + (wide() ? "2024" : "2010") + "\n  needed: records of " +
                             (wide() ? "2010" : "2024") + ", as --records says\n" +
                             "  try:    the same command with --records " + (wide() ? "2024" : "2010") + "\n");
}

TEST_P(Slots, NamesComeFromTheCommandLineOrTheEnvironment)
{
    EXPECT_EQ(run_bm({"clients", "--names", "NO_CLIENTS,NO_EVENTS"}).status, 3);
    EXPECT_EQ(run_bm({"events"}, {"ZRK4_EV_SHM_NAME=NO_EVENTS"}).status, 3);
    EXPECT_EQ(
        run_bm({"events", "--names", "ZRK4_CLIENT_SLOTS,ZRK4_EVENT_SLOTS"}, {"ZRK4_EV_SHM_NAME=NO_EVENTS"}).status, 0);
}

std::vector<int> numbers(int first, int last)
{
    std::vector<int> all(static_cast<size_t>(std::max(0, last - first)));
    std::iota(all.begin(), all.end(), first);
    return all;
}

TEST(InParts, EveryNumberIsMetOnceAndInOrder)
{
    for (const int last : {0, 1, 2, 511, 1025, 4097, 10000}) {
        std::vector<int> met;
        for (const std::vector<int>& part : in_parts<std::vector<int>>(1, last, numbers))
            met.insert(met.end(), part.begin(), part.end());
        EXPECT_EQ(met, numbers(1, last)) << last;
    }
}

TEST(InParts, AThreadThatIsHeldUpLeavesTheRestToTheOthers)
{
    constexpr int LAST = 10000;
    std::atomic<int> taken = 0;
    std::atomic<bool> held_up = false, in_time = true;
    const auto work = [&, caller = std::this_thread::get_id()](int first, int last) {
        taken += last - first;
        if (std::this_thread::get_id() != caller && !held_up.exchange(true))
            in_time = zrk4::test::eventually([&] { return taken == LAST; });
        return last - first;
    };
    const std::vector<int> parts = in_parts<int>(0, LAST, work);
    EXPECT_EQ(std::accumulate(parts.begin(), parts.end(), 0), LAST);
    EXPECT_TRUE(in_time);
}

TEST(InParts, WhatAPartThrowsReachesTheCaller)
{
    const auto refuse_the_end = [](int, int last) {
        if (last == 10000) throw std::runtime_error("the end");
        return last;
    };
    EXPECT_THROW(in_parts<int>(0, 10000, refuse_the_end), std::runtime_error);
}

} // namespace
} // namespace bm::test
