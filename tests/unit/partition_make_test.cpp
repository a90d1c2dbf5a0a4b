// Making of partitions: the key, the sizes, and every way in which it fails.
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

constexpr int WITH_SEMS_AT_MOST = 31996; // 32,000 semaphores per set on a stock kernel

class PartitionMake : public CleanNamespace {};

void expect_refused(int nbuf, int lbuf)
{
    C_shm part;
    captured_output captured;
    EXPECT_TRUE(part.make("T_REFUSED", nbuf, lbuf)) << "true is failure";
    EXPECT_STREQ(part.Error(), "Unable to create a new partition");
    EXPECT_EQ(captured.err(), "shmget: Invalid argument\n");
    EXPECT_EQ(captured.out(), "");
    EXPECT_FALSE(part.found());
    EXPECT_EQ(segments_in_namespace(), 0);
}

TEST_F(PartitionMake, AttachesWithoutAccess)
{
    C_shm part;
    EXPECT_FALSE(part.make("T_MADE", 2, 10)) << "false is success";
    EXPECT_TRUE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(part.getStat("use_count"), "0");
    EXPECT_EQ(segments_in_namespace(), 1);
}

TEST_F(PartitionMake, AttachedHandleIsDoneAtOnce)
{
    C_shm part("T_ONE", 1, 1, false);
    EXPECT_FALSE(part.make("T_OTHER", 2, 2)) << "false, though nothing was made";
    EXPECT_EQ(segments_in_namespace(), 1);
    EXPECT_EQ(part.getStat("name"), "T_ONE");
}

TEST_F(PartitionMake, NegativeNumbersAreRefused)
{
    expect_refused(-1, 10);
    expect_refused(1, -1);
    expect_refused(INT_MIN, INT_MIN);
}

TEST_F(PartitionMake, OffsetsBeyond2GiBAreRefused)
{
    expect_refused(2, INT_MAX);
    expect_refused(INT_MAX, 1);
    expect_refused(3, 1 << 30);
}

TEST_F(PartitionMake, WithoutANameIsRefused)
{
    C_shm part;
    captured_output captured;
    EXPECT_TRUE(part.make(nullptr, 1, 1)) << "true is failure";
    EXPECT_STREQ(part.Error(), "Unable to create a new partition");
    EXPECT_EQ(segments_in_namespace(), 0);
}

TEST_F(PartitionMake, OccupiedKeysArePassedOver)
{
    ASSERT_GE(shmget(32, 300, IPC_CREAT | 0600), 0);
    ASSERT_GE(shmget(33, 4096, IPC_CREAT | 0600), 0);
    {
        const C_shm part("T_THIRD", 1, 1, false);
        EXPECT_EQ(segment_at_key(34), shmid_of(part));
    }
    clear_ipc_namespace();
}

// The kernel answers a probe of such a key with another error than "nothing there", and would refuse to create there.
TEST_F(PartitionMake, KeyWithASegmentSmallerThanAHeadIsOccupied)
{
    ASSERT_GE(shmget(32, 299, IPC_CREAT | 0600), 0);
    {
        const C_shm part("T_BEHIND", 1, 1, false);
        EXPECT_EQ(part.valid(), 1);
        EXPECT_EQ(segment_at_key(33), shmid_of(part));
    }
    clear_ipc_namespace();
}

TEST_F(PartitionMake, FailsWithoutAWordWhenAll1024KeysAreInUse)
{
    for (int key = 32; key <= 1055; ++key) ASSERT_GE(shmget(key, 300, IPC_CREAT | 0600), 0);
    C_shm part;
    captured_output captured;
    EXPECT_TRUE(part.make("T_NO_KEY", 1, 1)) << "true is failure";
    EXPECT_STREQ(part.Error(), "No free partition IDs are available");
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(segment_at_key(1056), -1);
    clear_ipc_namespace();
}

TEST_F(PartitionMake, LastKeyIsUsedToo)
{
    for (int key = 32; key <= 1054; ++key) ASSERT_GE(shmget(key, 300, IPC_CREAT | 0600), 0);
    {
        const C_shm part("T_LAST", 1, 1, false);
        EXPECT_EQ(segment_at_key(1055), shmid_of(part));
        const C_shm again("T_LAST");
        EXPECT_EQ(again.valid(), 1);
    }
    clear_ipc_namespace();
}

