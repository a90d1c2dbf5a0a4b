// The bytes of a live segment and the values of a live semaphore set, seen without the library.
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionBytes : public CleanNamespace {};

std::string word(int32_t value)
{
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &value, 4);
    return bytes;
}

std::string words(std::initializer_list<int32_t> values)
{
    std::string bytes;
    for (int32_t value : values) bytes += word(value);
    return bytes;
}

std::string free_descriptor(int boff, int link) { return words({1, boff, 0, 0, 0, 0, 0, 0, 0, 0, link, 0}); }

std::string padded(std::string text, size_t size)
{
    text.resize(size, '\0');
    return text;
}

TEST_F(PartitionBytes, FreshSegmentIsThisByteForByte)
{
    const C_shm part("T_BYTES", 2, 10, /*sems=*/true);
    const live_segment seen(shmid_of(part));
    const std::string expected = words({3, 102, /*gbl_count=*/1, semid_of(part), /*nbuf=*/2, /*lbuf=*/10}) +
                                 std::string("\1\0\0\0", 4) + words({-1, -1, 0, 1}) + padded("T_BYTES", 256) +
                                 free_descriptor(396, 1) + free_descriptor(406, -1) + std::string(20, '\0');
    EXPECT_EQ(seen.bytes(0, seen.size()), expected);
}

TEST_F(PartitionBytes, BuffersBeginRightBehindTheDescriptors)
{
    const C_shm part("T_OFFSETS", 3, 100, false);
    const live_segment seen(shmid_of(part));
    EXPECT_EQ(seen.size(), 744U);
    EXPECT_EQ(seen.int32(at_descriptor(0, IN_BOFF)), 444);
    EXPECT_EQ(seen.int32(at_descriptor(1, IN_BOFF)), 544);
    EXPECT_EQ(seen.int32(at_descriptor(2, IN_BOFF)), 644);
    EXPECT_EQ(seen.byte(AT_SEMS), 0);
}

TEST_F(PartitionBytes, BuffersOfAnOddLengthAreNotAligned)
{
    const C_shm part("T_ODD", 3, 7, false);
    const live_segment seen(shmid_of(part));
    EXPECT_EQ(seen.size(), 465U);
    EXPECT_EQ(seen.int32(at_descriptor(1, IN_BOFF)), 451);
    EXPECT_EQ(seen.int32(at_descriptor(2, IN_BOFF)), 458);
}

TEST_F(PartitionBytes, FreeQueueHoldsAllBuffersInOrder)
{
    const C_shm part("T_QUEUE", 4, 0, false);
    const live_segment seen(shmid_of(part));
    EXPECT_EQ(seen.int32(AT_FREE), 0);
    EXPECT_EQ(seen.int32(AT_FREE + 4), 3);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(seen.int32(at_descriptor(i, IN_LINK)), i == 3 ? -1 : i + 1);
}

TEST_F(PartitionBytes, WithoutBuffersTheSegmentIsItsHeadAndTheSetHasFourSemaphores)
{
    const C_shm part("T_NONE", 0, 100, /*sems=*/true);
    const live_segment seen(shmid_of(part));
    EXPECT_EQ(seen.size(), 300U);
    EXPECT_EQ(seen.bytes(AT_FULL, 16), words({-1, -1, -1, -1}));
    EXPECT_EQ(seen.byte(AT_SEMS), 1);
    EXPECT_EQ(semaphores_in_set(semid_of(part)), 4);
    EXPECT_EQ(semaphore_value(semid_of(part), 1), 0);
}

TEST_F(PartitionBytes, NameOf300CharactersIsStoredAs255)
{
    const std::string name(300, 'n');
    const C_shm part(name.c_str(), 1, 1, false);
    const live_segment seen(shmid_of(part));
    EXPECT_EQ(seen.bytes(AT_NAME, 256), std::string(255, 'n') + std::string(1, '\0'));
    EXPECT_EQ(seen.int32(AT_DESCRIPTORS), 1) << "the descriptor behind the name is whole";
}

TEST_F(PartitionBytes, SemaphoresBeginAsTheGateIsOpenAndEveryBufferFree)
{
    const C_shm part("T_SEMS", 3, 10, /*sems=*/true);
    const int semid = semid_of(part);
    ASSERT_EQ(semaphores_in_set(semid), 7);
    const int expected[] = {1, 3, 0, 0, 1, 1, 1};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(semaphore_value(semid, i), expected[i]) << "semaphore " << i;
}

TEST_F(PartitionBytes, WithoutBufferLocksTheSetHasFourSemaphores)
{
    const C_shm part("T_NO_SEMS", 3, 10, /*sems=*/false);
    EXPECT_EQ(semaphores_in_set(semid_of(part)), 4);
    EXPECT_EQ(semaphore_value(semid_of(part), 1), 3);
}

