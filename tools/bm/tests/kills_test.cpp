// bm repair on what is left of real processes that were killed in the middle of their work, the master among them.
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "background_bm.h"
#include "clean_namespace.h"
#include "eventually.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

class Kills : public CleanNamespace, public testing::WithParamInterface<const char*> {
  protected:
    void start_master()
    {
        master = std::make_unique<background_bm>(words{"master", "--clients", "8", "--blocks", "4", "--rate", "4",
                                                       "--period", "20000", "--records", GetParam()});
        ASSERT_TRUE(master->says("ready: ")) << master->seen_err;
    }
    std::unique_ptr<background_bm> member(words arguments) const
    {
        arguments.insert(arguments.end(), {"--records", GetParam(), "--time-mask", "100"});
        return std::make_unique<background_bm>(arguments);
    }
    std::unique_ptr<background_bm> writer(const std::string& name) const
    {
        return member({"write", "--name", name, "--rate", "2000", "--size", "1k", "--seconds", "40"});
    }
    /// Any moment of the protocol: events follow each other every half millisecond.
    void let_work() { std::this_thread::sleep_for(std::chrono::microseconds(20000 + random() % 30000)); }

    std::unique_ptr<background_bm> master;
    std::mt19937 random{20240607};
};
INSTANTIATE_TEST_SUITE_P(Records, Kills, testing::Values("2010", "2024"));

TEST_P(Kills, AreMendedAndTheExchangeGoesOn)
{
    for (int round = 0; round < 6; ++round) {
        start_master();
        {
            auto reader = member({"read", "--patience", "0"});
            ASSERT_TRUE(reader->complains("bm: reading")) << reader->seen_err;
            auto a = writer("A"), b = writer("B");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            for (auto* each : {&a, &reader, &b}) {
                let_work();
                EXPECT_EQ((*each)->end(SIGKILL), 128 + SIGKILL) << "it had ended before: " << (*each)->seen_err;
            }
        }
        master->end(SIGKILL);
        const outcome mended = run_bm({"repair", "--observe", "0.1"});
        EXPECT_EQ(mended.status, 0) << mended.out << mended.err;
        EXPECT_EQ(mended.out.find(" 0 repaired"), std::string::npos) << "three dead clients at least";
        const outcome after = run_bm({"check", "--observe", "0.1"});
        EXPECT_EQ(after.status, 0) << after.out << after.err;
    }
    start_master();
    // Events of the dead are its monitor's to free.
    ASSERT_TRUE(eventually([] { return run_bm({"events", "--json"}).document()["in_use"] == 0; }));
    auto reader = member({"read", "--count", "5", "--blocks", "C", "--patience", "20"});
    ASSERT_TRUE(reader->complains("bm: reading")) << reader->seen_err;
    const outcome written =
        run_bm({"write", "--name", "C", "--count", "5", "--rate", "20", "--records", GetParam(), "--time-mask", "100"});
    EXPECT_EQ(written.status, 0) << written.out << written.err;
    EXPECT_EQ(reader->wait(), 0) << reader->seen_out << reader->seen_err;
    EXPECT_EQ(master->end(), 0);
    clear_ipc_namespace();
}

} // namespace
} // namespace bm::test
