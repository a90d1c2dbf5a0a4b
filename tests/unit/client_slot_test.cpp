// A client slot as a view on shared memory, wherever its buffer begins and whatever stands in it.
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "C_shm_buffer.h"
#include "clean_namespace.h"
#include "client_slot.h"

using namespace zrk4::test;
using zrk4::impl::client_slot;

namespace {

// Records name their enumerations: a program may keep what it reads in a variable of that type.
static_assert(std::is_same_v<decltype(zrk4_client_ctrl_block::status), BUF_MNG_CLI_CTRL_STATUS>);
static_assert(std::is_same_v<decltype(zrk4_client_slot_head::cltype), BUF_MNG_CLI_TYPE>);
static_assert(std::is_same_v<decltype(zrk4_client_slot_head::evtype), ZRK4_EVTYPE>);
static_assert(std::is_same_v<decltype(zrk4_client_block::status), BUF_MNG_CLI_STATUS>);

constexpr int NAMES = 3;
constexpr int LENGTH = 48 + 256 * NAMES + 1; // one over a multiple of 8: slots begin at all eight alignments in turn

template <class T> void put(char* at, T value) { std::memcpy(at, &value, sizeof value); }

/// The slot whose first byte has the alignment that the case asks for.
class ClientSlotAt : public CleanNamespace, public testing::WithParamInterface<int> {
  protected:
    int number() const
    {
        int n = 1;
        while (reinterpret_cast<uintptr_t>(part.buffer_addr(n)) % 8 != static_cast<uintptr_t>(GetParam())) ++n;
        return n;
    }

    C_shm_buffer part{"T_CLIENTS", 9, LENGTH, true};
    char* at = part.buffer_addr(number());
    client_slot slot{part, number()};
};

class ClientSlot : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_CLIENTS", 3, LENGTH, true};
    char* at = part.buffer_addr(1);
    client_slot slot{part, 1};
};

TEST_P(ClientSlotAt, HeadIsReadAndWrittenInPlace)
{
    put<int32_t>(at, 4711);
    put<uint32_t>(at + 4, 1000);
    put<uint32_t>(at + 8, 999999);
    put<int32_t>(at + 12, -7);
    put<int32_t>(at + 16, 31);
    put<int32_t>(at + 20, 2);
    const zrk4_client_slot_head head = slot.head_now();
    EXPECT_EQ(+head.pid, 4711);
    EXPECT_EQ(+head.atime.timeup, 1000U);
    EXPECT_EQ(+head.atime.timelow, 999999U);
    EXPECT_EQ(+head.evcnt, -7);
    EXPECT_EQ(static_cast<int>(head.evtype), 31);
    EXPECT_EQ(static_cast<int>(head.cltype), CLI_T_WRITER);
    slot.head().evcnt += 8;
    EXPECT_EQ(at[12], 1);
}

TEST_P(ClientSlotAt, ReadersRecordIsReadAndWrittenInPlace)
{
    slot.reader() = {{{{1, 2}}, 3, 4}, 50000, 2};
    EXPECT_EQ(std::string(at + 24, 24), std::string("\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0\x50\xC3\0\0\2\0\0\0", 24));
    put<int32_t>(at + 40, 1234);
    EXPECT_EQ(+slot.reader().qid, 1234);
}

TEST_P(ClientSlotAt, WritersRecordIsReadAndWrittenInPlace)
{
    slot.writer() = {{{{1, 2}}, 3, 4}, 2};
    EXPECT_EQ(std::string(at + 24, 20), std::string("\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0\2\0\0\0", 20));
}

TEST_P(ClientSlotAt, NamesBeginBehindTheRecord)
{
    slot.reader().nsblocks = 2;
    std::strcpy(at + 48, "reads 1");
    std::strcpy(at + 304, "reads 2");
    ASSERT_EQ(slot.reader_names().count, 2);
    EXPECT_STREQ(slot.reader_names().at(0), "reads 1");
    EXPECT_STREQ(slot.reader_names().at(1), "reads 2");
    slot.writer().nsblocks = 2;
    std::strcpy(at + 44, "writes 1");
    std::strcpy(at + 300, "writes 2");
    ASSERT_EQ(slot.writer_names().count, 2);
    EXPECT_STREQ(slot.writer_names().at(0), "writes 1");
    EXPECT_STREQ(slot.writer_names().at(1), "writes 2");
}

