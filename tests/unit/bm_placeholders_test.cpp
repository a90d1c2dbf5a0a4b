// Placeholders of a new event, for blocks that will not come; and the room that clients and placeholders may take.
#include "event_host.h"

using namespace zrk4::test;

namespace {

std::string numbered(const std::string& stem, int i) { return stem + std::to_string(i); }

std::vector<std::string> many_names(const std::string& stem, int count)
{
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) names.push_back(numbered(stem, i));
    return names;
}

class BmPlaceholders : public EventHost {
  protected:
    bystanders others;
};
IN_BOTH_GENERATIONS(BmPlaceholders);

// ---- names that nobody delivers

TEST_P(BmPlaceholders, MakesAPlaceholderForANameThatNoWriterLists)
{
    writer({"A"});
    client({.names = {"A", "LOST"}});
    int n = -1;
    EXPECT_EQ(said([&] { n = init_slot(); }), "DATE Missed blocks !!! LOST\n");
    const auto seen = slot(n);
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("LOST")}));
    EXPECT_EQ(seen.nsblocks(), 2) << "the event expects it, and already holds it";
    EXPECT_EQ(seen.sbfilled(), 1);
    EXPECT_EQ(seen.nclients(), 2);
    EXPECT_EQ(seen.first_dirty(seen.used()), seen.length());
}

TEST_P(BmPlaceholders, MakesOnePlaceholderForANameThatManyMiss)
{
    writer({"A"});
    client({.names = {"Z", "LOST"}});
    client({.names = {"LOST", "Y", "Z"}});
    EXPECT_EQ(slot(init_slot()).entries(), (std::vector<seen_entry>{hole("Z"), hole("LOST"), hole("Y")}))
        << "in the order of the first one who misses it";
}

TEST_P(BmPlaceholders, MissesNothingForAReaderThatIsNotAdmitted)
{
    const pid_t other = others.one_more();
    writer({"A"});
    client({.names = {"LOST"}, .pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    EXPECT_EQ(slot(init_slot({.tmask = 0})).sbfilled(), 0);
}

TEST_P(BmPlaceholders, LooksForNamesAtWritersOfTheTypeOnly)
{
    const pid_t other = others.one_more();
    client({.names = {"BEFORE", "BEHIND", "OTHER"}});
    client({.cltype = CLI_T_WRITER, .names = {"BEFORE"}, .pid = other});
    writer({"A"});
    client({.cltype = CLI_T_WRITER, .names = {"OTHER"}, .pid = other, .evtype = TYPE + 1});
    client({.names = {"OTHER"}}); // nor at readers
    client({.cltype = CLI_T_WRITER, .names = {"BEHIND"}, .pid = other});
    EXPECT_EQ(slot(init_slot()).entries(), (std::vector<seen_entry>{hole("OTHER")}));
}

TEST_P(BmPlaceholders, ComparesNamesOver256Characters)
{
    std::string long_name(255, 'n');
    writer({long_name});
    client({.names = {long_name, long_name.substr(1), long_name + "x"}});
    const auto seen = slot(init_slot());
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole(long_name.substr(1)), hole(long_name)}))
        << "255 characters of a name that fills its field are copied";
}

// A dead writer that the walk meets later still lists its names when an earlier reader asks; kicked out, it does not.
TEST_P(BmPlaceholders, CountsOnAWriterUntilItIsKickedOut)
{
    const pid_t dead = dead_pid();
    writer({"A"});
    client({.names = {"B"}});
    client({.cltype = CLI_T_WRITER, .names = {"B"}, .pid = dead});
    client({.names = {"B", "C"}});
    EXPECT_EQ(slot(init_slot()).entries(), (std::vector<seen_entry>{hole("B"), hole("C")}))
        << "missed by the second reader, behind the dead writer";
}

TEST_P(BmPlaceholders, PassesOverWritersWithoutAProcessWhenItLooksForNames)
{
    writer({"A"});
    client({.names = {"B"}});
    client({.cltype = CLI_T_WRITER, .names = {"B"}, .pid = 0}); // kill(0, 0) succeeds: it is not thrown out
    const auto seen = slot(init_slot());
    EXPECT_EQ(seen.nclients(), 3);
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("B")}));
}

