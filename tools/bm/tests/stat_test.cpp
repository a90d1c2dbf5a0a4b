// bm stat and bm top on a host where something happens at a known time.
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>

#include "a_host.h"

namespace bm::test {
namespace {

class Stat : public AHost {
  protected:
    /// One line over a second, in whose course `what` happens.
    nlohmann::json line_while(const std::function<void()>& what, const std::vector<std::string>& command = {"stat"})
    {
        child acting([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
            what();
        });
        std::vector<std::string> all = command;
        all.insert(all.end(), {"--json", "-i", "1", "-n", "1"});
        const outcome seen = run_bm(all);
        EXPECT_EQ(seen.status, 0) << seen.err;
        EXPECT_EQ(acting.wait(), 0);
        return seen.document();
    }
};
IN_BOTH_GENERATIONS(Stat);

TEST_P(Stat, NothingHappens)
{
    const nlohmann::json seen = line_while([] {});
    EXPECT_EQ(seen["schema"], "bm.stat");
    EXPECT_EQ(seen["events_per_s"], 0.0);
    EXPECT_EQ(seen["bytes_per_s"], 0.0);
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
    const nlohmann::json seen = line_while([&] {
        store<int32_t>(client_at(w) + 12, 50);
        store<int32_t>(client_at(r) + 12, 40);
    });
    EXPECT_NEAR(seen["events_per_s"], 50, 15) << "the span may be a little longer than a second";
    EXPECT_EQ(seen["types"].size(), 1U);
    EXPECT_GT(seen["types"]["NORMAL"], 30.0);
}

TEST_P(Stat, BytesAreThoseOfEventsThatBeganMeanwhile)
{
    const nlohmann::json seen = line_while([&] {
        const int n = event(0);
        slot(n).put_wide(&slot_layout::evsize, 1000000);
        control(n).put_status(EVT_C_FREE); // over: its head stays
        events_part.return_buffer(n);
    });
    EXPECT_NEAR(seen["events_per_s"], 1, 0.3);
    EXPECT_NEAR(seen["bytes_per_s"], 1e6, 3e5);
    EXPECT_EQ(seen["open"], 0);
}

TEST_P(Stat, OpenEventsAndBuffersOutAreThoseOfTheMoment)
{
    const int n = event(1, 100);
    slot(n).add_entry("A", data_id, put({}));
    const nlohmann::json seen = line_while([] {});
    EXPECT_EQ(seen["open"], 1);
    EXPECT_NEAR(seen["oldest_s"], 101, 2);
    EXPECT_EQ(seen["out"], 1);
}

TEST_P(Stat, WhatTheMonitorTakesBackIsCounted)
{
    writer_slot({"A"}, dead_pid());
    const int n = event(1, 6);
    const nlohmann::json seen = line_while([&] {
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
    EXPECT_EQ(line_while([] {}, {"top"})["schema"], "bm.stat");
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
