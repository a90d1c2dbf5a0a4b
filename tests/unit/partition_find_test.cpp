// The search for an existing partition, by name and by id.
#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "C_shm.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

/// Partitions in these tests are made by a child: a handle of this process would be found before the keys are searched.
class PartitionFind : public CleanNamespace {
  protected:
    void make_elsewhere(const char* name)
    {
        child maker([&] {
            C_shm part(name, 2, 10, true);
            part.keep(true);
        });
        ASSERT_EQ(maker.wait(), 0);
    }
    /// The handle's release neither removes the segment nor keeps its mapping.
    static void leave_alone(C_shm& part)
    {
        part.keep(true);
        part.add_shmid_entry(shmid_of(part));
    }
    ~PartitionFind() override { clear_ipc_namespace(); }
};

TEST_F(PartitionFind, AttachesWithoutAccess)
{
    make_elsewhere("T_ONE");
    make_elsewhere("T_TWO");
    C_shm part;
    EXPECT_FALSE(part.find("T_TWO")) << "false is success";
    EXPECT_TRUE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(shmid_of(part), segment_at_key(33));
    EXPECT_EQ(attachments(shmid_of(part)), 1);
    EXPECT_EQ(attachments(segment_at_key(32)), 0) << "what was looked at is detached again";
    EXPECT_EQ(part.getStat("use_count"), "0");
}

TEST_F(PartitionFind, FailsForAHandleThatIsAttachedAlready)
{
    make_elsewhere("T_ONE");
    C_shm part;
    ASSERT_FALSE(part.find("T_ONE"));
    EXPECT_TRUE(part.find("T_ONE")) << "true is failure";
    EXPECT_TRUE(part.find(shmid_of(part))) << "true is failure";
    EXPECT_TRUE(part.found());
}