TEST_P(BmPlaceholders, FindsManyNamesAmongMany)
{
    const auto listed = many_names("N", 40);
    writer({});
    client({.cltype = CLI_T_WRITER, .names = listed});
    auto wanted = many_names("N", 44);
    client({.names = wanted});
    EXPECT_EQ(slot(init_slot()).entries(),
              (std::vector<seen_entry>{hole("N40"), hole("N41"), hole("N42"), hole("N43")}));
}

TEST_P(BmPlaceholders, SpeaksOfTwentyMissedBlocks)
{
    writer({});
    client({.names = many_names("M", 24)});
    std::string expected;
    for (int i = 0; i < 20; ++i) expected += "DATE Missed blocks !!! " + numbered("M", i) + "\n";
    int n = -1;
    EXPECT_EQ(said([&] { n = init_slot(); }), expected);
    EXPECT_EQ(slot(n).sbfilled(), 24);
    EXPECT_EQ(bm.missed_blocks_debug, 0);
    EXPECT_EQ(said([&] { init_slot(); }), "");
    EXPECT_EQ(bm.missed_blocks_debug, 0);
    EXPECT_EQ(bm.timed_blocks_debug, 20);
}

// ---- a process that does not see the event

TEST_P(BmPlaceholders, CountsOutTheWriterOfAProcessThatDoesNotSeeTheEvent)
{
    const pid_t other = others.one_more();
    writer({"A"});
    const int theirs = client({.cltype = CLI_T_WRITER, .names = {"T1", "T2"}, .pid = other});
    client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    int n = -1;
    EXPECT_EQ(said([&] { n = init_slot({.tmask = 0}); }), "DATE Timed blocks !!! T1\nDATE Timed blocks !!! T2\n");
    const auto seen = slot(n);
    EXPECT_EQ(seen.clients().back(), (seen_client{theirs, DONE}));
    EXPECT_EQ(seen.nclients(), 2) << "the reader takes no part";
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("T1"), hole("T2")}));
    EXPECT_EQ(seen.nsblocks(), 3) << "the writer's own count; the placeholders add nothing";
    EXPECT_EQ(client_events(theirs), 1);
    EXPECT_EQ(seen.first_dirty(seen.used()), seen.length());
}

TEST_P(BmPlaceholders, CountsOutTheFirstWriterOfThatProcessInSlotOrder)
{
    const pid_t other = others.one_more();
    writer({"A"});
    client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    client({.cltype = CLI_T_WRITER, .names = {"X"}, .pid = other, .evtype = TYPE + 1});
    const int first = client({.cltype = CLI_T_WRITER, .names = {"T"}, .pid = other});
    const int second = client({.cltype = CLI_T_WRITER, .names = {"U"}, .pid = other});
    const auto seen = slot(init_slot({.tmask = 0}));
    ASSERT_EQ(seen.nclients(), 3);
    EXPECT_EQ(seen.clients()[1], (seen_client{first, DONE}));
    EXPECT_EQ(seen.clients()[2], (seen_client{second, WAIT}));
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("T")}));
}

TEST_P(BmPlaceholders, RepeatsTheNamesForEveryReaderThatIsNotAdmitted)
{
    const pid_t other = others.one_more();
    writer({"A"});
    const int theirs = client({.cltype = CLI_T_WRITER, .names = {"T"}, .pid = other});
    for (int i = 0; i < 2; ++i) client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    const auto seen = slot(init_slot({.tmask = 0}));
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("T"), hole("T")}));
    EXPECT_EQ(client_events(theirs), 2);
    EXPECT_EQ(seen.nsblocks(), 2);
}

TEST_P(BmPlaceholders, CountsItselfOutWhenItsOwnReaderIsNotAdmitted)
{
    const int ours = writer({"A"});
    client({.ratio = {1000, 0}, .atime = {4000000000, 0}});
    const auto seen = slot(init_slot({.tmask = 0}));
    EXPECT_EQ(seen.clients(), (std::vector<seen_client>{{ours, DONE}}));
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("A")})) << "before its own block is entered";
}

