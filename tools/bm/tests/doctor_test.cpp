// Every line of the doctor, on a staged host made worse in one way, and on a real exchange.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/socket.h>

#include "C_shm_buffer.h"
#include "background_bm.h"
#include "child.h"
#include "clean_namespace.h"
#include "cli/output.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"
#include "model/doctor.h"
#include "other_user.h"
#include "partition_ids.h"
#include "staged_host.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

void send_datagrams(uint16_t port, int count)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string text(1000, 'x');
    for (int i = 0; i < count; ++i)
        sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(fd);
}

class Doctor : public CleanNamespace {
  protected:
    Doctor() { host.put("/adjtimex", "1 500\n"); }

    outcome run(words arguments = {}) const
    {
        arguments.insert(arguments.begin(), "doctor");
        return run_bm(arguments, {host.variable()});
    }
    /// The line about `what`.
    nlohmann::json line(const std::string& what, words arguments = {}) const
    {
        arguments.emplace_back("--json");
        return of(run(arguments), what);
    }
    static nlohmann::json of(const outcome& seen, const std::string& what)
    {
        const nlohmann::json all = seen.document();
        for (const auto& each : all["lines"]) {
            if (each["what"] == what) return each;
        }
        ADD_FAILURE() << "no line about " << what;
        return {{"verdict", ""}, {"found", ""}, {"needed", ""}, {"mend", ""}, {"why", ""}};
    }
    void expect(const std::string& what, const std::string& verdict, const std::string& found, const std::string& mend,
                const words& arguments = {}) const
    {
        const nlohmann::json seen = line(what, arguments);
        EXPECT_EQ(seen["verdict"], verdict) << what;
        EXPECT_EQ(seen["found"], found) << what;
        EXPECT_EQ(seen["mend"], mend) << what;
        EXPECT_NE(seen["needed"], "") << what;
        EXPECT_NE(seen["why"], "") << what;
        EXPECT_EQ(run(arguments).status, verdict == "good" || verdict == "unknown" ? 0 : 1) << what;
    }
    staged_host host;
};

TEST_F(Doctor, AStockHostIsFitForABeamline)
{
    const outcome seen = run();
    EXPECT_EQ(seen.status, 0) << seen.out << seen.err;
    EXPECT_EQ(seen.out.find("bad"), std::string::npos) << seen.out;
    EXPECT_EQ(seen.out.substr(0, 59), "good    kernel.sem (1st value): 32000; needed: 4101\ngood   ");
}

TEST_F(Doctor, TooFewSemaphoresPerSet)
{
    host.put("/proc/sys/kernel/sem", "250 32000 32 128\n");
    expect("kernel.sem (1st value)", "bad", "250", "sysctl -w 'kernel.sem = 4101 32000 32 128'");
    const outcome text = run();
    EXPECT_NE(text.out.find("bad     kernel.sem (1st value): 250; needed: 4101\n"
                            "        why:  a slot partition has a semaphore for each slot, all in one set\n"
                            "        mend: sysctl -w 'kernel.sem = 4101 32000 32 128'\n"),
              std::string::npos)
        << text.out;
}

TEST_F(Doctor, TooFewSetsSegmentsAndPages)
{
    host.put("/proc/sys/kernel/sem", "32000 32000 32 2\n");
    host.put("/proc/sys/kernel/shmmni", "2\n");
    host.put("/proc/sys/kernel/shmmax", "1000\n");
    host.put("/proc/sys/kernel/shmall", "1\n");
    expect("kernel.sem (4th value)", "bad", "2", "sysctl -w 'kernel.sem = 32000 32000 32 3'");
    expect("kernel.shmmni", "bad", "2", "sysctl -w 'kernel.shmmni = 3'");
    EXPECT_EQ(line("kernel.shmmax")["verdict"], "bad");
    EXPECT_EQ(line("kernel.shmall")["verdict"], "bad");
}

TEST_F(Doctor, WhatOthersUseIsTheirs)
{
    host.put("/proc/sysvipc/sem", "       key      semid perms      nsems   uid\n 0 5 666 31000 0\n");
    host.put("/proc/sys/kernel/sem", "32000 33000 32 128\n");
    expect("kernel.sem (2nd value)", "bad", "33000", "sysctl -w 'kernel.sem = 32000 35750 32 128'");
}

TEST_F(Doctor, ASmallReceiveBufferIsAWarning)
{
    host.put("/proc/sys/net/core/rmem_max", "4096\n");
    EXPECT_EQ(line("net.core.rmem_max")["verdict"], "warning");
}

TEST_F(Doctor, LittleMemory)
{
    host.put("/proc/meminfo", "MemAvailable: 10000 kB\nSwapFree: 100 kB\n");
    expect("memory", "bad", "10.3 MB available", "bm size --reader-time ... --block-size ...");
}

