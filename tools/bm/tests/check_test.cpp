// bm check and bm repair on every kind of damage that a death can leave, made by hand; and what they leave alone.
#include <sys/shm.h>

#include "../../../tests/unit/check_host.h"
#include "other_user.h"
#include "run_bm.h"
#include "shared.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

outcome run(words arguments)
{
    arguments.insert(arguments.end(), {"--observe", "0.05"});
    return run_bm(arguments);
}

class Check : public CheckHost {
  protected:
    /// Told by check and by a repair that only tries, mended by repair, and then nothing is left.
    void expect_mended(int rule, const std::string& partition, const std::string& part_of_text)
    {
        expect_told(run({"check", "--json"}), 1, rule, "broken", partition, part_of_text);
        expect_told(run({"repair", "--dry-run", "--json"}), 1, rule, "broken", partition, part_of_text);
        expect_told(run({"repair", "--json"}), 0, rule, "repaired", partition, part_of_text);
        const outcome after = run({"check"});
        EXPECT_EQ(after.status, 0) << after.out << after.err;
        EXPECT_EQ(after.out, "3 partitions looked at: 0 broken, 0 repaired, 0 undecidable\n");
    }
    static void expect_told(const outcome& seen, int status, int rule, const std::string& verdict,
                            const std::string& partition, const std::string& part_of_text)
    {
        EXPECT_EQ(seen.status, status) << seen.out << seen.err;
        const nlohmann::json findings = seen.document()["findings"];
        ASSERT_FALSE(findings.empty());
        EXPECT_EQ(findings[0]["rule"], rule);
        EXPECT_EQ(findings[0]["verdict"], verdict);
        EXPECT_EQ(findings[0]["partition"], partition);
        EXPECT_NE(findings[0]["text"].get<std::string>().find(part_of_text), std::string::npos) << findings[0]["text"];
        EXPECT_NE(findings[0]["statement"], "");
    }
    live_segment raw_data{data_id, live_segment::WRITE};
    const pid_t dead = dead_pid();
};
IN_BOTH_GENERATIONS(Check);

TEST_P(Check, AWholeHostIsFine)
{
    writer({"A"});
    const outcome seen = run({"check"});
    EXPECT_EQ(seen.status, 0) << seen.out << seen.err;
    EXPECT_EQ(seen.out, "3 partitions looked at: 0 broken, 0 repaired, 0 undecidable\n");
    const nlohmann::json all = run({"check", "--json"}).document();
    EXPECT_EQ(all["schema"], "bm.check");
    EXPECT_EQ(all["findings"], nlohmann::json::array());
    EXPECT_EQ(all["partitions"].size(), 3U);
    EXPECT_EQ(all["partitions"][0]["state"], "looked at");
    EXPECT_EQ(all["broken"], 0);
}

TEST_P(Check, ATailThatLags)
{
    raw_data.put_int32(AT_FREE + 4, 1);
    expect_mended(1, "T_DATA", "its tail is 1");
}

TEST_P(Check, ABufferFlaggedAndInNoQueue)
{
    const int b = put({});
    own(data(), b, dead);
    raw_data.put_int32(at_descriptor(b, IN_STATUS), 1);
    expect_mended(2, "T_DATA", "is flagged queued and in no queue");
}

TEST_P(Check, ACountThatIsShort)
{
    ASSERT_TRUE(change_semaphore(semid_of(data()), 1, -2));
    expect_mended(3, "T_DATA", "the count of free buffers is 62, the free queue has 64");
}

TEST_P(Check, ABufferOfADeadWriter)
{
    const int b = put({});
    own(data(), b, dead);
    expect_mended(4, "T_DATA", "which is gone, and is in no event");
    EXPECT_TRUE(block_is_free(b));
}

TEST_P(Check, ADeadClientsSlot)
{
    const int c = counted_client({.cltype = CLI_T_WRITER, .names = {"A"}, .pid = dead});
    own(clients_part, c, dead);
    expect_mended(4, "ZRK4_CLIENT_SLOTS", "belongs to process " + std::to_string(dead) + ", which is gone");
}

TEST_P(Check, ABufferInTwoEntries)
{
    const int b = put({});
    const int n = used_slot();
    slot(n).put(&slot_layout::nsblocks, 2);
    if (wide()) slot(n).put_first_word(0xFF77FF77FF77FF77);
    slot(n).add_entry("A", data_id, b);
    slot(n).add_entry("B", data_id, b);
    expect_mended(5, "T_DATA", "is listed twice");
}

TEST_P(Check, AnEventSlotInNoEvent)
{
    const int n = taken_slot();
    expect_mended(6, "ZRK4_EVENT_SLOTS",
                  "event slot " + std::to_string(n) + " is handed out, its control entry is free");
}

TEST_P(Check, CountersThatAreWrong)
{
    writer({"A"});
    add_to_counter(4, 3);
    expect_mended(7, "ZRK4_CLIENT_SLOTS", "clients are counted as 4, there are 1");
}

TEST_P(Check, ALockOfTheDead)
{
    child holder([&] { change_semaphore(events_semid, 4 + 3, -1); });
    ASSERT_EQ(holder.wait(), 0);
    expect_mended(8, "ZRK4_EVENT_SLOTS", "lock 3 is held by process");
}

