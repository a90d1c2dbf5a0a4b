// The report on the event slots, to the last blank.
#include <climits>
#include <cstring>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "bm_dump.h"

using namespace zrk4::test;

namespace {

class BmDumpEvents : public dump_case {};
class PrintOutEvent : public dump_case {};

TEST_F(BmDumpEvents, BeginWithTheirHeadings)
{
    const std::string headings = "\n"
                                 "            Event Slot Partition - ZRK4_EVENT_SLOTS\n"
                                 "\n"
                                 "Event Control Block\n"
                                 "--------------------\n";
    EXPECT_EQ(event_report(), headings + "  Slot: 1  status:           FREE\n"
                                         "  Slot: 2  status:           FREE\n"
                                         "  Slot: 3  status:           FREE\n");
    EXPECT_EQ(out_of([&] { bm.dump_ev_slots(); }), event_report());
}

TEST_F(BmDumpEvents, StatusOfNoKindIsShownAsANumber)
{
    bm.evtctrl[0].status = EVT_C_INVALID;
    bm.evtctrl[2].status = -7;
    EXPECT_EQ(event_lines(), "  Slot: 1  status:           Unknown :2\n"
                             "  Slot: 2  status:           FREE\n"
                             "  Slot: 3  status:           Unknown :-7\n");
}

constexpr char RULE_95[] =
    "-----------------------------------------------------------------------------------------------\n";
constexpr char RULE_44[] = "--------------------------------------------\n";

/// The report of a used slot 2, from its head's line on, between two free ones.
std::string around(const std::string& entry, const std::string& rest)
{
    return "  Slot: 1  status:           FREE\n"
           "  Slot: 2  status:           USED\n" +
           entry + "---------------------------------- Event Slot 2  --------------------- ---------\n" + RULE_95 +
           "  Key              EventType    Tmask   Status   Start      LastUpdate   EvSize   #SvrBlocks/filled   "
           "#Clients\n" +
           RULE_95 + rest + RULE_44 + RULE_44 + "  Slot: 3  status:           FREE\n";
}
const std::string BLOCK_HEADING = RULE_44 + std::string(" #  Name                      ShmID      Buf# \n") + RULE_44;

void put_client(char* at, int snum, int status)
{
    put<int32_t>(at, snum);
    put<int32_t>(at + 4, status);
}

void put_block(char* at, const char* name, int shmid, int bnum)
{
    std::strcpy(at, name);
    put<int32_t>(at + 256, shmid);
    put<int32_t>(at + 260, bnum);
}

std::string client_line(int c, const char* line)
{
    return "---Client:    " + std::to_string(c) +
           "  ----\n"
           "-----------------------\n"
           "  ClientSlot  Status \n"
           "-----------------------\n" +
           line + "\n";
}

TEST_F(BmDumpEvents, UsedSlotOf2010IsShownWhole)
{
    bm.evtctrl[1] = {EVT_C_USED, {4000000000, 999999}, -5, 9};
    char* at = events.buffer_addr(2);
    *reinterpret_cast<zrk4_event_slot_head*>(at) = {
        {11, 12}, -13, static_cast<ZRK4_EVTYPE>(14), 255, 10, {15, 16}, {17, 18}, 4711, -19, 3, 2, 6};
    for (int c = 0; c < 6; ++c) put_client(at + 60 + 8 * c, 100 + c, c); // 0 and 5 are none
    put_block(at + 60 + 48, "ADC 1", 77, 0);
    put_block(at + 60 + 48 + 264, "", 0, -1);
    EXPECT_EQ(event_lines(),
              around("  key        :       4000000000:999999_-5\n"
                     "  event type :       9\n",
                     "11:12_-13 14   ff   a   15/16   17/18  -19   3/2   6\n"
                     "---- Clients    6  ----\n" +
                         client_line(0, "100Invalid") + client_line(1, "101  Waiting") +
                         client_line(2, "102  Notified") + client_line(3, "103  Processing") +
                         client_line(4, "104  Done") + client_line(5, "105Invalid") +
                         "---- ServerBlocks:    2  ----\n" + BLOCK_HEADING + "0 ADC 1   77   0\n1    0   -1\n"));
}

class BmDumpEvents2024 : public dump_case {
  protected:
    BmDumpEvents2024()
    {
        bm.all_clean_up();
        bm.set_evid_64bit_mode(true);
        EXPECT_FALSE(quiet_init(bm)) << "false is success";
    }
};

TEST_F(BmDumpEvents2024, UsedSlotIsShownWhole)
{
    bm.evtctrl2024[1] = {{4000000000, 999999}, EVT_C_USED, 9, 0x100000000005};
    char* at = events.buffer_addr(2);
    *reinterpret_cast<zrk4_event_slot_head_2024*>(at) = {EV_SLOT_PATTERN_2024,
                                                         {11, 12},
                                                         -0x100000000000,
                                                         static_cast<ZRK4_EVTYPE>(14),
                                                         -1,
                                                         16,
                                                         {15, 16},
                                                         {17, 18},
                                                         4711,
                                                         0x200000000000,
                                                         3,
                                                         1,
                                                         1,
                                                         0};
    put_client(at + 80, 100, CLI_S_WAIT);
    put_block(at + 88, "ADC 1", 77, 5);
    EXPECT_EQ(event_lines(), around("  key        :       4000000000:999999_17592186044421\n"
                                    "  event type :       9\n",
                                    "11:12_-17592186044416 14   ffffffff   10   15/16   17/18  35184372088832   3/1   "
                                    "1\n"
                                    "---- Clients    1  ----\n" +
                                        client_line(0, "100  Waiting") + "---- ServerBlocks:    1  ----\n" +
                                        BLOCK_HEADING + "0 ADC 1   77   5\n"));
}

TEST_F(BmDumpEvents, EventWithoutClientsAndBlocksHasTheirHeadingsAllTheSame)
{
    bm.evtctrl[1].status = EVT_C_USED;
    EXPECT_EQ(event_lines(), around("  key        :       0:0_0\n"
                                    "  event type :       0\n",
                                    "0:0_0 0   0   0   0/0   0/0  0   0/0   0\n"
                                    "---- Clients    0  ----\n"
                                    "---- ServerBlocks:    0  ----\n" +
                                        BLOCK_HEADING));
}

TEST_F(BmDumpEvents, CountsOfOthersAreShownButNotBelieved)
{
    bm.evtctrl[1].status = EVT_C_USED;
    auto& head = *reinterpret_cast<zrk4_event_slot_head*>(events.buffer_addr(2));
    head.sbfilled = INT_MAX;
    std::string lines = event_lines();
    EXPECT_NE(lines.find("---- ServerBlocks:    2147483647  ----\n"), std::string::npos);
    EXPECT_NE(lines.find("\n3    0   0\n" + std::string(RULE_44)), std::string::npos) << "1140 bytes hold four";
    head.sbfilled = -1;
    head.nclients = INT_MAX;
    lines = event_lines();
    EXPECT_NE(lines.find("---- Clients    2147483647  ----\n"), std::string::npos);
    EXPECT_NE(lines.find("---Client:    141  ----\n"), std::string::npos) << "1140 bytes hold 142";
    EXPECT_EQ(lines.find("---Client:    142  ----\n"), std::string::npos);
    EXPECT_NE(lines.find("---- ServerBlocks:    -1  ----\n"), std::string::npos);
    head.nclients = INT_MIN;
    EXPECT_NE(event_lines().find("---- Clients    -2147483648  ----\n---- ServerBlocks:"), std::string::npos);
}

TEST_F(BmDumpEvents, NameWithoutEndIsCutAt256Characters)
{
    bm.evtctrl[1].status = EVT_C_USED;
    char* at = events.buffer_addr(2);
    reinterpret_cast<zrk4_event_slot_head*>(at)->sbfilled = 1;
    std::memset(at + 60, 'x', 256);
    put<int32_t>(at + 60 + 256, 0x78787878);
    EXPECT_NE(event_lines().find("\n0 " + std::string(256, 'x') + "   2021161080   0\n"), std::string::npos);
}

TEST_F(BmDumpEvents, FormatOfTheStreamIsNeitherUsedNorChanged)
{
    bm.evtctrl[1].status = EVT_C_USED;
    std::ostringstream os;
    os << std::hex << std::showbase << std::left;
    const auto format = os.flags();
    bm.dump_ev_slots(os);
    EXPECT_EQ(os.str(), event_report());
    EXPECT_EQ(os.flags(), format);
}

TEST_F(BmDumpEvents, NullNameFailsTheStream)
{
    bm.evname = nullptr;
    std::ostringstream os;
    bm.dump_ev_slots(os);
    EXPECT_TRUE(os.bad());
    EXPECT_EQ(os.str(), "\n            Event Slot Partition - ");
    bm.evname = EVENTS;
}

// A table that was made for more slots than buffer 0 has room for.
TEST(BmDumpLongTable, SlotsWithoutAnEntryAreNotShown)
{
    const C_shm_buffer clients(CLIENTS, 2, 300, true), events(EVENTS, 9, 84, true);
    for (const bool wide : {false, true}) {
        seen_bm bm;
        bm.set_evid_64bit_mode(wide);
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        const std::string report = out_of([&] { bm.dump_ev_slots(); });
        const std::string last = wide ? "  Slot: 3  status:           FREE\n" : "  Slot: 4  status:           FREE\n";
        EXPECT_EQ(report.substr(report.size() - last.size()), last);
    }
}

// ---- both

TEST_F(BmDumpEvents, NeverAsksForALock)
{
    bm.evtctrl[1].status = EVT_C_USED;
    put<int32_t>(client(1) + 20, CLI_T_READER);
    for (C_shm_buffer* part : {&clients, &events}) {
        ASSERT_TRUE(part->gate(true));
        for (int i = 0; i < part->getBufferCount(); ++i) ASSERT_TRUE(part->ctrl(i, true));
    }
    EXPECT_EQ(semops_of([&] { client_report(); }), 0);
    EXPECT_EQ(semops_of([&] { event_report(); }), 0);
    for (C_shm_buffer* part : {&clients, &events}) {
        for (int i = 0; i < part->getBufferCount(); ++i) ASSERT_TRUE(part->ctrl(i, false));
        ASSERT_TRUE(part->gate(false));
    }
}

TEST_F(BmDumpEvents, EveryLineIsFlushed)
{
    struct counting : std::stringbuf {
        int flushes = 0;
        int sync() override
        {
            ++flushes;
            return std::stringbuf::sync();
        }
    } buffer;
    std::ostream os(&buffer);
    bm.dump_ev_slots(os);
    EXPECT_EQ(buffer.flushes, 5 + EVENT_SLOTS);
}

// ---- print_out_event

TEST_F(PrintOutEvent, SaysThatItFailedWhenTheSlotIsThere)
{
    EXPECT_EQ(said([&] { print_out_event(&bm, nullptr, &events, 2, false); }),
              "DATE print_out_event(): Failed to find event slot: 2 \n");
    EXPECT_EQ(said([&] { print_out_event(&bm, nullptr, &events, 0, true); }),
              "DATE print_out_event(): Failed to find event slot: 0 \n");
}

TEST_F(PrintOutEvent, SaysNothingWhenItIsNotThere)
{
    for (const int slot : {-1, EVENT_SLOTS + 1, INT_MAX, INT_MIN})
        EXPECT_EQ(said([&] { print_out_event(&bm, nullptr, &events, slot, false); }), "") << slot;
    EXPECT_EQ(said([&] { print_out_event(&bm, nullptr, nullptr, 1, true); }), "");
}

} // namespace