TEST_F(PartitionBytes, PartitionsTakeTheKeysFrom32AndSetsHaveNone)
{
    const C_shm first("T_FIRST", 1, 1, false);
    const C_shm second("T_SECOND", 1, 1, false);
    EXPECT_EQ(segment_at_key(32), shmid_of(first));
    EXPECT_EQ(segment_at_key(33), shmid_of(second));
    semid_ds set{};
    ASSERT_EQ(semctl(semid_of(first), 0, IPC_STAT, &set), 0);
    EXPECT_EQ(set.sem_perm.__key, IPC_PRIVATE);
    EXPECT_EQ(set.sem_perm.mode & 0777, 0666);
    shmid_ds segment{};
    ASSERT_EQ(shmctl(shmid_of(first), IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0666);
}

TEST_F(PartitionBytes, TakenBufferNamesItsOwnerAndIsInNoQueue)
{
    C_shm_buffer part("T_TAKEN", 2, 10, false);
    const live_segment seen(shmid_of(part));
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, false), nullptr);
    EXPECT_EQ(seen.int32(at_descriptor(0, IN_STATUS)), 0);
    EXPECT_EQ(seen.int32(at_descriptor(0, IN_OWNER)), getpid());
    EXPECT_EQ(seen.int32(at_descriptor(0, IN_LINK)), -1);
    EXPECT_EQ(seen.bytes(AT_FREE, 8), words({1, 1}));
    part.SetID(-77);
    EXPECT_EQ(seen.int32(at_descriptor(0, IN_DATA_ID)), -77);
}

TEST_F(PartitionBytes, ReturnedBufferStandsAtTheTail)
{
    C_shm_buffer part("T_BACK", 3, 10, false);
    live_segment seen(shmid_of(part), live_segment::WRITE);
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    seen.put_int32(at_descriptor(0, IN_USE_COUNT), 5);
    seen.put_int32(at_descriptor(0, IN_LDATA), 6);
    seen.put_int32(at_descriptor(0, IN_TRIG), 7);
    seen.put_int32(at_descriptor(0, IN_EVT_COUNT), 8);
    EXPECT_FALSE(part.return_buffer(0)) << "false is success";
    EXPECT_EQ(seen.bytes(AT_FREE, 8), words({1, 0}));
    EXPECT_EQ(seen.int32(at_descriptor(2, IN_LINK)), 0);
    const int owner = getpid();
    EXPECT_EQ(seen.bytes(at_descriptor(0, IN_STATUS), 48), words({1, 444, 0, 0, 0, 0, 0, 0, 0, owner, -1, 8}));
}

TEST_F(PartitionBytes, ModesAreBitsOfTheFirstWord)
{
    C_shm part("T_MODES", 1, 1, false);
    const live_segment seen(shmid_of(part));
    part.bufmode(3);
    EXPECT_EQ(seen.int32(AT_STATUS), 17);
    part.rqsynch(true);
    EXPECT_EQ(seen.int32(AT_STATUS), 21);
    part.bufmode(2);
    EXPECT_EQ(seen.int32(AT_STATUS), 6);
}

// A segment as any other program of this format may have made it, its flag byte not 1 but not 0 either.
TEST_F(PartitionBytes, SegmentMadeByHandIsAPartition)
{
    const int id = shmget(700, 300 + 2 * (48 + 16), IPC_CREAT | 0666);
    const int semid = semget(IPC_PRIVATE, 6, 0666);
    unsigned short values[] = {1, 2, 0, 0, 1, 1};
    ASSERT_EQ(semctl(semid, 0, SETALL, values), 0);
    {
        live_segment made(id, live_segment::WRITE);
        made.put_bytes(0, words({3, 102, 0, semid, 2, 16, 0xFE, -1, -1, 1, 0}));
        made.put_bytes(AT_NAME, "T_BY_HAND");
        made.put_bytes(AT_DESCRIPTORS, free_descriptor(412, -1) + free_descriptor(396, 0));
    }
    C_shm_buffer part("T_BY_HAND");
    ASSERT_EQ(part.valid(), 1);
    EXPECT_EQ(part.getBufferCount(), 2);
    EXPECT_EQ(part.getBufferLength(), 16);
    EXPECT_TRUE(part.ctrl(1, true)) << "any value but 0 means buffer locks";
    EXPECT_EQ(semaphore_value(semid, 5), 0);
    EXPECT_TRUE(part.ctrl(1, false));
    char* const addr = part.get_buffer(BM_NO_WAIT, true);
    EXPECT_EQ(part.buffer_id(addr), 1) << "the head of the queue, not the lowest number";
    EXPECT_EQ(addr - part.buffer_addr(0), -16) << "where its descriptor says, not where it would be";
    EXPECT_FALSE(part.return_buffer(1));
}

TEST(PartitionRecords, EnumeratorsHaveTheirNumbers)
{
    EXPECT_EQ(gbl_gate, 0);
    EXPECT_EQ(gbl_empty, 1);
    EXPECT_EQ(gbl_full, 2);
    EXPECT_EQ(gbl_synch, 3);
    EXPECT_EQ(gbl_nsems, 4);
    EXPECT_EQ(NoError, 0);
    EXPECT_EQ(NotAttached, 1);
    EXPECT_EQ(IncompatiblePartition, 2);
    EXPECT_EQ(CantGetSem, 3);
    EXPECT_EQ(NoFreeID, 4);
    EXPECT_EQ(CantAttach, 5);
    EXPECT_EQ(CantCreate, 6);
    EXPECT_EQ(CantCreateSem, 7);
    EXPECT_EQ(NoPriviledge, 8);
    EXPECT_EQ(BadVersion, 9);
}

// A record at an odd address is read and written whole: the sanitizer would stop at a reference to a field.
TEST(PartitionRecords, ConsumerBlockFlagsWorkAtAnyAddress)
{
    for (size_t shift = 0; shift < 8; ++shift) {
        alignas(8) char bytes[sizeof(C_shm_consbk) + 8] = {};
        auto& block = *reinterpret_cast<C_shm_consbk*>(bytes + shift);
        EXPECT_FALSE(block.isReadAll());
        block.setWait();
        EXPECT_NE(+block.flags, 0);
        block.clrWait();
        EXPECT_EQ(+block.flags, 0);
    }
}

} // namespace