TEST_P(Check, AHalfMadeSegment)
{
    child maker([] { (void)shmget(900, 300 + 3 * 148, IPC_CREAT | 0666); });
    ASSERT_EQ(maker.wait(), 0);
    expect_mended(9, "", "a partition that was never finished");
    EXPECT_EQ(segment_at_key(900), -1);
}

TEST_P(Check, AControlRecordInTheFreeQueue)
{
    events_part.return_buffer(0);
    expect_mended(10, "ZRK4_EVENT_SLOTS", "buffer 0, the control record, is in the free queue");
}

TEST_P(Check, AnOrphanSetGoesOnlyOnRequest)
{
    const int set = semget(IPC_PRIVATE, 4, IPC_CREAT | 0666);
    expect_told(run({"repair", "--json"}), 1, 9, "broken", "", "no partition names it");
    EXPECT_TRUE(semaphore_set_exists(set));
    expect_told(run({"repair", "--orphan-sets", "--json"}), 0, 9, "repaired", "", "no partition names it");
    EXPECT_FALSE(semaphore_set_exists(set));
}

TEST_P(Check, WhatALiveProcessHoldsIsLeftAlone)
{
    const int b = put({});
    EXPECT_EQ(run({"repair"}).status, 0);
    EXPECT_FALSE(block_is_free(b));
    const outcome held = run({"check", "--held", "--json"});
    expect_told(held, 1, 4, "undecidable", "T_DATA", "is held by process");
    EXPECT_FALSE(block_is_free(b));
    data().return_buffer(b);
}

TEST_P(Check, TextNamesTheRuleOnceAndCounts)
{
    for (const int b : {put({}), put({})}) own(data(), b, dead);
    const outcome seen = run({"check"});
    EXPECT_EQ(seen.status, 1);
    const std::string pid = std::to_string(dead);
    EXPECT_EQ(words_of(seen.out), "VERDICT RULE PARTITION PID WHAT\n"
                                  "broken 4 T_DATA " +
                                      pid + " buffer 0 was taken by process " + pid +
                                      ", which is gone, and is in no event\n"
                                      "broken 4 T_DATA " +
                                      pid + " buffer 1 was taken by process " + pid +
                                      ", which is gone, and is in no event\n"
                                      "\nrule 4: every buffer is queued, held by a live process, or in an event; every "
                                      "client lives; no event waits "
                                      "for the dead\n"
                                      "3 partitions looked at: 2 broken, 0 repaired, 0 undecidable\n");
    run({"repair"});
}

TEST_P(Check, OnePartitionAloneByItsName)
{
    ASSERT_TRUE(change_semaphore(semid_of(data()), 1, -2));
    add_to_counter(4, 3);
    EXPECT_EQ(run({"check", "T_DATA", "--json"}).document()["findings"].size(), 1U);
    EXPECT_EQ(run({"repair", "T_DATA"}).status, 0);
    expect_mended(7, "ZRK4_CLIENT_SLOTS", "clients are counted as 3, there are 0");
}

TEST_P(Check, ALockThatALiveProcessKeepsIsATimeOut)
{
    latch taken;
    child holder([&] {
        clients_part.ctrl(0, true);
        taken.open();
        pause();
    });
    taken.wait();
    const outcome seen = run({"check", "--patience", "0.05"});
    EXPECT_EQ(seen.status, 4) << seen.out;
    EXPECT_NE(seen.out.find("ZRK4_CLIENT_SLOTS: busy: lock 0 could not be had within 50 ms: held by process " +
                            std::to_string(holder.pid())),
              std::string::npos)
        << seen.out;
}

TEST(CheckAlone, APartitionThatIsNotThere)
{
    const outcome seen = run({"check", "T_NONE"});
    EXPECT_EQ(seen.status, 3);
    EXPECT_EQ(seen.out, "T_NONE: missing: there is no partition of this name\n"
                        "0 partitions looked at: 0 broken, 0 repaired, 0 undecidable\n");
    EXPECT_EQ(run({"check"}).status, 3);
}

TEST(CheckAlone, ASegmentThatIsClosedToUsIsTold)
{
    // Nobody's rights are taken from root; elsewhere the mode alone decides.
    if (geteuid() == 0) {
        const bool possible = can_become_another_user(); // else one user is alone in this namespace
        const int id = shmget(33, 4096, IPC_CREAT | 0600);
        child other([&] {
            if (!possible) return;
            ASSERT_TRUE(become_another_user());
            const outcome seen = run({"check"});
            EXPECT_EQ(seen.status, 1) << seen.out << seen.err;
            EXPECT_NE(seen.out.find("closed to user nobody: it belongs to user root, mode 0600"), std::string::npos)
                << seen.out;
            EXPECT_EQ(run_bm({"rm", "T_ANY"}).status, 2);
        });
        EXPECT_EQ(other.wait(), 0);
        shmctl(id, IPC_RMID, nullptr);
        return;
    }
    const int id = shmget(33, 4096, IPC_CREAT | 0000);
    const outcome seen = run({"check"});
    EXPECT_EQ(seen.status, 1) << seen.out << seen.err;
    EXPECT_NE(seen.out.find("mode 0000; try: sudo bm check"), std::string::npos) << seen.out;
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
} // namespace bm::test