TEST_P(BmPlaceholders, CountsOutNobodyForAPureReader)
{
    const pid_t other = others.one_more();
    writer({"A"});
    client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    const auto seen = slot(init_slot({.tmask = 0}));
    EXPECT_EQ(seen.nclients(), 1);
    EXPECT_EQ(seen.sbfilled(), 0);
}

TEST_P(BmPlaceholders, PutsTimedPlaceholdersInFrontOfMissedOnes)
{
    const pid_t other = others.one_more();
    client({.names = {"LOST"}});
    writer({"A"});
    client({.cltype = CLI_T_WRITER, .names = {"T"}, .pid = other});
    client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    EXPECT_EQ(slot(init_slot({.tmask = 0})).entries(), (std::vector<seen_entry>{hole("T"), hole("LOST")}));
}

TEST_P(BmPlaceholders, SpeaksOfTwentyTimedBlocks)
{
    const pid_t other = others.one_more();
    writer({});
    client({.cltype = CLI_T_WRITER, .names = many_names("T", 24), .pid = other});
    client({.pid = other, .ratio = {1000, 0}, .atime = {4000000000, 0}});
    std::string expected;
    for (int i = 0; i < 20; ++i) expected += "DATE Timed blocks !!! " + numbered("T", i) + "\n";
    int n = -1;
    EXPECT_EQ(said([&] { n = init_slot({.tmask = 0}); }), expected);
    EXPECT_EQ(slot(n).sbfilled(), 24);
    EXPECT_EQ(bm.timed_blocks_debug, 0);
    EXPECT_EQ(said([&] { init_slot({.tmask = 0}); }), "");
    EXPECT_EQ(bm.timed_blocks_debug, 0);
    EXPECT_EQ(bm.missed_blocks_debug, 20);
}

// ---- room

/// Slots with room for two client blocks and one entry behind the head.
class BmLittleRoom : public EventHost {
  protected:
    BmLittleRoom()
        : EventHost({.client_slots = 40,
                     .client_length = 48 + 3 * 256,
                     .event_length = layout_of(GetParam()).head + 2 * 8 + 264})
    {
    }
    void expect_refused()
    {
        char* at = block(put({.tmask = 0}));
        EXPECT_EQ(bm.find_ev_slot(TYPE, at), -1);
        for (int n = 1; n < events_part.getBufferCount(); ++n) {
            EXPECT_EQ(control(n).status(), EVT_C_FREE) << n;
            EXPECT_TRUE(slot_is_free(n)) << n;
        }
    }
};
IN_BOTH_GENERATIONS(BmLittleRoom);

TEST_P(BmLittleRoom, FillsItToTheLastByte)
{
    writer({"A"});
    client({.names = {"LOST"}});
    const auto seen = slot(init_slot());
    EXPECT_EQ(seen.used(), seen.length());
    EXPECT_EQ(seen.entries(), (std::vector<seen_entry>{hole("LOST")}));
}

TEST_P(BmLittleRoom, FailsWithAPlaceholderTooMany)
{
    writer({"A"});
    client({.names = {"LOST", "LOST TOO"}});
    expect_refused();
}

TEST_P(BmLittleRoom, FailsWithATimedPlaceholderTooMany)
{
    writer({"A", "B"});
    client({.ratio = {1000, 0}, .atime = {4000000000, 0}});
    expect_refused();
}

TEST_P(BmLittleRoom, LetsAsManyClientsInAsBytesAllow)
{
    constexpr int FIT = 2 + 264 / 8; // in the place of the entry too
    writer({});
    for (int i = 1; i < FIT; ++i) client({});
    const int n = init_slot();
    EXPECT_EQ(slot(n).nclients(), FIT);
    EXPECT_EQ(slot(n).used(), slot(n).length());
    events_part.return_buffer(n);
    client({});
    expect_refused();
}

TEST_P(BmLittleRoom, NeverWritesIntoTheNextSlot)
{
    writer({"A"});
    const int n = taken_slot();
    const int next = taken_slot();
    slot(next).fill('x');
    client({.names = {"L1", "L2", "L3"}});
    EXPECT_TRUE(bm.init_ev_slot(TYPE, n, block(put({}))));
    EXPECT_EQ(slot(next).byte(0), 'x');
}

} // namespace
