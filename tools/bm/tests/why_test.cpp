// bm why: each sentence about a state that is known.
#include "a_host.h"

#include "unit/udp_inbox.h"

namespace bm::test {
namespace {

class Why : public AHost {
  protected:
    std::string told(int status, const std::string& which = "1")
    {
        const outcome seen = run_bm({"why", which});
        EXPECT_EQ(seen.status, status) << seen.err;
        return seen.out;
    }
    nlohmann::json document() { return run_bm({"why", "1", "--json"}).document(); }
    static std::string number(pid_t pid) { return std::to_string(pid); }
};
IN_BOTH_GENERATIONS(Why);

#define EXPECT_TOLD(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_P(Why, ALivingWriterOwesABlock)
{
    bystanders others;
    const pid_t owing = others.one_more();
    const int w = writer_slot({"A", "B"}, owing);
    const int r = reader_slot({});
    const int n = event(2);
    slot(n).add_client(w, WAIT);
    slot(n).add_client(r, WAIT);
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    const std::string text = told(0);
    EXPECT_TOLD(text, "Slot 1 holds NORMAL event 1000:000500, id 7.");
    EXPECT_TOLD(text, "1 of 2 blocks is in, 0 B: A.");
    EXPECT_TOLD(text, "Missing is B, owed by writer W1, " + number(owing));
    EXPECT_TOLD(text, "It lives: what it waits for cannot be seen from here.");
    EXPECT_TOLD(text, "has not been told: it wants every block, and not all writers are done.");
    EXPECT_TOLD(text, "If nothing changes, the monitor frees it after 11 cycles without a change");
    EXPECT_TOLD(text, "Not to be seen from outside:");
    EXPECT_EQ(document()["outlook"], "freed");
}

TEST_P(Why, AStoppedWriterIsToldHowToGoOn)
{
    child stopped([] { pause(); });
    stopped.stop();
    const int w = writer_slot({"A"}, stopped.pid());
    slot(event(1)).add_client(w, WAIT);
    EXPECT_TOLD(told(0), "It is stopped: nothing comes until kill -CONT " + number(stopped.pid()) + ".");
}

TEST_P(Why, ADeadWriterWillNotDeliver)
{
    const int w = writer_slot({"A"}, dead_pid());
    slot(event(1)).add_client(w, WAIT);
    EXPECT_TOLD(told(0), "(dead). It is dead: nothing will come.");
}

TEST_P(Why, AReaderLacksANamedBlock)
{
    const int w = writer_slot({"A", "B"});
    const int r = reader_slot({"B"});
    const int n = event(2);
    slot(n).add_client(w, PROC);
    slot(n).add_client(r, WAIT);
    EXPECT_TOLD(told(0), "has not been told: B is not in.");
}

TEST_P(Why, ANotifiedReadersSocketIsLookedAt)
{
    const udp_inbox inbox;
    inbox.hear_nobody();
    const int w = writer_slot({"A"});
    const int r = reader_slot({}, getpid(), inbox.port());
    const int n = event(1);
    slot(n).add_client(w, DONE);
    slot(n).add_client(r, NTF);
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    const std::string text = told(0);
    EXPECT_TOLD(text, "was told and has not begun. 0 B wait in its socket on port " + std::to_string(inbox.port()));
    EXPECT_TOLD(text, "Done is W1.");
}

TEST_P(Why, AReaderAtWorkKeepsTheEvent)
{
    bystanders others;
    const int r = reader_slot({}, others.one_more());
    slot(event(0, 60)).add_client(r, PROC);
    const std::string text = told(1);
    EXPECT_TOLD(text, "works on it");
    EXPECT_TOLD(text, "The monitor will not free it while R1 lives");
    EXPECT_EQ(document()["outlook"], "kept");
}

// The monitor does not judge the clients of its own process: here the one that made the partitions.
TEST_P(Why, AReaderOfTheMasterItselfKeepsNothing)
{
    slot(event(0)).add_client(reader_slot({}), PROC);
    EXPECT_EQ(document()["outlook"], "freed");
}

TEST_P(Why, WhatShouldBeGoneLongSinceIsOverdue)
{
    slot(event(1, 60)).add_client(writer_slot({"A"}), WAIT);
    EXPECT_TOLD(told(1), "the monitor would have freed it");
    EXPECT_EQ(document()["outlook"], "overdue");
}

TEST_P(Why, ALiveWriterAtWorkCountsOnceMore)
{
    bystanders others;
    slot(event(1)).add_client(writer_slot({"A"}, others.one_more()), PROC);
    const nlohmann::json seen = document();
    EXPECT_GT(seen["in_s"], 9.0);
    EXPECT_LE(seen["in_s"], 11.0);
}

TEST_P(Why, AnEventIsFoundBySlotKeyAndId)
{
    event(1);
    for (const char* which : {"1", "1000:500", "1000"}) EXPECT_TOLD(told(0, which), "Slot 1 holds");
    slot(1).put_wide(&slot_layout::eventid, 123456);
    EXPECT_TOLD(told(0, "123456"), "Slot 1 holds");
}

TEST_P(Why, WhatIsNotThereEndsWith3)
{
    for (const char* which : {"1", "9999", "5:5", "word", "1:", ""}) {
        const outcome seen = run_bm({"why", which});
        EXPECT_EQ(seen.status, 3) << which;
        EXPECT_TOLD(seen.err, "no event is in a slot as");
    }
}

TEST_P(Why, ASlotThatContradictsItselfIsForTheCheck)
{
    const int n = event(1);
    control(n).put_status(EVT_C_FREE);
    EXPECT_TOLD(told(1), "The slot contradicts itself: taken, but not marked used.");
    EXPECT_EQ(document()["outlook"], "broken");
}

} // namespace
} // namespace bm::test
