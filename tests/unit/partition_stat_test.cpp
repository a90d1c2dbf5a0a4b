// Reports on a partition, and the addresses of its buffers.
#include <climits>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionStat : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_STAT", 3, 100, /*sems=*/true};
    live_segment raw{shmid_of(part), live_segment::WRITE};

    /// Takes every buffer and puts those given into the full queue, in this order, as a producer of full buffers would.
    void fill(std::initializer_list<int> full)
    {
        for (int i = 0; i < 3; ++i) ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
        int tail = -1;
        for (const int i : full) {
            raw.put_int32(at_descriptor(i, IN_STATUS), 1);
            raw.put_int32(tail < 0 ? size_t{AT_FULL} : at_descriptor(tail, IN_LINK), i);
            tail = i;
        }
        raw.put_int32(AT_FULL + 4, tail);
    }
    /// Gives the partition back as it was made.
    void empty_full()
    {
        raw.put_int32(AT_FULL, -1);
        raw.put_int32(AT_FULL + 4, -1);
    }
};

TEST_F(PartitionStat, FreshPartitionAnswers)
{
    EXPECT_EQ(part.getStat("exists"), "1");
    EXPECT_EQ(part.getStat("name"), "T_STAT");
    EXPECT_EQ(part.getStat("pflags"), "release,scavage");
    EXPECT_EQ(part.getStat("shmid"), std::to_string(segment_at_key(32)));
    EXPECT_EQ(part.getStat("version"), "102");
    EXPECT_EQ(part.getStat("nbuf"), "3");
    EXPECT_EQ(part.getStat("lbuf"), "100");
    EXPECT_EQ(part.getStat("use_count"), "1");
    EXPECT_EQ(part.getStat("buffer_tot"), "0");
    EXPECT_EQ(part.getStat("maxcons"), "0");
    EXPECT_EQ(part.getStat("semglobal"), std::to_string(raw.int32(AT_SEMID)));
    EXPECT_EQ(part.getStat("fullbuf"), "0");
    EXPECT_EQ(part.getStat("freebuf"), "3");
    EXPECT_EQ(part.getStat("usedbuf"), "0");
    EXPECT_EQ(part.getStat("last_ID"), "-0");
}

TEST_F(PartitionStat, UnknownKeyIsUndefined)
{
    for (const char* key : {"", "Name", "names", "nam", "EXISTS", "lbuf "})
        EXPECT_EQ(part.getStat(key), "Undefined parameter") << key;
}

TEST_F(PartitionStat, DetachedHandleAnswersZeroToEverything)
{
    const C_shm none;
    for (const char* key : {"exists", "name", "pflags", "last_ID", "freebuf", "nonsense"})
        EXPECT_EQ(none.getStat(key), "0");
}

TEST_F(PartitionStat, AttachedHandleAnswersWithoutAccess)
{
    part.deaccess();
    EXPECT_EQ(part.getStat("nbuf"), "3");
    EXPECT_EQ(part.getStat("freebuf"), "3");
}

TEST_F(PartitionStat, FlagsAreListedInOrder)
{
    const std::pair<int, const char*> lists[] = {{0, "-"},
                                                 {1, "release"},
                                                 {2, "scavage"},
                                                 {4, "synch"},
                                                 {16, "expose"},
                                                 {23, "release,scavage,synch,expose"},
                                                 {20, "synch,expose"},
                                                 {8 + 32, "-"},
                                                 {-1, "release,scavage,synch,expose"}};
    for (const auto& [bits, words] : lists) {
        raw.put_int32(AT_STATUS, bits);
        EXPECT_EQ(part.getStat("pflags"), words) << bits;
    }
}

TEST_F(PartitionStat, FullQueueIsCounted)
{
    fill({2, 0, 1});
    raw.put_int32(at_descriptor(0, IN_USE_COUNT), 1);
    raw.put_int32(at_descriptor(1, IN_USE_COUNT), -1);
    raw.put_int32(at_descriptor(1, IN_DATA_ID), -42);
    EXPECT_EQ(part.getStat("fullbuf"), "3");
    EXPECT_EQ(part.getStat("usedbuf"), "2") << "not 0 is in use";
    EXPECT_EQ(part.getStat("freebuf"), "0");
    EXPECT_EQ(part.getStat("last_ID"), "-42") << "of the tail";
    empty_full();
}

TEST_F(PartitionStat, LastIdOfADamagedQueueStaysInside)
{
    fill({1});
    raw.put_int32(AT_FULL + 4, 3);
    EXPECT_EQ(part.getStat("last_ID"), "-0");
    raw.put_int32(AT_FULL + 4, -1);
    EXPECT_EQ(part.getStat("last_ID"), "-0");
    empty_full();
}

