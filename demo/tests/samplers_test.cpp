// The texts of /proc become channels; the host's real ones are measured as well.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "plan.h"
#include "samplers.h"

using namespace demo;

namespace {

struct channel_values {
    std::vector<double> values;
    int error;
};
using channels = std::map<std::string, channel_values>;

/// The channels that `fill` writes into a block.
channels written_by(const std::function<void(block_writer&)>& fill)
{
    std::vector<char> memory(BUFFER_BYTES);
    block_writer block(memory.data(), memory.size(), true, {"HOST.TEST", {1, 0}, 1, 1, 0});
    fill(block);
    block.seal([] { return int64_t{0}; });
    channels seen;
    for (const zrk4::sb_sub& one : zrk4::sb_view(memory.data(), memory.size())) {
        std::vector<double> values(one.count<double>());
        for (size_t i = 0; i < values.size(); ++i) values[i] = one.value<double>(i);
        seen[std::string(one.name())] = {values, one.error()};
    }
    return seen;
}

using four = std::vector<double>;

} // namespace

TEST(Processors, AreCountedByWhatTheyDid)
{
    const channels seen = written_by([](block_writer& block) {
        processor_channels("cpu  10 20 30 40 50 6 7 8 0 0\ncpu0 1 2 3 4 5 6 7 8 0 0\nintr 1 2 3\nctxt 1990473\n"
                           "processes 2915\nprocs_running 3\n",
                           block);
    });
    EXPECT_EQ(seen.at("cpu").values, (four{30, 51, 50, 40}));
    EXPECT_EQ(seen.at("cpu0").values, (four{3, 24, 5, 4}));
    EXPECT_EQ(seen.at("context switches").values, four{1990473});
    EXPECT_EQ(seen.at("forks").values, four{2915});
    EXPECT_EQ(seen.at("running").values, four{3});
    EXPECT_EQ(seen.count("intr"), 0U);
}

TEST(Memory, IsCountedInKibibytes)
{
    const channels seen = written_by([](block_writer& block) {
        memory_channels("MemTotal:       24683648 kB\nMemAvailable:   23000000 kB\nHugePages_Total:       0\n", block);
    });
    EXPECT_EQ(seen.at("MemTotal").values, four{24683648});
    EXPECT_EQ(seen.at("MemAvailable").values, four{23000000});
    EXPECT_EQ(seen.count("HugePages_Total"), 0U);
}

TEST(Pressure, IsTheTotalOfSomeAndOfAll)
{
    const channels seen = written_by([](block_writer& block) {
        pressure_channel("disks",
                         "some avg10=0.17 avg60=0.23 avg300=0.11 total=1585225\nfull avg10=0.17 avg60=0.23 "
                         "avg300=0.10 total=1490175\n",
                         0, block);
    });
    EXPECT_EQ(seen.at("disks").values, (four{1585225, 1490175}));
    EXPECT_EQ(seen.at("disks").error, 0);
}

TEST(Pressure, OfAKernelThatDoesNotMeasureItIsAnErrorOfTheChannel)
{
    const channels seen = written_by([](block_writer& block) { pressure_channel("disks", "", ENOENT, block); });
    EXPECT_EQ(seen.at("disks").error, ENOENT);
}

TEST(Network, IsSummedWithoutTheLoopback)
{
    const channels seen = written_by([](block_writer& block) {
        network_channels(
            "Inter-|   Receive                       |  Transmit\n face |bytes    packets|bytes\n"
            "    lo:    3267      29    0    0    0     0          0         0     3267      29 0 0 0 0 0 0\n"
            "  eth0: 18447915     521    0    0    0     0          0         0    21278     251 0 0 0 0 0 0\n"
            "eth1:1 2 0 0 0 0 0 0 3 4 0 0 0 0 0 0\n",
            block);
    });
    EXPECT_EQ(seen.at("lo").values, (four{3267, 29, 3267, 29}));
    EXPECT_EQ(seen.at("eth0").values, (four{18447915, 521, 21278, 251}));
    EXPECT_EQ(seen.at("eth1").values, (four{1, 2, 3, 4}));
    EXPECT_EQ(seen.at("total").values, (four{18447916, 523, 21281, 255}));
}

TEST(Disks, AreWholeOnesThatWereUsed)
{
    const channels seen = written_by([](block_writer& block) {
        disk_channels(
            "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n 254       0 vda 10 1 20 2 30 3 40 4 0 5 6\n"
            " 254       1 vda1 10 1 20 2 30 3 40 4 0 5 6\n 254      16 vdb 1 0 2 0 3 0 4 0 0 0 0\n",
            [](const std::string& name) { return name != "vda1"; }, block);
    });
    EXPECT_EQ(seen.at("vda").values, (four{10, 20, 30, 40}));
    EXPECT_EQ(seen.at("vdb").values, (four{1, 2, 3, 4}));
    EXPECT_EQ(seen.at("total").values, (four{11, 22, 33, 44}));
    EXPECT_EQ(seen.count("vda1") + seen.count("loop0"), 0U);
}

TEST(Samplers, MeasureThisHost)
{
    std::map<std::string, channels> seen;
    for (const writer_plan& writer : writers()) {
        for (const std::string& block : writer.blocks)
            seen[block] = written_by([&](block_writer& into) { sampler_for(block)->sample(into); });
    }
    EXPECT_EQ(static_cast<int>(seen.size()), blocks_per_event());
    EXPECT_GT(seen[PROCESSORS].at("cpu").values.at(3), 0.0);
    EXPECT_GT(seen[MEMORY].at("MemTotal").values.at(0), 0.0);
    EXPECT_EQ(seen[PRESSURE].size(), 4U) << "with the stamp";
    EXPECT_EQ(seen[NETWORK].count("total"), 1U);
    EXPECT_EQ(seen[DISKS].count("total"), 1U);
    EXPECT_THROW(sampler_for("HOST.WEATHER"), std::logic_error);
}

TEST(Samplers, SeeANewTextEachTime)
{
    const auto processors = sampler_for(PROCESSORS);
    const auto switches = [&] {
        return written_by([&](block_writer& into) { processors->sample(into); }).at("context switches").values.at(0);
    };
    const double before = switches();
    double after = before;
    for (int tries = 0; tries < 100'000 && after == before; ++tries) after = switches();
    EXPECT_GT(after, before);
}