TEST_F(PartitionFind, FailsForAnUnknownNameWithoutAWord)
{
    make_elsewhere("T_ONE");
    captured_output captured;
    for (const char* name : {"T_ON", "T_ONE ", "t_one"}) {
        C_shm part;
        EXPECT_TRUE(part.find(name)) << name;
        EXPECT_STREQ(part.Error(), "Partition not attached") << "unchanged";
    }
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(PartitionFind, NullNameIsNotFound)
{
    C_shm part;
    EXPECT_TRUE(part.find(static_cast<const char*>(nullptr))) << "true is failure";
}

TEST_F(PartitionFind, LooksAtKeys32To1055Only)
{
    make_elsewhere("T_EDGE");
    const std::string whole = live_segment(segment_at_key(32)).bytes(0, 300);
    clear_ipc_namespace();
    for (const int key : {31, 1056})
        live_segment(shmget(key, 300, IPC_CREAT | 0666), live_segment::WRITE).put_bytes(0, whole);
    C_shm outside;
    EXPECT_TRUE(outside.find("T_EDGE")) << "true is failure";
    live_segment(shmget(1055, 300, IPC_CREAT | 0666), live_segment::WRITE).put_bytes(0, whole);
    C_shm inside;
    EXPECT_FALSE(inside.find("T_EDGE")) << "false is success";
}

TEST_F(PartitionFind, SegmentsSmallerThanAHeadAreSkipped)
{
    ASSERT_GE(shmget(32, 299, IPC_CREAT | 0666), 0);
    make_elsewhere("T_BEHIND");
    C_shm part;
    EXPECT_FALSE(part.find("T_BEHIND")) << "false is success";
    EXPECT_EQ(shmid_of(part), segment_at_key(33));
}

TEST_F(PartitionFind, SegmentThatMayNotBeAttachedEndsTheSearch)
{
    ASSERT_GE(shmget(32, 300, IPC_CREAT | 0666), 0);
    make_elsewhere("T_HIDDEN");
    captured_output captured;
    const fault foreign = fault::fails("shmat", EACCES);
    const C_shm part("T_HIDDEN");
    EXPECT_EQ(foreign.fired(), 1);
    EXPECT_FALSE(part.found()) << "what lies behind it is hidden";
    EXPECT_STREQ(part.Error(), "No error");
    EXPECT_EQ(captured.err(), "C_shm_find - shmget: Permission denied\n");
    EXPECT_EQ(captured.out(), "SYSERROR: 13\n");
}

TEST_F(PartitionFind, NullAddressEndsTheSearch)
{
    make_elsewhere("T_ONE");
    captured_output captured;
    const fault odd = fault::returns("shmat", 0);
    C_shm part;
    EXPECT_TRUE(part.find("T_ONE")) << "true is failure";
    EXPECT_EQ(odd.fired(), 1);
    EXPECT_EQ(captured.out(), "POINTER == NULL !!!!\n");
    EXPECT_EQ(captured.err(), "");
}

TEST_F(PartitionFind, SegmentThatVanishesMeanwhileIsSkippedWithoutAWord)
{
    const int gone = shmget(32, 300, IPC_CREAT | 0666);
    make_elsewhere("T_BEHIND");
    captured_output captured;
    const fault race = fault::preceded("shmat", [&] { shmctl(gone, IPC_RMID, nullptr); });
    C_shm part;
    EXPECT_FALSE(part.find("T_BEHIND")) << "false is success";
    EXPECT_EQ(race.fired(), 1);
    EXPECT_FALSE(segment_exists(gone));
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(PartitionFind, SegmentThatIsThereAndCannotBeAttachedEndsTheSearchWhateverTheReason)
{
    ASSERT_GE(shmget(32, 300, IPC_CREAT | 0666), 0);
    make_elsewhere("T_BEHIND");
    for (const int reason : {EINVAL, EIDRM}) {
        captured_output captured;
        const fault refused = fault::fails("shmat", reason);
        C_shm part;
        EXPECT_TRUE(part.find("T_BEHIND")) << "true is failure";
        EXPECT_EQ(refused.fired(), 1);
        EXPECT_EQ(captured.err(), "C_shm_find - shmget: " + std::string(strerror(reason)) + "\n");
        EXPECT_EQ(captured.out(), "SYSERROR: " + std::to_string(reason) + "\n");
    }
}

TEST_F(PartitionFind, ByIdAttachesAnySegmentWithoutALook)
{
    const int id = shmget(IPC_PRIVATE, 4, 0600);
    captured_output captured;
    C_shm part;
    EXPECT_FALSE(part.find(id)) << "false is success";
    EXPECT_EQ(part.getStat("exists"), "1");
    EXPECT_EQ(attachments(id), 1);
    EXPECT_EQ(captured.out() + captured.err(), "");
    leave_alone(part);
}

TEST_F(PartitionFind, ByIdReportsWhatCannotBeAttached)
{
    captured_output captured;
    C_shm part;
    EXPECT_TRUE(part.find(12345)) << "true is failure";
    EXPECT_FALSE(part.found());
    EXPECT_EQ(captured.err(), "C_shm_find - shmget: Invalid argument\n");
    EXPECT_EQ(captured.out(), "SYSERROR: 22\n");
    captured.forget();
    const C_shm constructed(-1);
    EXPECT_FALSE(constructed.found());
    EXPECT_STREQ(constructed.Error(), "No error");
    EXPECT_EQ(captured.out(), "SYSERROR: 22\n");
}

TEST_F(PartitionFind, SecondHandleSharesTheMappingOfTheFirst)
{
    make_elsewhere("T_SHARED");
    C_shm first("T_SHARED");
    C_shm by_name, by_id;
    EXPECT_FALSE(by_name.find("T_SHARED")) << "false is success";
    EXPECT_FALSE(by_id.find(shmid_of(first))) << "false is success";
    EXPECT_EQ(attachments(shmid_of(first)), 1);
    ASSERT_TRUE(by_id.access());
    EXPECT_EQ(by_id.buffer_addr(1), first.buffer_addr(1));
}

TEST_F(PartitionFind, ByNameInTheSameProcessWaitsForTheGate)
{
    make_elsewhere("T_BUSY");
    C_shm first("T_BUSY");
    C_shm second;
    const long before = calls_of("semop");
    EXPECT_FALSE(second.find("T_BUSY")) << "false is success";
    EXPECT_EQ(calls_of("semop") - before, 2) << "taken and given once";
    EXPECT_EQ(semaphore_value(semid_of(first), 0), 1);
    EXPECT_EQ(calls_of("semop") - before, 2);
    C_shm third;
    EXPECT_FALSE(third.find(shmid_of(first)));
    EXPECT_EQ(calls_of("semop") - before, 2) << "not by id";
}

TEST_F(PartitionFind, InterruptedGateIsTriedAgain)
{
    make_elsewhere("T_SIGNAL");
    C_shm first("T_SIGNAL");
    const fault signal = fault::fails("semop", EINTR, 1, 3);
    C_shm second;
    EXPECT_FALSE(second.find("T_SIGNAL")) << "false is success";
    EXPECT_EQ(signal.fired(), 3);
    EXPECT_EQ(semaphore_value(semid_of(first), 0), 1);
}

// A zero-filled segment of a stranger has the empty name. Looking at it harms nobody.
TEST_F(PartitionFind, EmptyNameMatchesAZeroFilledSegment)
{
    const int id = shmget(40, 4096, IPC_CREAT | 0600);
    C_shm part;
    EXPECT_FALSE(part.find("")) << "false is success";
    EXPECT_EQ(shmid_of(part), id);
    EXPECT_FALSE(part.access()) << "no partition";
    leave_alone(part);
}

} // namespace
