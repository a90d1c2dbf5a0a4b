// The bytes of live slot partitions, seen without the library: another program may be built with other headers.
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <list>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/bm_host.h"

using namespace zrk4::test;

namespace {

constexpr int TYPE = 17;

template <class T> std::string number(T value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string words(std::initializer_list<int32_t> values)
{
    std::string bytes;
    for (const int32_t value : values) bytes += number(value);
    return bytes;
}

std::string padded(std::string text, size_t size)
{
    text.resize(size, '\0');
    return text;
}

/// Fails unless the two words are a time between `from` and now.
void expect_time_since(uint64_t from, const std::string& bytes)
{
    uint32_t word[2];
    ASSERT_EQ(bytes.size(), sizeof word);
    std::memcpy(word, bytes.data(), sizeof word);
    EXPECT_LT(word[1], 1000000U);
    EXPECT_GE(word[0] * uint64_t{1000000} + word[1], from);
    EXPECT_LE(word[0] * uint64_t{1000000} + word[1], microseconds_now());
}

/// Buffers of a partition, by the numbers of its geometry.
struct buffers {
    live_segment seen;
    size_t nbuf, lbuf;

    size_t at(int n) const { return 300 + 48 * nbuf + lbuf * static_cast<size_t>(n); }
    std::string of(int n) const { return seen.bytes(at(n), lbuf); }
    std::string of(int n, size_t offset, size_t count) const { return seen.bytes(at(n) + offset, count); }
};

class SlotBytes : public CleanNamespace {
  protected:
    SlotBytes() { EXPECT_FALSE(quiet_init(bm)) << "false is success"; }
    buffers clients() const { return {live_segment(bm.clid), CLIENT_BUFFERS, CLIENT_LENGTH}; }

    const uint64_t begin = microseconds_now();
    still_master bm;
    zrk4_client parameters{{{0x11223344, 0x55667788}}, -2, 0x0F0F};
};

TEST_F(SlotBytes, FreshClientPartitionIsZeroButForItsStatus)
{
    const buffers b = clients();
    ASSERT_EQ(b.seen.size(), size_t{300 + 257 * (48 + 816)});
    EXPECT_EQ(b.seen.bytes(b.at(0), 257 * 816), number<int32_t>(1) + std::string(257 * 816 - 4, '\0'));
}

TEST_F(SlotBytes, ReadersSlotIsThisByteForByte)
{
    std::list<std::string> names{"ADC_1", std::string(300, 'x'), "ADC_3"};
    ASSERT_EQ(bm.subscribe(static_cast<ZRK4_EVTYPE>(TYPE), CLI_T_READER, &parameters, &names), 1);
    const std::string slot = clients().of(1);
    const std::string atime = slot.substr(4, 8);
    expect_time_since(begin, atime);
    EXPECT_EQ(slot, number<int32_t>(getpid()) + atime + words({0, TYPE, 1}) +
                        words({0x11223344, 0x55667788, -2, 0x0F0F}) + words({bm.port, 3}) + padded("ADC_1", 256) +
                        padded(std::string(255, 'x'), 256) + padded("ADC_3", 256));
}

TEST_F(SlotBytes, WritersSlotIsThisByteForByte)
{
    std::list<std::string> names{"ADC_1", std::string(300, 'x'), "ADC_3"};
    ASSERT_EQ(bm.subscribe(static_cast<ZRK4_EVTYPE>(TYPE), CLI_T_WRITER, &parameters, &names), 1);
    const std::string slot = clients().of(1);
    const std::string atime = slot.substr(4, 8);
    expect_time_since(begin, atime);
    EXPECT_EQ(slot, number<int32_t>(getpid()) + atime + words({0, TYPE, 2}) +
                        words({0x11223344, 0x55667788, -2, 0x0F0F}) + words({3}) + padded("ADC_1", 256) +
                        padded(std::string(255, 'x'), 256) + padded("ADC_3", 256) + std::string(4, '\0'));
}

TEST_F(SlotBytes, SlotGivenBackIsZero)
{
    std::list<std::string> names{"ADC_1", "ADC_2", "ADC_3"};
    ASSERT_EQ(bm.subscribe(static_cast<ZRK4_EVTYPE>(TYPE), CLI_T_WRITER, &parameters, &names), 1);
    ASSERT_EQ(bm.unsubscribe(static_cast<ZRK4_EVTYPE>(TYPE), CLI_T_WRITER), 1);
    EXPECT_EQ(clients().of(1), std::string(CLIENT_LENGTH, '\0'));
}

TEST_F(SlotBytes, ClientControlBlockCountsAtTheseOffsets)
{
    for (const int type : {0, 31, 31}) subscribed(bm, CLI_T_READER, type);
    for (const int type : {0, 1, 31, 31}) subscribed(bm, CLI_T_WRITER, type);
    std::string readers(128, '\0');
    std::string writers(128, '\0');
    readers.replace(0, 4, number<int32_t>(1)).replace(4 * 31, 4, number<int32_t>(2));
    writers.replace(0, 4, number<int32_t>(1)).replace(4, 4, number<int32_t>(1)).replace(4 * 31, 4, number<int32_t>(2));
    const std::string block = clients().of(0);
    EXPECT_EQ(block.substr(0, 16), words({/*updated*/ 2, /*clients*/ 7, /*readers*/ 3, /*writers*/ 4}));
    EXPECT_EQ(block.substr(16, 128), readers);
    EXPECT_EQ(block.substr(144, 128), writers);
    EXPECT_EQ(block.substr(272), std::string(CLIENT_LENGTH - 272, '\0'));
}

// ---- events

/// A block of 2010 with nothing behind its head.
std::string block_bytes(const char* server, int32_t up, int32_t low, int32_t id, int32_t mask, int32_t status)
{
    return words({up, low, 284, id}) + padded(server, 256) + words({mask, status, 0});
}

/// Two events begun, of the first one block entered. Its clients: a writer with two blocks, a reader of the one that
/// is still missing, a writer with one block.
class EventBytes : public CleanNamespace {
  protected:
    void begin_two_events(bool wide)
    {
        bm.set_evid_64bit_mode(wide);
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        ASSERT_EQ(subscribed(bm, CLI_T_WRITER, TYPE, {"ADC_1", "ADC_2"}), 1);
        ASSERT_EQ(subscribed(bm, CLI_T_READER, TYPE, {"ADC_2"}), 2);
        ASSERT_EQ(subscribed(bm, CLI_T_WRITER, TYPE, {"ADC_3"}), 3);
        data = bm.add("T_DATA", 2, 300);
        ASSERT_FALSE(update(block_bytes("ADC_1", 1000, 500, 0x01020304, 0x30, 0x40))) << "false is success";
        ASSERT_FALSE(update(block_bytes("ADC_3", 2000, 700, 0x05060708, 1, 2))) << "false is success";
    }
    bool update(const std::string& block)
    {
        int id = data;
        int bnum = -1;
        char* at = bm.get_buffer_from_pool(BM_NO_WAIT, 300, &id, &bnum);
        std::memcpy(at, block.data(), block.size());
        return bm.ev_update(static_cast<ZRK4_EVTYPE>(TYPE), id, bnum);
    }
    buffers events(size_t length) const { return {live_segment(bm.evid), EVENT_BUFFERS, length}; }
    std::string client_blocks() const { return words({1, /*works*/ 3, 2, /*waits*/ 1, 3, 3}); }
    std::string entry() const { return padded("ADC_1", 256) + words({data, 0}); }

    const uint64_t begin = microseconds_now();
    still_master bm;
    int data = -1;
};

TEST_F(EventBytes, ControlEntriesOf2010Are20BytesEach)
{
    begin_two_events(false);
    const buffers b = events(884);
    ASSERT_EQ(b.seen.size(), size_t{300 + 33 * (48 + 884)});
    EXPECT_EQ(b.of(0), words({1, 1000, 500, 0x01020304, TYPE}) + words({1, 2000, 700, 0x05060708, TYPE}) +
                           std::string(884 - 40, '\0'));
}

TEST_F(EventBytes, ControlEntriesOf2024Are24BytesEach)
{
    begin_two_events(true);
    const buffers b = events(904);
    ASSERT_EQ(b.seen.size(), size_t{300 + 33 * (48 + 904)});
    EXPECT_EQ(b.of(0), words({1000, 500, 1, TYPE, 0x01020304, 0}) + words({2000, 700, 1, TYPE, 0x05060708, 0}) +
                           std::string(904 - 48, '\0'));
}

TEST_F(EventBytes, SlotOf2010IsThisByteForByte)
{
    begin_two_events(false);
    const std::string slot = events(884).of(1);
    const std::string start = slot.substr(24, 8);
    const std::string last_update = slot.substr(32, 8);
    expect_time_since(begin, start);
    expect_time_since(begin, last_update);
    EXPECT_EQ(slot.substr(0, 60),
              words({1000, 500, 0x01020304, TYPE, 0x30, 0x40}) + start + last_update +
                  words({getpid(), /*evsize*/ 284, /*nsblocks*/ 3, /*sbfilled*/ 1, /*nclients*/ 3}));
    EXPECT_EQ(slot.substr(60, 24), client_blocks());
    EXPECT_EQ(slot.substr(84, 264), entry()) << "behind three clients";
    EXPECT_EQ(slot.substr(348), std::string(884 - 348, '\0'));
}

TEST_F(EventBytes, SlotOf2024IsThisByteForByte)
{
    begin_two_events(true);
    const std::string slot = events(904).of(1);
    const std::string start = slot.substr(36, 8);
    const std::string last_update = slot.substr(44, 8);
    expect_time_since(begin, start);
    expect_time_since(begin, last_update);
    EXPECT_EQ(slot.substr(0, 80), number<uint64_t>(0xFF77FF77FF77FF77) + words({1000, 500}) +
                                      number<int64_t>(0x01020304) + words({TYPE, 0x30, 0x40}) + start + last_update +
                                      words({getpid()}) + number<int64_t>(284) + words({3, 1, 3, 0}));
    EXPECT_EQ(slot.substr(80, 24), client_blocks());
    EXPECT_EQ(slot.substr(104, 264), entry()) << "behind three clients";
    EXPECT_EQ(slot.substr(368), std::string(904 - 368, '\0'));
}

TEST_F(EventBytes, FreshEventPartitionIsZero)
{
    ASSERT_FALSE(quiet_init(bm)) << "false is success";
    const buffers b = events(884);
    EXPECT_EQ(b.seen.bytes(b.at(0), 33 * 884), std::string(33 * 884, '\0'));
}

// A slot that its event has left keeps its bytes; its entry and its place in the queue say that it is free.
TEST_F(EventBytes, FreedSlotIsSoByItsEntryAndItsDescriptor)
{
    begin_two_events(false);
    const buffers b = events(884);
    EXPECT_EQ(b.seen.int32(at_descriptor(1, IN_STATUS)), 0) << "handed out";
    EXPECT_EQ(b.seen.int32(at_descriptor(1, IN_OWNER)), getpid());
    EXPECT_FALSE(bm.free_ev_slot(1)) << "false is success";
    EXPECT_EQ(b.of(0, 0, 4), words({0}));
    EXPECT_EQ(b.of(0, 20, 4), words({1})) << "the other event stays";
    EXPECT_EQ(b.seen.int32(at_descriptor(1, IN_STATUS)), 1) << "in the queue";
}

} // namespace