TEST_F(PartitionMake, SegmentThatTheKernelRefusesIsReported)
{
    for (const int error : {ENOMEM, ENOSPC, EINVAL}) {
        C_shm part;
        captured_output captured;
        const fault refused = fault::fails("shmget", error, 2); // the first is the probe of key 32
        EXPECT_TRUE(part.make("T_NO_ROOM", 1, 1)) << "true is failure";
        EXPECT_EQ(refused.fired(), 1);
        EXPECT_STREQ(part.Error(), "Unable to create a new partition");
        EXPECT_EQ(captured.err(), "shmget: " + std::string(strerror(error)) + "\n");
        EXPECT_EQ(captured.out(), "");
        EXPECT_FALSE(part.found());
    }
}

TEST_F(PartitionMake, SegmentThatCannotBeAttachedIsReportedAndRemoved)
{
    C_shm part;
    captured_output captured;
    const fault refused = fault::fails("shmat", EMFILE);
    EXPECT_TRUE(part.make("T_NO_MAP", 1, 1)) << "true is failure";
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_STREQ(part.Error(), "Unable to attach partition");
    EXPECT_EQ(captured.err(), "C_shm_make - error: Too many open files\nshmat: Too many open files\n");
    EXPECT_FALSE(part.found());
    EXPECT_EQ(segments_in_namespace(), 0);
}

// Somebody else creates a segment at the chosen key meanwhile, its first word -1.
TEST_F(PartitionMake, SegmentWhoseFirstWordIsMinusOneCountsAsNotAttached)
{
    C_shm part;
    captured_output captured;
    const auto somebody_else = [] {
        live_segment theirs(shmget(32, 300 + 48 + 1, IPC_CREAT | 0666), live_segment::WRITE);
        theirs.put_int32(0, -1);
    };
    const fault race = fault::preceded("shmget", somebody_else, 2);
    EXPECT_TRUE(part.make("T_MINUS_ONE", 1, 1)) << "true is failure";
    EXPECT_EQ(race.fired(), 1);
    EXPECT_STREQ(part.Error(), "Unable to attach partition");
    const std::string text = captured.err();
    EXPECT_EQ(text.rfind("C_shm_make - error: ", 0), 0U);
    EXPECT_NE(text.find("\nshmat: "), std::string::npos);
    EXPECT_FALSE(part.found());
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
    EXPECT_EQ(segments_in_namespace(), 0) << "else its key would be lost";
}

void expect_set_failed(C_shm& part, captured_output& captured, int error)
{
    EXPECT_STREQ(part.Error(), "Unable to create a new semaphore");
    const std::string reason = strerror(error);
    EXPECT_EQ(captured.err(), "C_shm_make - error allocating global sems: " + reason + "\n");
    EXPECT_EQ(captured.out(), "");
    EXPECT_FALSE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionMake, FailedSemaphoreSetIsToldByTheErrorAlone)
{
    for (const int error : {ENOSPC, EINVAL, ENOMEM}) {
        C_shm part;
        captured_output captured;
        const fault refused = fault::fails("semget", error);
        EXPECT_FALSE(part.make("T_NO_SET", 1, 1)) << "false, though it failed";
        EXPECT_EQ(refused.fired(), 1);
        expect_set_failed(part, captured, error);
    }
}

TEST_F(PartitionMake, SemaphoresThatCannotBeSetAreAFailedSet)
{
    C_shm part;
    captured_output captured;
    const fault refused = fault::fails("semctl", ERANGE);
    EXPECT_FALSE(part.make("T_NO_VALUE", 1, 1)) << "false, though it failed";
    EXPECT_EQ(refused.fired(), 1);
    expect_set_failed(part, captured, ERANGE);
}

TEST_F(PartitionMake, MoreBuffersThanASemaphoreCountsAreAFailedSet)
{
    for (const int nbuf : {32768, 40000, 70000}) { // 70000 would be 4464 as the kernel's 16 bits
        captured_output captured;
        C_shm part("T_MANY", nbuf, 1, /*sems=*/false);
        expect_set_failed(part, captured, ERANGE);
    }
}

