// The demonstration accounts for everything, also for what it kills, and leaves nothing behind.
#include <gtest/gtest.h>

#include "background_bm.h"
#include "clean_namespace.h"

namespace bm::test {
namespace {

using namespace zrk4::test;

class Demo : public CleanNamespace {};

TEST_F(Demo, AccountsForEverything)
{
    const outcome seen = run_bm({"demo", "--seconds", "2", "--json"});
    EXPECT_EQ(seen.status, 0) << seen.out << seen.err;
    const nlohmann::json all = seen.document();
    EXPECT_EQ(all["schema"], "bm.demo");
    EXPECT_GT(all["blocks_written"], 40);
    EXPECT_GT(all["events_read"], 20);
    EXPECT_EQ(all["kills"], 0);
    EXPECT_EQ(all["broken"], 0);
    EXPECT_EQ(all["balanced"], true);
}

TEST_F(Demo, ShowsHowWhatItKillsComesBack)
{
    background_bm demo({"demo", "--seconds", "5", "--faults", "--seed", "3"});
    EXPECT_EQ(demo.wait(), 0) << demo.seen_out << demo.seen_err;
    EXPECT_NE(demo.seen_out.find("killed "), std::string::npos) << demo.seen_out;
    EXPECT_NE(demo.seen_out.find("started again as "), std::string::npos);
    EXPECT_NE(demo.seen_out.find("everything is accounted for\n"), std::string::npos) << demo.seen_out;
}

TEST_F(Demo, InterruptedItEndsInOrder)
{
    background_bm demo({"demo", "--seconds", "60"});
    ASSERT_TRUE(demo.says("two readers\n"));
    for (int i = 0; i < 400 && run_bm({"ls", "--json"}).document()["partitions"].size() < 4; ++i) usleep(10000);
    usleep(500000); // some events
    EXPECT_EQ(demo.end(SIGINT), 0) << demo.seen_out << demo.seen_err;
}

TEST_F(Demo, EndsInOrderWhenNobodyReadsItAnyMore)
{
    background_bm demo({"demo", "--seconds", "40", "--faults"});
    ASSERT_TRUE(demo.says("every two seconds\n"));
    demo.stop_listening(); // the next line, of a kill, meets a closed pipe
    EXPECT_EQ(demo.wait(), 0) << demo.seen_err;
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(Demo, KilledItLeavesNoProcess)
{
    background_bm demo({"demo", "--seconds", "60"});
    ASSERT_TRUE(demo.says("two readers\n"));
    for (int i = 0; i < 400 && run_bm({"ls", "--json"}).document()["partitions"].size() < 4; ++i) usleep(10000);
    EXPECT_EQ(demo.end(SIGKILL), 128 + SIGKILL);
    nlohmann::json left;
    for (int i = 0; i < 400; ++i) {
        left = run_bm({"ls", "--json"}).document()["partitions"];
        long attached = 0;
        for (const auto& part : left) attached += part["attached"].get<long>();
        if (attached == 0) break;
        usleep(10000);
    }
    for (const auto& part : left) EXPECT_EQ(part["attached"], 0);
    clear_ipc_namespace();
}

} // namespace
} // namespace bm::test
