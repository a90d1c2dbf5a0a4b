#include <sstream>

#include "a_host.h"

namespace bm::test {
namespace {

class Show : public AHost {};
IN_BOTH_GENERATIONS(Show);

TEST_P(Show, BeginsWithThePartitionsOwnDump)
{
    put({});
    std::ostringstream dump;
    bm.find_by_id(data_id)->dump(dump);
    const outcome seen = run_bm({"show", "T_DATA"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out.substr(0, dump.str().size()), dump.str());
}

TEST_P(Show, TellsTheEventThatABufferBelongsTo)
{
    const int n = event(1);
    const int b = put({.server = "ADC"});
    slot(n).add_entry("ADC", data_id, b);
    const nlohmann::json held = run_bm({"show", "T_DATA", "--json"}).document()["held"];
    ASSERT_EQ(held.size(), 1U);
    EXPECT_EQ(held[0]["buffer"], b);
    EXPECT_EQ(held[0]["pid"], getpid());
    EXPECT_EQ(held[0]["state"], "alive");
    EXPECT_EQ(held[0]["event_slot"], n);
    EXPECT_EQ(held[0]["block"], "ADC");
    EXPECT_EQ(held[0]["holder"], "event slot 1, NORMAL 1000:000500, as ADC");
}

TEST_P(Show, ABufferThatADeadProcessHadTakenIsLost)
{
    const int b = put({});
    bm.find_by_id(data_id)->get_bufptr()[b].owner_pid = dead_pid();
    const outcome seen = run_bm({"show", "T_DATA", "--json"});
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.document()["held"][0]["lost"], true);
    EXPECT_NE(run_bm({"show", "T_DATA", "--held"}).out.find("nobody: its taker is dead (bm repair)"),
              std::string::npos);
}

TEST_P(Show, SlotPartitionsHoldSlots)
{
    writer_slot({"A"});
    const nlohmann::json held = run_bm({"show", "ZRK4_CLIENT_SLOTS", "--json"}).document()["held"];
    ASSERT_EQ(held.size(), 2U);
    EXPECT_EQ(held[0]["holder"], "control record");
    EXPECT_EQ(held[1]["holder"], "client slot 1");
}

TEST_P(Show, NoSuchPartitionEndsWith3)
{
    const outcome seen = run_bm({"show", "T_NOT_THERE"});
    EXPECT_EQ(seen.status, 3);
    EXPECT_EQ(seen.err, "bm: no partition has the name \"T_NOT_THERE\"\n"
                        "  seen:   3 segments at the keys of partitions\n"
                        "  needed: a master that has made it, in this IPC namespace\n"
                        "  try:    bm ls\n");
}

} // namespace
} // namespace bm::test
