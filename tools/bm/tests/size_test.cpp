// The calculator through the command; what it emits is compiled, run and compared with what it promised.
#include <csignal>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "clean_namespace.h"
#include "run_bm.h"
#include "staged_host.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

class Size : public CleanNamespace {
  protected:
    outcome run(words arguments) const
    {
        arguments.insert(arguments.begin(), "size");
        return run_bm(arguments, {host.variable()});
    }
    staged_host host;
};

TEST_F(Size, ShowsPartitionsSettersAndKernelSettings)
{
    const outcome seen = run({"--preset", "bench"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_EQ(words_of(seen.out),
              "8 clients, 8 blocks per event, 10 events/s, readers take 500 ms, dead ones 6.0 s more\n\n"
              "PARTITION BUFFERS SIZE SEMAPHORES\n"
              "ZRK4_CLIENT_SLOTS 513 x 2096 1.10 MB 517\n"
              "ZRK4_EVENT_SLOTS 321 x 6420 2.08 MB 325\n"
              "DATA_1 528 x 4096 2.19 MB 4\n\n"
              "memory 5.37 MB, 846 semaphores; slots for 32.0 s of open events\n"
              "master: set_nclients(8), set_nblocks(8), set_rate(10)\n\n"
              "SETTING NEEDED HERE REMARK\n"
              "kernel.sem (1st value) 517 32000\n"
              "kernel.sem (2nd value) 846 1024000000\n"
              "kernel.sem (4th value) 3 32000\n"
              "kernel.shmmni 3 4096\n"
              "kernel.shmmax 2188332 9223372036854775807\n"
              "kernel.shmall 1310 9223372036854775807\n"
              "net.core.rmem_max 49920 8388608\n");
}

TEST_F(Size, TextAndDocumentTellTheSame)
{
    const nlohmann::json all = run({"--preset", "bench", "--json"}).document();
    EXPECT_EQ(all["schema"], "bm.size");
    EXPECT_EQ(all["possible"], true);
    EXPECT_EQ(all["partitions"][0]["buffers"], 513);
    EXPECT_EQ(all["partitions"][1]["length"], 6420);
    EXPECT_EQ(all["partitions"][2]["bytes"], 2188332);
    EXPECT_EQ(all["semaphores"], 846);
    EXPECT_EQ(all["kernel"][0]["needed"], 517);
    EXPECT_EQ(run({"--preset", "bench", "--emit", "json"}).out, run({"--preset", "bench", "--json"}).out);
}

TEST_F(Size, WhatIsGivenChangesThePreset)
{
    const nlohmann::json all = run({"--preset", "hall", "--clients", "4", "--block-size", "1kx3", "--block-size", "2M",
                                    "--rate", "2.5", "--reader-time", "0", "--stall", "0", "--json", "--names", "A,B"})
                                   .document();
    EXPECT_EQ(all["load"]["clients"], 4);
    EXPECT_EQ(all["load"]["blocks"], 4);
    EXPECT_EQ(all["load"]["groups"],
              nlohmann::json::parse(R"([{"bytes":1024,"per_event":3},{"bytes":2097152,"per_event":1}])"));
    EXPECT_EQ(all["partitions"][0]["name"], "A");
    EXPECT_EQ(all["partitions"][1]["name"], "B");
    EXPECT_EQ(all["partitions"][2]["buffers"], 6) << "one event in flight, one that is filled";
    EXPECT_EQ(all["setters"]["set_rate"], 3);
}

TEST_F(Size, SaysPlainlyWhatIsImpossible)
{
    const outcome seen = run({"--clients", "20000", "--blocks", "16"});
    EXPECT_EQ(seen.status, 1);
    EXPECT_NE(seen.out.find("impossible: client slots: they pass the semaphores of one set or 2 GiB\n"
                            "  seen:   40000 slots of 4144 bytes\n"
                            "  needed: at most 31995 slots and 2147483647 bytes\n"
                            "  instead: at most 15997 clients with 16 blocks\n"),
              std::string::npos)
        << seen.out;
    EXPECT_EQ(run({"--clients", "20000", "--json"}).document()["possible"], false);
}

TEST_F(Size, NothingIsEmittedForWhatIsImpossible)
{
    const outcome seen = run({"--clients", "20000", "--emit", "c++"});
    EXPECT_EQ(seen.status, 2);
    EXPECT_EQ(seen.out, "");
    EXPECT_EQ(seen.err.substr(0, 20), "bm: impossible: clie");
}

TEST_F(Size, SysctlLinesRaiseWhatIsTooLow)
{
    host.put("/proc/sys/kernel/sem", "250 32000 32 128\n");
    host.put("/proc/sys/net/core/rmem_max", "1000\n");
    const outcome seen = run({"--preset", "bench", "--emit", "sysctl"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out, "# /etc/sysctl.d/60-bm.conf; then: sysctl --system\n"
                        "# kernel.sem (1st value): needed 517, here 250: a slot partition has a semaphore for each "
                        "slot, all in one set\n"
                        "kernel.sem = 517 32000 32 128\n"
                        "# kernel.sem (2nd value): needed 846, here 32000: enough\n"
                        "# kernel.sem (4th value): needed 3, here 128: enough\n"
                        "# kernel.shmmni: needed 3, here 4096: enough\n"
                        "# kernel.shmmax: needed 2188332, here 9223372036854775807: enough\n"
                        "# kernel.shmall: needed 1310, here 9223372036854775807: enough\n"
                        "# net.core.rmem_max: needed 49920, here 1000: a reader that falls behind loses the "
                        "notifications that its socket has no room for\n"
                        "net.core.rmem_max = 49920\n");
}

TEST_F(Size, WrongNumbersAreWrongUsage)
{
    for (const words& wrong :
         {words{"--block-size", "0"}, words{"--block-size", "x"}, words{"--block-size", "4q"},
          words{"--block-size", "4kx"}, words{"--block-size", "99999999999999999999"}, words{"--rate", "0"},
          words{"--clients", "-1"}, words{"--preset", "moon"}, words{"--emit", "fortran"}}) {
        const outcome seen = run(wrong);
        EXPECT_EQ(seen.status, 64) << testing::PrintToString(wrong);
        EXPECT_EQ(seen.out, "");
    }
}

/// A program that runs until it is told to end.
class running {
  public:
    running(const std::string& program, const std::string& library)
    {
        int ends[2] = {-1, -1};
        if (pipe(ends) != 0) throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            alarm(30);
            setenv("LD_LIBRARY_PATH", library.c_str(), 1);
            dup2(ends[1], STDOUT_FILENO);
            execl(program.c_str(), program.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        out_ = fdopen(ends[0], "r");
    }
    ~running()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        std::fclose(out_);
    }
    running(const running&) = delete;
    running& operator=(const running&) = delete;

    bool says(const std::string& wanted) const
    {
        char line[512];
        while (std::fgets(line, sizeof line, out_) != nullptr) {
            if (line == wanted + "\n") return true;
        }
        return false;
    }
    int end(int signal)
    {
        int status = -1;
        kill(pid_, signal);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

  private:
    pid_t pid_ = -1;
    std::FILE* out_ = nullptr;
};

TEST_F(Size, TheEmittedProgramMakesExactlyThesePartitions)
{
    const words arguments{"--preset", "bench", "--records", "2024", "--names", "T_C,T_E", "--rate", "5"};
    words as_program = arguments, as_document = arguments;
    as_program.insert(as_program.end(), {"--emit", "c++"});
    as_document.emplace_back("--json");
    const outcome program = run(as_program);
    ASSERT_EQ(program.status, 0) << program.err;
    const scratch_directory work;
    const std::string base = work.path() / "exchange";
    std::ofstream(base + ".cpp") << program.out;
    const std::string compile = std::string(BM_COMPILER) + " -std=c++20 -Wall -Wextra -Werror " + BM_COMPILER_FLAGS +
                                " -I" + BM_LIBRARY_HEADERS + " -o " + base + " " + base + ".cpp -L" + BM_LIBRARIES +
                                " -lZRK4bm -lZRK4evutl -pthread";
    ASSERT_EQ(std::system(compile.c_str()), 0) << compile;

    running exchange(base, BM_LIBRARIES);
    ASSERT_TRUE(exchange.says("ready"));
    const nlohmann::json promised = run(as_document).document()["partitions"];
    const nlohmann::json made = run_bm({"ls", "--json"}).document()["partitions"];
    ASSERT_EQ(made.size(), promised.size());
    for (size_t i = 0; i < made.size(); ++i) {
        for (const char* what : {"name", "buffers", "length", "bytes", "locks"})
            EXPECT_EQ(made[i][what], promised[i][what]) << what << " of " << promised[i]["name"];
    }
    EXPECT_EQ(exchange.end(SIGHUP), 0);
    EXPECT_TRUE(run_bm({"ls", "--json"}).document()["partitions"].empty()) << "they went with it";
}

} // namespace
} // namespace bm::test