TEST_F(PartitionStat, NumbersAreDecimalOverTheWholeRange)
{
    fill({1});
    for (const int value : {0, 7, 9, 10, 1234567890, INT_MAX, -1, -10, INT_MIN}) {
        raw.put_int32(at_descriptor(1, IN_DATA_ID), value);
        EXPECT_EQ(part.getStat("last_ID"), std::to_string(value));
    }
    empty_full();
}

TEST_F(PartitionStat, EventTotalIsSummedWithoutOverflow)
{
    for (int i = 0; i < 3; ++i) raw.put_int32(at_descriptor(i, IN_EVT_COUNT), INT_MAX);
    EXPECT_EQ(part.getStat("buffer_tot"), "6442450941");
    for (int i = 0; i < 3; ++i) raw.put_int32(at_descriptor(i, IN_EVT_COUNT), INT_MIN);
    EXPECT_EQ(part.getStat("buffer_tot"), "-6442450944");
}

TEST_F(PartitionStat, EventTotalOfNoBuffersIsZero)
{
    for (const int nbuf : {0, -5}) {
        raw.put_int32(AT_NBUF, nbuf);
        EXPECT_EQ(part.getStat("buffer_tot"), "0");
    }
    raw.put_int32(AT_NBUF, 3);
}

TEST_F(PartitionStat, QueuesAreCountedUnderTheGateAndNothingElseIs)
{
    for (const char* key : {"fullbuf", "freebuf", "usedbuf"}) {
        const long before = calls_of("semop");
        part.getStat(key);
        EXPECT_EQ(calls_of("semop") - before, 2) << key;
    }
    const long before = calls_of("semop");
    for (const char* key : {"exists", "name", "pflags", "shmid", "version", "nbuf", "lbuf", "use_count", "buffer_tot",
                            "maxcons", "semglobal", "last_ID", "other"})
        part.getStat(key);
    EXPECT_EQ(calls_of("semop"), before);
}

// Once taken, once given, whatever the result was: after a signal the gate is open twice until the process ends.
TEST_F(PartitionStat, GateIsGivenEvenWhenASignalKeptItFromBeingTaken)
{
    const fault signal = fault::fails("semop", EINTR);
    EXPECT_EQ(part.getStat("freebuf"), "3");
    EXPECT_EQ(signal.fired(), 1);
    EXPECT_EQ(semaphore_value(semid_of(part), 0), 2);
    EXPECT_TRUE(part.gate(true));
}

TEST_F(PartitionStat, CyclicQueueIsCountedOnce)
{
    raw.put_int32(at_descriptor(2, IN_LINK), 0);
    EXPECT_EQ(part.getStat("freebuf"), "3");
    raw.put_int32(at_descriptor(2, IN_LINK), 77);
    EXPECT_EQ(part.getStat("freebuf"), "3") << "a wild index ends it";
}

TEST_F(PartitionStat, NameWithoutAnEndIsReadAsFarAsItMayReach)
{
    raw.put_bytes(AT_NAME, std::string(256, 'N'));
    EXPECT_EQ(part.getStat("name"), std::string(256, 'N'));
}

TEST_F(PartitionStat, DumpIsThisByteForByte)
{
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    raw.put_int32(at_descriptor(1, IN_USE_COUNT), 12);
    raw.put_int32(at_descriptor(1, IN_LDATA), 345678);
    raw.put_int32(at_descriptor(1, IN_TRIG), -9);
    raw.put_int32(at_descriptor(1, IN_EVT_COUNT), 87654321);
    raw.put_int32(at_descriptor(2, IN_STATUS), 0xAB1);
    const std::string semid = std::to_string(semid_of(part));
    const std::string expected = "\n"
                                 "            Event Manager Partition - T_STAT\n"
                                 "\n"
                                 "Global Control Data\n"
                                 "-------------------\n"
                                 "  version:           1.02\n"
                                 "  status:            release,scavage\n"
                                 "  global use count:  1\n"
                                 "  global sem id:     " +
                                 semid +
                                 "\n"
                                 "  # buffers:         3\n"
                                 "  buffer length:     100\n"
                                 "  first full buffer: -1\n"
                                 "  last full buffer:  -1\n"
                                 "  first free buffer: 1\n"
                                 "\n"
                                 "Buffer Status\n"
                                 "-------------\n"
                                 " id status use   ldata   link  t-mask   count\n"
                                 "  0    0    0        0   -1        0       0\n"
                                 "  1    1   12   345678    2       -987654321\n"
                                 "  2  ab1    0        0   -1        0       0\n";
    std::ostringstream os;
    part.dump(os);
    EXPECT_EQ(os.str(), expected);
    EXPECT_EQ(out_of([&] { part.dump(); }), expected) << "without a stream: to standard output";
}

TEST_F(PartitionStat, DumpOfOtherVersionsHasTwoDigitsBehindThePoint)
{
    const std::pair<int, const char*> versions[] = {{100, "1.00"}, {1234, "12.34"}, {7, "0.07"}};
    for (const auto& [version, text] : versions) {
        raw.put_int32(AT_VERSION, version);
        std::ostringstream os;
        part.dump(os);
        EXPECT_NE(os.str().find("  version:           " + std::string(text) + "\n"), std::string::npos);
    }
    raw.put_int32(AT_VERSION, 102);
}

