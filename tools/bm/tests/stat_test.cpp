// bm stat and bm top on a host where something happens at a known time.
#include <algorithm>
#include <chrono>
#include <functional>
#include <sstream>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>

#include "a_host.h"
#include "background_bm.h"

namespace bm::test {
namespace {

/// Lines of which nothing tells how long each took: what counts per second is multiplied by its span and added up, of
/// the rest the last one holds.
nlohmann::json sum_of(const std::string& lines)
{
    nlohmann::json sum{
        {"events", 0.0}, {"bytes", 0.0}, {"drops", 0}, {"reclaims", 0}, {"types", nlohmann::json::object()}};
    std::istringstream all(lines);
    for (std::string line; std::getline(all, line);) {
        const nlohmann::json one = nlohmann::json::parse(line);
        const double span = one["span_s"];
        sum["events"] = sum["events"].get<double>() + one["events_per_s"].get<double>() * span;
        sum["bytes"] = sum["bytes"].get<double>() + one["bytes_per_s"].get<double>() * span;
        for (const char* count : {"drops", "reclaims"}) sum[count] = sum[count].get<int>() + one[count].get<int>();
        for (const auto& [type, rate] : one["types"].items())
            sum["types"][type] = sum["types"].value(type, 0.0) + rate.get<double>() * span;
        for (const char* state : {"schema", "open", "slots", "oldest_s", "out", "buffers"}) sum[state] = one[state];
    }
    return sum;
}

class Stat : public AHost {
  protected:
    /// What it prints while `what` happens, and until it has looked at what came of it.
    nlohmann::json sum_while(const std::function<void()>& what, const std::string& command = "stat")
    {
        background_bm watching({command, "--json", "-i", "0.1"});
        const auto lines = [&] { return std::count(watching.seen_out.begin(), watching.seen_out.end(), '\n'); };
        EXPECT_TRUE(watching.says("}\n")) << watching.seen_err;
        what();
        for (const auto enough = lines() + 3; lines() < enough && watching.hears_more();) {}
        EXPECT_EQ(watching.end(), 0) << watching.seen_err;
        return sum_of(watching.seen_out);
    }
};
IN_BOTH_GENERATIONS(Stat);

TEST_P(Stat, NothingHappens)
{
    const nlohmann::json seen = sum_while([] {});
    EXPECT_EQ(seen["schema"], "bm.stat");
    EXPECT_EQ(seen["events"], 0.0);
    EXPECT_EQ(seen["bytes"], 0.0);
    EXPECT_EQ(seen["open"], 0);
    EXPECT_EQ(seen["slots"], 9);
    EXPECT_EQ(seen["out"], 0);
    EXPECT_EQ(seen["buffers"], BLOCKS);
    EXPECT_EQ(seen["reclaims"], 0);
}

TEST_P(Stat, EventsAreCountedByTheClientThatHadMostOfThem)
{
    const int w = writer_slot({"A"});
    const int r = reader_slot({});
    const nlohmann::json seen = sum_while([&] {
        store<int32_t>(client_at(w) + 12, 50);
        store<int32_t>(client_at(r) + 12, 40);
    });
    EXPECT_NEAR(seen["events"], 50, 0.01);
    EXPECT_EQ(seen["types"].size(), 1U);
    EXPECT_NEAR(seen["types"]["NORMAL"], 50, 0.01);
}

TEST_P(Stat, BytesAreThoseOfEventsThatBeganMeanwhile)
{
    const nlohmann::json seen = sum_while([&] {
        const int n = event(0);
        slot(n).put_wide(&slot_layout::evsize, 1000000);
        control(n).put_status(EVT_C_FREE); // over: its head stays
        events_part.return_buffer(n);
    });
    EXPECT_NEAR(seen["events"], 1, 0.01);
    EXPECT_NEAR(seen["bytes"], 1e6, 1e4);
    EXPECT_EQ(seen["open"], 0);
}

TEST_P(Stat, OpenEventsAndBuffersOutAreThoseOfTheMoment)
{
    const int n = event(1, 100);
    slot(n).add_entry("A", data_id, put({}));
    const nlohmann::json seen = sum_while([] {});
    EXPECT_EQ(seen["open"], 1);
    EXPECT_GE(seen["oldest_s"], 100.0);
    EXPECT_LT(seen["oldest_s"], 150.0);
    EXPECT_EQ(seen["out"], 1);
}

TEST_P(Stat, WhatTheMonitorTakesBackIsCounted)
{
    writer_slot({"A"}, dead_pid());
    const int n = event(1, 6);
    const nlohmann::json seen = sum_while([&] {
        control(n).put_status(EVT_C_FREE);
        events_part.return_buffer(n);
        clients_part.return_buffer(1);
    });
    EXPECT_EQ(seen["reclaims"], 2);
}

TEST_P(Stat, TextHasAHeadingAndALine)
{
    const outcome seen = run_bm({"stat", "-i", "0.1", "-n", "2"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(words_of(seen.out), "EVENTS/S MB/S OPEN OLDEST OUT DROPS RECLAIMS\n"
                                  " 0.0 0.000 0 - 0/64 0 0\n 0.0 0.000 0 - 0/64 0 0\n");
}

TEST_P(Stat, TopWithoutATerminalIsStat)
{
    EXPECT_EQ(sum_while([] {}, "top")["schema"], "bm.stat");
    const outcome seen = run_bm({"top", "-i", "0.1", "-n", "1"});
    EXPECT_EQ(words_of(seen.out).substr(0, 20), "EVENTS/S MB/S OPEN O");
}

class NoHost : public CleanNamespace {};

TEST_F(NoHost, StatAndTopEndWith3)
{
    EXPECT_EQ(run_bm({"stat"}).status, 3);
    EXPECT_EQ(run_bm({"top"}).status, 3);
}

/// The command on a terminal of its own.
class on_a_terminal {
  public:
    explicit on_a_terminal(const std::vector<std::string>& arguments)
    {
        winsize size{.ws_row = 24, .ws_col = 160, .ws_xpixel = 0, .ws_ypixel = 0};
        pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            alarm(30);
            setenv("TERM", "xterm", 1);
            std::vector<char*> argv{const_cast<char*>(bm_command())};
            for (const std::string& each : arguments) argv.push_back(const_cast<char*>(each.c_str()));
            argv.push_back(nullptr);
            execv(bm_command(), argv.data());
            _exit(127);
        }
    }
    ~on_a_terminal()
    {
        kill(pid_, SIGKILL);
        if (!ended_) waitpid(pid_, nullptr, 0);
        close(terminal_);
    }
    on_a_terminal(const on_a_terminal&) = delete;
    on_a_terminal& operator=(const on_a_terminal&) = delete;

    void type(const std::string& keys) { EXPECT_EQ(write(terminal_, keys.data(), keys.size()), ssize_t(keys.size())); }
    /// Whether the text comes, from here on, in time.
    bool shows(const std::string& text)
    {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (std::chrono::steady_clock::now() < until) {
            if (const size_t at = drawn_.find(text); at != std::string::npos) {
                drawn_.erase(0, at + text.size());
                return true;
            }
            if (!read_more()) return false;
        }
        return false;
    }
    int end()
    {
        while (read_more()) {}
        int status = 0;
        waitpid(pid_, &status, 0);
        ended_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    const std::string& rest() const { return drawn_; }

  private:
    bool read_more()
    {
        pollfd one{terminal_, POLLIN, 0};
        char room[4096];
        if (poll(&one, 1, 15000) != 1) return false;
        const ssize_t got = read(terminal_, room, sizeof room);
        if (got <= 0) return false;
        drawn_.append(room, static_cast<size_t>(got));
        return true;
    }

    int terminal_ = -1;
    pid_t pid_ = -1;
    bool ended_ = false;
    std::string drawn_;
};

TEST_P(Stat, TopFillsTheTerminalAndGivesItBack)
{
    writer_slot({"A"});
    event(1);
    on_a_terminal top({"top", "-i", "0.2"});
    EXPECT_TRUE(top.shows("events/s")) << top.rest();
    EXPECT_TRUE(top.shows("clients by SLOT")) << top.rest();
    EXPECT_TRUE(top.shows("writer")) << top.rest();
    top.type("s");
    EXPECT_TRUE(top.shows("PID")) << top.rest();
    top.type(" ");
    EXPECT_TRUE(top.shows("frozen")) << top.rest();
    top.type(" \t");
    EXPECT_TRUE(top.shows("events by")) << top.rest();
    EXPECT_TRUE(top.shows("1000:000500")) << top.rest();
    top.type("/x\n");
    EXPECT_TRUE(top.shows(", with \"")) << top.rest();
    top.type("q");
    EXPECT_EQ(top.end(), 0);
    EXPECT_NE(top.rest().find("\x1b[?1049l"), std::string::npos) << "the terminal was not given back";
}

TEST_P(Stat, TopEndsInOrderWhenItIsInterrupted)
{
    on_a_terminal top({"top", "-i", "0.2"});
    EXPECT_TRUE(top.shows("clients by SLOT")) << top.rest();
    top.type("\x03");
    EXPECT_EQ(top.end(), 0);
    EXPECT_NE(top.rest().find("\x1b[?1049l"), std::string::npos);
}

} // namespace
} // namespace bm::test