TEST_F(Doctor, PartitionsThatTheKernelTakesAway)
{
    host.put("/proc/sys/kernel/shm_rmid_forced", "1\n");
    expect("kernel.shm_rmid_forced", "bad", "1", "sysctl -w kernel.shm_rmid_forced=0");
}

TEST_F(Doctor, WhatCannotBeReadIsUnknownAndNotGood)
{
    host.remove("/proc/sys/kernel/shmmni");
    host.remove("/proc/meminfo");
    host.remove("/adjtimex");
    expect("kernel.shmmni", "unknown", "not readable", "sysctl -w 'kernel.shmmni = 3'");
    expect("memory", "unknown", "not readable", "");
    expect("clock", "unknown", "not readable", "");
}

TEST_F(Doctor, AnExchangeThatCannotBe)
{
    const nlohmann::json seen = line("size of the exchange", {"--clients", "20000"});
    EXPECT_EQ(seen["verdict"], "bad");
    EXPECT_EQ(seen["mend"], "bm size: at most 15997 clients with 32 blocks") << seen;
}

TEST_F(Doctor, AClockThatIsNotSynchronised)
{
    host.put("/adjtimex", "0 16000000\n");
    expect("clock", "warning", "not synchronised", "timedatectl set-ntp true");
    host.put("/adjtimex", "1 10001\n");
    expect("clock", "warning", "synchronised within 10001 us", "a larger time mask in all clients, or --mode evid");
    expect("clock", "good", "synchronised within 10001 us", "", {"--time-mask", "30000"});
}

TEST_F(Doctor, LogindsLastWordCounts)
{
    EXPECT_EQ(remove_ipc_in("[Login]\n#RemoveIPC=no\n"), std::nullopt);
    EXPECT_EQ(remove_ipc_in("RemoveIPC=no\n RemoveIPC = yes \n"), true);
    EXPECT_EQ(remove_ipc_in("RemoveIPC=0"), false);
    setenv("BM_HOST_ROOT", host.variable().substr(13).c_str(), 1);
    EXPECT_EQ(logind_line(1234).how, fitness::good);
    host.put("/etc/systemd/logind.conf.d/90-x.conf", "[Login]\nRemoveIPC=yes\n");
    EXPECT_EQ(logind_line(1234).how, fitness::bad);
    EXPECT_EQ(logind_line(1234).found, "yes, for user 1234");
    EXPECT_EQ(logind_line(33).how, fitness::good) << "a system user keeps his";
    host.put("/etc/systemd/logind.conf.d/91-y.conf", "RemoveIPC=no\n");
    EXPECT_EQ(logind_line(1234).how, fitness::good);
    host.put("/etc/systemd/logind.conf.d/92-z.bak", "RemoveIPC=yes\n");
    EXPECT_EQ(logind_line(1234).how, fitness::good) << "no piece of it";
    unsetenv("BM_HOST_ROOT");
}

TEST_F(Doctor, LocalhostIsFound)
{
    const nlohmann::json seen = line("\"localhost\"");
    EXPECT_EQ(seen["found"], "127.0.0.1");
    EXPECT_EQ(seen["verdict"], "good");
}

TEST_F(Doctor, AnotherVersionAndAStranger)
{
    C_shm_buffer part("T_OLD", 2, 100, false);
    {
        live_segment raw(shmid_of(part), live_segment::WRITE);
        raw.put_int32(AT_VERSION, 101);
        const nlohmann::json seen = line("layout version");
        EXPECT_EQ(seen["verdict"], "bad");
        EXPECT_EQ(seen["mend"], "bm rm T_OLD");
        raw.put_int32(AT_VERSION, 102);
    }
    const int id = shmget(77, 4096, IPC_CREAT | 0600);
    expect("strangers at these keys", "warning",
           "segment " + std::to_string(id) + " at key 77 of user " +
               run_bm({"ls", "--json"}).document()["partitions"][1]["owner"].get<std::string>(),
           "bm check; bm repair");
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Doctor, OfAnExchangeUsersMastersAndLosses)
{
    const auto seen = [] { return run_bm({"doctor", "--json"}); };
    running_master first;
    ASSERT_TRUE(first.up());
    background_bm reader({"read", "--patience", "0"});
    ASSERT_TRUE(reader.complains("bm: reading"));
    // A monitor's thread is told by the signals that it blocks, which is the first thing that it does when it gets to run.
    nlohmann::json one;
    const auto says = [&](const std::string& verdict) {
        one = of(seen(), "one master");
        return one["verdict"] == verdict;
    };
    EXPECT_TRUE(eventually([&] { return says("good"); })) << one;
    EXPECT_EQ(one["found"], std::to_string(first.process().pid()) + " bm");
    EXPECT_EQ(of(seen(), "one user")["verdict"], "good");
    EXPECT_EQ(of(seen(), "lost notifications")["found"], "0, of 1 readers");
    {
        background_bm second({"master", "--clients", "4", "--blocks", "4", "--rate", "4", "--records", "2024"});
        ASSERT_TRUE(second.says("ready: "));
        EXPECT_TRUE(eventually([&] { return says("bad"); })) << one;
        EXPECT_EQ(one["mend"], "end all but one");
        EXPECT_EQ(second.end(), 0);
    }
    EXPECT_EQ(of(seen(), "one master")["verdict"], "good");
    EXPECT_EQ(reader.end(), 0);
}

