// The report on the client slots, to the last blank.
#include <climits>
#include <cstring>
#include <list>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bm_dump.h"

using namespace zrk4::test;

namespace {

class BmDumpClients : public dump_case {};

constexpr char NO_SLOT_IS_USED[] = "Slot # 1   Not used\n"
                                   "Slot # 2   Not used\n"
                                   "Slot # 3   Not used\n";

TEST(BmDumps, SayWhenNothingIsAttached)
{
    BM bm;
    std::ostringstream os;
    bm.dump_cl_slots(os);
    bm.dump_ev_slots(os);
    EXPECT_EQ(os.str(), "BM::dump_cl_slots() Global partition not accessed\n"
                        "BM::dump_ev_slots() Global partition not accessed\n");
    EXPECT_EQ(out_of([&] { bm.dump_cl_slots(); }), "BM::dump_cl_slots() Global partition not accessed\n");
    EXPECT_EQ(out_of([&] { bm.dump_ev_slots(); }), "BM::dump_ev_slots() Global partition not accessed\n");
}

TEST_F(BmDumpClients, ShowsTheControlBlockFirst)
{
    *bm.clictrl = {CLI_C_UPD, 7, 4, 3, {}, {}};
    bm.clictrl->evtyper[0] = 3;
    bm.clictrl->evtyper[31] = -1;
    bm.clictrl->evtypew[31] = 3;
    bm.clictrl->evtypew[7] = 12;
    EXPECT_EQ(client_report(), "\n"
                               "            Clien Slot Partition - ZRK4_CLIENT_SLOTS\n"
                               "\n"
                               "Client Control Block\n"
                               "--------------------\n"
                               "  status:           2\n"
                               "  clients total:    7\n"
                               "  readers:          4\n"
                               "  writers:          3\n"
                               "\n"
                               "Event types subscribed for reading\n"
                               "----------------------------------\n"
                               "  Event  Type        Readers      \n"
                               "----------------------------------\n"
                               "     0         3\n"
                               "     31         -1\n"
                               "\n"
                               "Event types subscribed for writing\n"
                               "----------------------------------\n"
                               "  Event  Type        Writers      \n"
                               "----------------------------------\n"
                               "     7         12\n"
                               "     31         3\n"
                               "\n"
                               "Clients information\n"
                               "-------------------\n" +
                                   std::string(NO_SLOT_IS_USED));
}

TEST_F(BmDumpClients, GoToStandardOutputWithoutAStream)
{
    const std::string report = client_report();
    EXPECT_EQ(out_of([&] { bm.dump_cl_slots(); }), report);
}

TEST_F(BmDumpClients, ReadersBlockBeginsWithoutAnEmptyLine)
{
    char* at = client(2);
    put<int32_t>(at, 4711);
    put<uint32_t>(at + 4, 4000000000);
    put<uint32_t>(at + 8, 5);
    put<int32_t>(at + 12, 6);
    put<int32_t>(at + 16, 7);
    put<int32_t>(at + 20, CLI_T_READER);
    put<uint32_t>(at + 24, 8);
    put<uint32_t>(at + 28, 9);
    put<int32_t>(at + 32, -10);
    put<int32_t>(at + 36, 255);
    put<int32_t>(at + 40, 65535);
    put<int32_t>(at + 44, 2);
    std::strcpy(at + 48, "ADC 1");
    std::strcpy(at + 304, "ADC 2");
    EXPECT_EQ(client_lines(), "Slot # 1   Not used\n"
                              "Slot # 2 a reader\n"
                              "  PID:          4711\n"
                              "  Access time:  4000000000 5\n"
                              "  Events:       6\n"
                              "  Event Type:   7\n"
                              "  Time ratio:   8 9\n"
                              "  Priority:     -10\n"
                              "  Triggers:     255\n"
                              "  Port    :     65535\n"
                              "  # of blocks:  2\n"
                              "Server # 0 ADC 1\n"
                              "Server # 1 ADC 2\n"
                              "\n"
                              "Slot # 3   Not used\n");
}

TEST_F(BmDumpClients, WritersBlockBeginsWithAnEmptyLine)
{
    char* at = client(1);
    put<int32_t>(at, 4711);
    put<int32_t>(at + 16, 31);
    put<int32_t>(at + 20, CLI_T_WRITER);
    put<uint32_t>(at + 24, 8);
    put<uint32_t>(at + 28, 9);
    put<int32_t>(at + 32, 10);
    put<int32_t>(at + 36, 11);
    put<int32_t>(at + 40, 1);
    std::strcpy(at + 44, "ADC 1");
    EXPECT_EQ(client_lines(), "\n"
                              "Slot # 1 a writer\n"
                              "  PID:          4711\n"
                              "  Access time:  0 0\n"
                              "  Events:       0\n"
                              "  Event Type:   31\n"
                              "  Time-out:     8 9\n"
                              "  Priority:     10\n"
                              "  Triggers:     11\n"
                              "  # of blocks:  1\n"
                              "Server # 0 ADC 1\n"
                              "\n"
                              "Slot # 2   Not used\n"
                              "Slot # 3   Not used\n");
}

TEST_F(BmDumpClients, SlotOfNoKindIsOneLineBehindAnEmptyOne)
{
    put<int32_t>(client(1) + 20, 0);
    put<int32_t>(client(2) + 20, CLI_T_INVAL);
    put<int32_t>(client(3) + 20, -1);
    EXPECT_EQ(client_lines(), "\nSlot # 1 unknown client type\n"
                              "\nSlot # 2 unknown client type\n"
                              "\nSlot # 3 unknown client type\n");
}

TEST_F(BmDumpClients, SubscriptionsAreShown)
{
    zrk4_client parameters{{{1, 2}}, 3, 4};
    std::list<std::string> names{"ADC 1", "ADC 2"};
    ASSERT_EQ(bm.subscribe(ZRK4_EV_NORMAL, CLI_T_WRITER, &parameters, &names), 1);
    const zrk4_client_slot_head head = *reinterpret_cast<zrk4_client_slot_head*>(clients.buffer_addr(1));
    const std::string type = std::to_string(ZRK4_EV_NORMAL);
    EXPECT_EQ(client_lines(), "\nSlot # 1 a writer\n  PID:          " + std::to_string(getpid()) +
                                  "\n  Access time:  " + std::to_string(+head.atime.timeup) + " " +
                                  std::to_string(+head.atime.timelow) + "\n  Events:       0\n  Event Type:   " + type +
                                  "\n  Time-out:     1 2\n  Priority:     3\n  Triggers:     4\n  # of blocks:  2\n"
                                  "Server # 0 ADC 1\nServer # 1 ADC 2\n\n"
                                  "Slot # 2   Not used\nSlot # 3   Not used\n");
    EXPECT_NE(client_report().find("\n     " + type + "         1\n\nClients information\n"), std::string::npos);
}

TEST_F(BmDumpClients, CountsOfOthersAreShownButNotBelieved)
{
    for (const auto cltype : {CLI_T_READER, CLI_T_WRITER}) {
        char* at = client(1);
        std::memset(at, 'x', 48 + 256 * 3);
        put<int32_t>(at + 20, cltype);
        put<int32_t>(at + (cltype == CLI_T_READER ? 44 : 40), INT_MAX);
        const std::string lines = client_lines();
        EXPECT_NE(lines.find("  # of blocks:  2147483647\nServer # 0 "), std::string::npos);
        EXPECT_NE(lines.find("\nServer # 2 x"), std::string::npos);
        EXPECT_EQ(lines.find("\nServer # 3"), std::string::npos) << "the slot has room for three";
        put<int32_t>(at + (cltype == CLI_T_READER ? 44 : 40), -1);
        EXPECT_NE(client_lines().find("  # of blocks:  -1\n\n"), std::string::npos);
    }
}

TEST_F(BmDumpClients, NameWithoutEndIsCutAt256Characters)
{
    char* at = client(1);
    put<int32_t>(at + 20, CLI_T_READER);
    put<int32_t>(at + 44, 1);
    std::memset(at + 48, 'x', 300);
    EXPECT_NE(client_lines().find("Server # 0 " + std::string(256, 'x') + "\n"), std::string::npos);
}

TEST_F(BmDumpClients, FormatOfTheStreamIsNeitherUsedNorChanged)
{
    zrk4_client parameters{{{11, 12}}, 13, 14};
    ASSERT_EQ(bm.subscribe(ZRK4_EV_NORMAL, CLI_T_READER, &parameters, nullptr), 1);
    std::ostringstream os;
    os << std::hex << std::showbase << std::left;
    const auto format = os.flags();
    bm.dump_cl_slots(os);
    EXPECT_EQ(os.str(), client_report());
    EXPECT_EQ(os.flags(), format);
}

TEST_F(BmDumpClients, NullNameFailsTheStream)
{
    bm.clname = nullptr;
    std::ostringstream os;
    bm.dump_cl_slots(os);
    EXPECT_TRUE(os.bad());
    EXPECT_EQ(os.str(), "\n            Clien Slot Partition - ");
    bm.clname = CLIENTS;
}

TEST(BmDumpSmall, PartitionWithOnlyBuffer0HasHeadingsOnly)
{
    const C_shm_buffer clients(CLIENTS, 1, 300, true), events(EVENTS, 1, 300, true);
    seen_bm bm;
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    const std::string report = out_of([&] { bm.dump_cl_slots(); });
    const std::string last = "\nClients information\n-------------------\n";
    EXPECT_EQ(report.substr(report.size() - last.size()), last);
    EXPECT_EQ(out_of([&] { bm.dump_ev_slots(); }), "\n"
                                                   "            Event Slot Partition - ZRK4_EVENT_SLOTS\n"
                                                   "\n"
                                                   "Event Control Block\n"
                                                   "--------------------\n");
}

} // namespace