TEST_F(PartitionMake, MoreBufferLocksThanASetHoldsAreAFailedSet)
{
    for (const int nbuf : {WITH_SEMS_AT_MOST + 1, 40000}) {
        captured_output captured;
        C_shm part("T_MANY_LOCKS", nbuf, 1, /*sems=*/true);
        EXPECT_STREQ(part.Error(), "Unable to create a new semaphore");
        EXPECT_EQ(captured.out(), "");
        EXPECT_EQ(captured.err().rfind("C_shm_make - error allocating global sems: ", 0), 0U);
        EXPECT_EQ(part.valid(), 0);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

TEST_F(PartitionMake, MostBuffersThatTheKernelGrantsWork)
{
    const C_shm locks("T_LOCKS", WITH_SEMS_AT_MOST, 0, /*sems=*/true);
    ASSERT_EQ(locks.valid(), 1);
    EXPECT_TRUE(locks.ctrl(WITH_SEMS_AT_MOST - 1, true));
    EXPECT_TRUE(locks.ctrl(WITH_SEMS_AT_MOST - 1, false));
    C_shm_buffer counted("T_COUNTED", 32767, 0, /*sems=*/false);
    ASSERT_EQ(counted.valid(), 1);
    EXPECT_EQ(semaphore_value(semid_of(counted), 1), 32767);
    EXPECT_NE(counted.get_buffer(BM_NO_WAIT, true), nullptr);
}

// Equal size: the second maker gets the same segment and begins it anew. Larger: the kernel refuses.
TEST_F(PartitionMake, SecondMakerAtTheSameMomentMeetsTheSegmentOfTheFirst)
{
    const auto first_maker = [] {
        live_segment theirs(shmget(32, 300 + 48 + 1, IPC_CREAT | 0666), live_segment::WRITE);
        theirs.put_bytes(AT_NAME, "T_LONGER_NAME");
    };
    {
        C_shm equal;
        const fault race = fault::preceded("shmget", first_maker, 2);
        EXPECT_FALSE(equal.make("T_EQUAL", 1, 1)) << "false is success";
        EXPECT_EQ(equal.getStat("freebuf"), "1");
        EXPECT_EQ(equal.getStat("name"), "T_EQUAL");
        EXPECT_EQ(segments_in_namespace(), 1);
    }
    C_shm larger;
    captured_output captured;
    const fault race = fault::preceded("shmget", first_maker, 2);
    EXPECT_TRUE(larger.make("T_LARGER", 1, 2)) << "true is failure";
    EXPECT_STREQ(larger.Error(), "Unable to create a new partition");
    EXPECT_EQ(captured.err(), "shmget: Invalid argument\n");
    clear_ipc_namespace();
}

// The kernel's first id in a namespace is 0, and an event slot takes a block with id 0 for a hole.
TEST_F(PartitionMake, NeverHasSegmentId0)
{
    child first_of_its_namespace([] {
        ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
        const C_shm part("T_FIRST", 1, 1, false);
        ASSERT_EQ(part.valid(), 1);
        EXPECT_GT(shmid_of(part), 0);
        EXPECT_EQ(segment_at_key(32), shmid_of(part));
        EXPECT_EQ(segments_in_namespace(), 1);
        EXPECT_EQ(semid_of(part), 0) << "a set may have id 0";
    });
    EXPECT_EQ(first_of_its_namespace.wait(), 0);
}

// Whoever searches by name must not take a half-made partition for a broken one: that would remove it, and the set 0.
TEST_F(PartitionMake, IsNotFoundByNameBeforeItIsWhole)
{
    int looked = 0;
    const auto look = [&] {
        child other([] {
            C_shm part("T_HALF");
            EXPECT_FALSE(part.found());
            EXPECT_STREQ(part.Error(), "No error");
        });
        EXPECT_EQ(other.wait(), 0);
        ++looked;
    };
    C_shm part;
    {
        const fault before_set = fault::preceded("semget", look);
        const fault before_values = fault::preceded("semctl", look);
        const fault before_attach = fault::preceded("shmat", look);
        EXPECT_FALSE(part.make("T_HALF", 2, 10)) << "false is success";
    }
    EXPECT_EQ(looked, 3);
    EXPECT_EQ(segments_in_namespace(), 1);
    EXPECT_EQ(semaphore_sets_in_namespace(), 1);
    EXPECT_TRUE(part.access());
}

TEST_F(PartitionMake, NameOf255CharactersIsFoundAgain)
{
    const std::string name(255, 'x');
    const C_shm part(name.c_str(), 1, 1, false);
    const C_shm again(name.c_str(), 1, 1, false);
    EXPECT_EQ(shmid_of(again), shmid_of(part));
}

// Compared with the whole argument, stored cut: such a name is lost at once.
TEST_F(PartitionMake, NameOf256CharactersMakesAPartitionEachTime)
{
    const std::string name(256, 'x');
    const C_shm part(name.c_str(), 1, 1, false);
    const C_shm again(name.c_str(), 1, 1, false);
    EXPECT_NE(shmid_of(again), shmid_of(part));
    EXPECT_FALSE(C_shm(name.c_str()).found());
}

} // namespace