TEST_F(Doctor, OfSeveralUsersAllButOneHaveToGo)
{
    running_master master;
    ASSERT_TRUE(master.up());
    const int clients = run_bm({"show", "ZRK4_CLIENT_SLOTS", "--json"}).document()["id"];
    const bool others_can_be = can_become_another_user();
    latch attached;
    child other([&] {
        ASSERT_NE(shmat(clients, nullptr, SHM_RDONLY), reinterpret_cast<void*>(-1));
        if (others_can_be) {
            ASSERT_TRUE(become_another_user());
        }
        attached.open();
        pause();
    });
    attached.wait();
    const nlohmann::json one = of(run_bm({"doctor", "--json"}), "one user");
    EXPECT_EQ(one["verdict"], others_can_be ? "bad" : "good") << one;
    if (!others_can_be) return;
    EXPECT_EQ(one["found"], user_text(0) + ", " + user_text(NOBODY));
    EXPECT_EQ(one["mend"].get<std::string>().substr(0, 12), "end process ");
}

TEST_F(Doctor, NotificationsThatAFullSocketHasLost)
{
    running_master master;
    ASSERT_TRUE(master.up());
    background_bm reader({"read", "--patience", "0"});
    ASSERT_TRUE(reader.complains("bm: reading"));
    kill(reader.pid(), SIGSTOP); // it takes nothing out any more
    const auto client = [] { return run_bm({"clients", "--json"}).document()["clients"].at(0); };
    const uint16_t port = client()["port"];
    for (int round = 0; round < 100 && client()["drops"] == 0; ++round) send_datagrams(port, 2000);
    const nlohmann::json full = client();
    EXPECT_GT(full["drops"], 0);
    EXPECT_GT(full["queued"], 0);
    const nlohmann::json one = of(run_bm({"doctor", "--json"}), "lost notifications");
    EXPECT_EQ(one["verdict"], "warning") << one;
    EXPECT_NE(one["found"], "0, of 1 readers");
    EXPECT_NE(one["mend"].get<std::string>().find("start process " + std::to_string(reader.pid()) + " again"),
              std::string::npos)
        << one;
    reader.end(SIGKILL);
}

TEST_F(Doctor, AnExchangeWithoutItsMaster)
{
    {
        background_bm master({"master", "--clients", "4", "--blocks", "4", "--rate", "4"});
        ASSERT_TRUE(master.says("ready: "));
        EXPECT_EQ(master.end(), 0);
    }
    const nlohmann::json one = of(run_bm({"doctor", "--json"}), "one master");
    EXPECT_EQ(one["verdict"], "bad") << one;
    EXPECT_EQ(one["found"], "none");
    EXPECT_EQ(one["mend"], "bm master");
    clear_ipc_namespace();
}

/// Attaches the segment that has this id in an IPC namespace of its own.
void attach_in_another_namespace(int id)
{
    ASSERT_TRUE(enter_ipc_namespace());
    int made = -1;
    while (made < id) ASSERT_GE(made = shmget(IPC_PRIVATE, 4096, 0600), 0);
    ASSERT_EQ(made, id);
    ASSERT_NE(shmat(made, nullptr, SHM_RDONLY), reinterpret_cast<void*>(-1));
}

TEST_F(Doctor, AnotherNamespacesUsersAreNotOurs)
{
    {
        background_bm master({"master", "--clients", "4", "--blocks", "4", "--rate", "4"});
        ASSERT_TRUE(master.says("ready: "));
        EXPECT_EQ(master.end(), 0);
    }
    const int clients = run_bm({"show", "ZRK4_CLIENT_SLOTS", "--json"}).document()["id"];
    latch attached, done;
    child other([&] {
        attach_in_another_namespace(clients);
        attached.open();
        done.wait();
    });
    attached.wait();
    EXPECT_EQ(of(run_bm({"doctor", "--json"}), "one user")["found"], "nobody");
    done.open();
    EXPECT_EQ(other.wait(), 0);
    clear_ipc_namespace();
}

TEST(LibraryThread, IsToldByTheSignalsThatItBlocks)
{
    EXPECT_TRUE(is_library_thread(0x10006a02));
    EXPECT_TRUE(is_library_thread(0x10006a03)) << "more may be blocked";
    EXPECT_FALSE(is_library_thread(0x10006a22)) << "SIGABRT never";
    EXPECT_FALSE(is_library_thread(0x4002)) << "SIGINT and SIGTERM alone are a program's own";
    EXPECT_FALSE(is_library_thread(0));
}

} // namespace
} // namespace bm::test