INSTANTIATE_TEST_SUITE_P(Alignment, ClientSlotAt, testing::Range(0, 8));

TEST_F(ClientSlot, CountsOfOthersAreCutToWhatTheSlotHolds)
{
    for (const int count : {NAMES + 1, 1000, INT_MAX}) {
        slot.reader().nsblocks = count;
        EXPECT_EQ(slot.reader_names().count, NAMES);
        slot.writer().nsblocks = count;
        EXPECT_EQ(slot.writer_names().count, NAMES);
    }
    for (const int count : {-1, INT_MIN}) {
        slot.reader().nsblocks = count;
        EXPECT_EQ(slot.reader_names().count, 0);
        slot.writer().nsblocks = count;
        EXPECT_EQ(slot.writer_names().count, 0);
    }
}

TEST_F(ClientSlot, LastNameEndsInTheSlot)
{
    const C_shm_buffer longer("T_LONGER", 2, 44 + 2 * 256, true);
    const client_slot two(longer, 1);
    two.writer().nsblocks = 9;
    EXPECT_EQ(two.writer_names().count, 2) << "to the last byte";
    two.reader().nsblocks = 9;
    EXPECT_EQ(two.reader_names().count, 1) << "4 bytes are lacking for a second";
}

TEST_F(ClientSlot, NameWithoutEndIsBounded)
{
    slot.reader().nsblocks = 2;
    std::memset(at + 48, 'x', 256);
    std::strcpy(at + 304, "next");
    EXPECT_TRUE(slot.reader_names().contains("next"));
    EXPECT_EQ(zrk4::impl::name_view(slot.reader_names().at(0)), std::string(256, 'x'));
    EXPECT_FALSE(slot.reader_names().contains(std::string(255, 'x').c_str()));
    EXPECT_TRUE(slot.reader_names().contains((std::string(256, 'x') + "next").c_str())) << "256 characters count";
}

TEST_F(ClientSlot, NumberThatThePartitionDoesNotHaveIsNone)
{
    for (const int n : {-1, 3, INT_MAX, INT_MIN}) EXPECT_FALSE(client_slot(part, n)) << n;
    EXPECT_TRUE(client_slot(part, 2));
}

TEST_F(ClientSlot, BufferTooShortForARecordIsNone)
{
    const C_shm_buffer shorter("T_SHORT", 2, 47, true);
    EXPECT_FALSE(client_slot(shorter, 1));
    EXPECT_FALSE(zrk4::impl::is_client_slot(&shorter, 1));
    const C_shm_buffer just("T_JUST", 2, 48, true);
    EXPECT_TRUE(client_slot(just, 1));
    EXPECT_TRUE(zrk4::impl::is_client_slot(&just, 1));
    client_slot(just, 1).reader().nsblocks = 5;
    EXPECT_EQ(client_slot(just, 1).reader_names().count, 0);
}

TEST_F(ClientSlot, RoomForNamesIsCountedBehindTheRecord)
{
    const auto reads = [](int room) { return client_slot::names_that_fit<zrk4_client_reader>(room); };
    const auto writes = [](int room) { return client_slot::names_that_fit<zrk4_client_writer>(room); };
    EXPECT_EQ(reads(0), -1);
    EXPECT_EQ(reads(47), -1);
    EXPECT_EQ(writes(47), -1) << "no client slot at all";
    EXPECT_EQ(reads(48), 0);
    EXPECT_EQ(reads(48 + 255), 0);
    EXPECT_EQ(writes(44 + 256), 1);
    EXPECT_EQ(reads(44 + 256), 0);
    EXPECT_EQ(reads(48 + 256), 1);
    EXPECT_EQ(reads(INT_MAX), 8388607);
}

} // namespace