TEST_F(PartitionStat, DumpLeavesTheStreamsFormatAlone)
{
    std::ostringstream os;
    os << std::hex << std::setfill('*') << std::left;
    part.dump(os);
    EXPECT_NE(os.str().find("  buffer length:     100\n"), std::string::npos) << "decimal, whatever was set";
    EXPECT_NE(os.str().find("\n  0    1    0"), std::string::npos) << "right-aligned, whatever was set";
    os.str("");
    os << std::setw(4) << 255;
    EXPECT_EQ(os.str(), "ff**");
}

// As programs of some countries set it for their own output.
TEST_F(PartitionStat, DumpDoesNotGroupDigits)
{
    struct grouping : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    raw.put_int32(at_descriptor(0, IN_LDATA), 1234567);
    std::ostringstream os;
    os.imbue(std::locale(os.getloc(), new grouping));
    part.dump(os);
    EXPECT_NE(os.str().find("\n  0    1    0  1234567    1        0       0\n"), std::string::npos) << os.str();
    os.str("");
    os << 1234567;
    EXPECT_EQ(os.str(), "1,234,567") << "the stream is as it was";
}

TEST_F(PartitionStat, DumpOfADetachedHandleIsEmpty)
{
    std::ostringstream os;
    C_shm().dump(os);
    EXPECT_EQ(os.str(), "");
}

TEST_F(PartitionStat, BufferAddressIsWhereItsDescriptorSays)
{
    char* const first = part.buffer_addr(0);
    EXPECT_EQ(part.buffer_addr(2) - first, 200);
    raw.put_int32(at_descriptor(2, IN_BOFF), 444);
    EXPECT_EQ(part.buffer_addr(2), first);
    EXPECT_EQ(part.buffer_addr(3), nullptr);
    EXPECT_EQ(part.buffer_addr(-1), nullptr);
    part.deaccess();
    EXPECT_EQ(part.buffer_addr(0), nullptr);
}

TEST_F(PartitionStat, BufferIsKnownByItsFirstByteAlone)
{
    char* const first = part.buffer_addr(0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(part.buffer_id(part.buffer_addr(i)), i);
    for (const int miss : {-1, 1, 99, 101, 300, 1 << 20}) EXPECT_EQ(part.buffer_id(first + miss), -1) << miss;
    EXPECT_EQ(part.buffer_id(nullptr), -1);
    EXPECT_EQ(part.get_buffer_id(first), 0);
    part.deaccess();
    EXPECT_EQ(part.buffer_id(first), -1);
}

TEST_F(PartitionStat, BufferIsFoundWhereverItsDescriptorPutsIt)
{
    char* const first = part.buffer_addr(0);
    raw.put_int32(at_descriptor(0, IN_BOFF), 544);
    raw.put_int32(at_descriptor(1, IN_BOFF), 444);
    EXPECT_EQ(part.buffer_id(first), 1);
    EXPECT_EQ(part.buffer_id(first + 100), 0);
}

TEST_F(PartitionStat, BuffersOfLengthZeroAreAllTheFirst)
{
    const C_shm flat("T_FLAT", 3, 0, false);
    EXPECT_EQ(flat.buffer_addr(2), flat.buffer_addr(0));
    EXPECT_EQ(flat.buffer_id(flat.buffer_addr(2)), 0);
    const C_shm none("T_NO_BUFFERS", 0, 10, false);
    EXPECT_EQ(none.buffer_addr(0), nullptr);
    EXPECT_EQ(none.buffer_id(part.buffer_addr(0)), -1);
}

TEST_F(PartitionStat, BufferLengthIsTheValidDataNotedForIt)
{
    raw.put_int32(at_descriptor(1, IN_LDATA), 55);
    EXPECT_EQ(part.buffer_length(1), 55);
    EXPECT_EQ(part.buffer_length(0), 0);
    raw.put_int32(at_descriptor(0, IN_LDATA), 7);
    EXPECT_EQ(part.buffer_length(-1), 0);
    EXPECT_EQ(part.buffer_length(3), 0);
    part.deaccess();
    EXPECT_EQ(part.buffer_length(1), 0);
}

TEST_F(PartitionStat, AddressesGoByTheNumberOfBuffersAtAccess)
{
    raw.put_int32(AT_NBUF, 1);
    EXPECT_NE(part.buffer_addr(2), nullptr);
    EXPECT_EQ(part.buffer_id(part.buffer_addr(2)), 2);
    raw.put_int32(AT_NBUF, 1000);
    EXPECT_EQ(part.buffer_addr(3), nullptr);
    raw.put_int32(AT_NBUF, 3);
}

} // namespace
