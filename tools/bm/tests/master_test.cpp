// The master as a service: what it makes, what it leaves, what it tells the service manager.
#include <cstddef>
#include <filesystem>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "background_bm.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "staged_host.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

class Master : public CleanNamespace {
  protected:
    static words small(words more = {})
    {
        words all{"master", "--clients", "4", "--blocks", "4", "--rate", "4"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    static nlohmann::json partitions() { return run_bm({"ls", "--json"}).document()["partitions"]; }
};

TEST_F(Master, SaysWhatItHasAndLeavesItBehind)
{
    background_bm master(small());
    ASSERT_TRUE(master.says("they stay when it ends\n")) << master.seen_err;
    EXPECT_EQ(master.seen_out,
              "ready: master " + std::to_string(master.pid()) +
                  ": ZRK4_CLIENT_SLOTS 257 x 1072, ZRK4_EVENT_SLOTS 129 x 2580; they stay when it ends\n");
    const pid_t pid = master.pid();
    EXPECT_EQ(master.end(SIGINT), 0) << master.seen_err;
    EXPECT_NE(master.seen_out.find("ended by signal 2\n"), std::string::npos);
    const nlohmann::json left = partitions();
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left[0]["users"], 0) << "it has left in order";
    const int id = left[0]["id"];

    background_bm next(small({"--json"}));
    ASSERT_TRUE(next.says("\n")) << next.seen_err;
    const nlohmann::json said = nlohmann::json::parse(next.seen_out);
    EXPECT_EQ(said["schema"], "bm.master");
    EXPECT_EQ(said["event"], "ready");
    EXPECT_NE(said["pid"], pid);
    EXPECT_EQ(partitions()[0]["id"], id) << "taken over, not made anew";
    EXPECT_EQ(next.end(SIGTERM), 0);
    clear_ipc_namespace();
}

TEST_F(Master, EndsInOrderWithItsTerminal)
{
    background_bm master(small({"--forced"}));
    ASSERT_TRUE(master.says("its end removes them\n")) << master.seen_err;
    EXPECT_EQ(master.end(SIGHUP), 0) << master.seen_err;
    EXPECT_NE(master.seen_out.find("ended by signal 1\n"), std::string::npos);
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(Master, OutlivesItsTerminalWithNohup)
{
    std::signal(SIGHUP, SIG_IGN); // as nohup hands it on
    background_bm master(small({"--forced"}));
    ASSERT_TRUE(master.says("its end removes them\n")) << master.seen_err;
    kill(master.pid(), SIGHUP);
    EXPECT_EQ(master.end(SIGTERM), 0) << master.seen_err;
    EXPECT_NE(master.seen_out.find("ended by signal 15\n"), std::string::npos) << master.seen_out;
}

TEST_F(Master, ForcedItTakesThemWithIt)
{
    background_bm master(small({"--forced", "--records", "2024", "--names", "T_C,T_E"}));
    ASSERT_TRUE(master.says("its end removes them\n")) << master.seen_err;
    EXPECT_EQ(partitions()[0]["name"], "T_C");
    EXPECT_EQ(partitions()[1]["length"], 3096);
    EXPECT_EQ(master.end(), 0);
    EXPECT_EQ(partitions().size(), 0U);
}

TEST_F(Master, RefusesPartitionsThatAreTooSmall)
{
    {
        background_bm master(small());
        ASSERT_TRUE(master.says("ready: ")) << master.seen_err;
        EXPECT_EQ(master.end(), 0);
    }
    const outcome larger = run_bm({"master", "--clients", "8"});
    EXPECT_EQ(larger.status, 2);
    EXPECT_NE(larger.err.find("Old client slot partition is incompatible !!!"), std::string::npos) << larger.err;
    EXPECT_NE(larger.err.find("bm: the slot partitions can neither be made nor taken over\n"), std::string::npos);
    EXPECT_EQ(larger.out, "");
    EXPECT_EQ(partitions().size(), 2U) << "they are somebody's";
    clear_ipc_namespace();
}

TEST_F(Master, WhatTheKernelRefusesIsTold)
{
    const outcome seen = run_bm({"master", "--clients", "1024"});
    EXPECT_EQ(seen.status, 2);
    EXPECT_NE(seen.err.find("semaphores in one set (first value of kernel.sem)"), std::string::npos) << seen.err;
}

/// What a service manager listens on.
class listener {
  public:
    explicit listener(const std::string& path) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un at{};
        at.sun_family = AF_UNIX;
        path.copy(at.sun_path, sizeof at.sun_path - 1);
        if (at.sun_path[0] == '@') at.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        if (bind(fd_, reinterpret_cast<const sockaddr*>(&at), length) != 0) std::abort();
    }
    ~listener() { close(fd_); }
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    std::string hears(int patience_ms = 20000) const
    {
        pollfd watched{fd_, POLLIN, 0};
        char room[512];
        if (poll(&watched, 1, patience_ms) <= 0) return "";
        const ssize_t got = recv(fd_, room, sizeof room, 0);
        return {room, static_cast<size_t>(got > 0 ? got : 0)};
    }

  private:
    int fd_;
};

TEST_F(Master, TellsTheServiceManagerWhenItIsReadyAndWhenItEnds)
{
    const scratch_directory work;
    const listener manager(work.path() / "notify");
    background_bm master(small({"--forced"}), {"NOTIFY_SOCKET=" + (work.path() / "notify").string()});
    EXPECT_EQ(manager.hears(), "READY=1\nSTATUS=ZRK4_CLIENT_SLOTS 257 x 1072, ZRK4_EVENT_SLOTS 129 x 2580");
    EXPECT_EQ(partitions().size(), 2U) << "ready is said when it is true";
    EXPECT_EQ(master.end(), 0);
    EXPECT_EQ(manager.hears(), "STOPPING=1") << "no watchdog was asked for";
}

TEST_F(Master, TheWatchdogHearsOfAMonitorThatRuns)
{
    const std::string name = "@bm-test-" + std::to_string(getpid());
    const listener manager(name);
    background_bm master(small({"--forced", "--period", "20000"}), {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=400000"});
    EXPECT_EQ(manager.hears().substr(0, 8), "READY=1\n");
    EXPECT_EQ(manager.hears(), "WATCHDOG=1");
    EXPECT_EQ(manager.hears(), "WATCHDOG=1");
    EXPECT_EQ(master.end(), 0);
}

TEST_F(Master, TheWatchdogHearsNothingWhenTheMonitorStandsStill)
{
    const std::string name = "@bm-test-" + std::to_string(getpid());
    const listener manager(name);
    background_bm master(small({"--forced", "--period", "60000000"}),
                         {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=400000"});
    EXPECT_EQ(manager.hears().substr(0, 8), "READY=1\n");
    int beats = 0; // of its first round, however late that comes
    while (beats < 5 && !manager.hears(1500).empty()) ++beats;
    EXPECT_LT(beats, 5);
    EXPECT_EQ(master.end(), 0);
}

TEST_F(Master, AnotherProcesssWatchdogIsNotFed)
{
    const std::string name = "@bm-test-" + std::to_string(getpid());
    const listener manager(name);
    background_bm master(small({"--forced", "--period", "20000"}),
                         {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=200000", "WATCHDOG_PID=1"});
    EXPECT_EQ(manager.hears().substr(0, 8), "READY=1\n");
    EXPECT_EQ(manager.hears(600), "");
    EXPECT_EQ(master.end(), 0);
}

} // namespace
} // namespace bm::test
