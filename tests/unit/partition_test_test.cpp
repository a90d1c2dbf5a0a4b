// The look at a segment whose id came out of shared memory.
#include "partition_test.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "C_shm.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;
using namespace zrk4::impl;

namespace {

class PartitionTest : public CleanNamespace {
  protected:
    static int segment(int key, size_t size, int version)
    {
        const int id = shmget(key, size, IPC_CREAT | 0600);
        if (size >= 8) live_segment(id, live_segment::WRITE).put_int32(AT_VERSION, version);
        return id;
    }
    ~PartitionTest() override { clear_ipc_namespace(); }
};

TEST_F(PartitionTest, PartitionIsOne)
{
    const C_shm part("T_REAL", 1, 1, false);
    EXPECT_TRUE(is_partition(shmid_of(part)));
    EXPECT_EQ(attachments(shmid_of(part)), 1) << "nothing stays mapped";
}

TEST_F(PartitionTest, KeySizeAndVersionMustFit)
{
    EXPECT_TRUE(is_partition(segment(32, 300, 102)));
    EXPECT_TRUE(is_partition(segment(1055, 300, 102)));
    EXPECT_FALSE(is_partition(segment(31, 300, 102)));
    EXPECT_FALSE(is_partition(segment(1056, 300, 102)));
    EXPECT_FALSE(is_partition(segment(IPC_PRIVATE, 300, 102)));
    EXPECT_FALSE(is_partition(segment(40, 299, 102)));
    EXPECT_FALSE(is_partition(segment(41, 300, 101)));
    EXPECT_FALSE(is_partition(segment(42, 300, 0)));
}

TEST_F(PartitionTest, IdThatIsNoneIsNot)
{
    EXPECT_FALSE(is_partition(-1));
    EXPECT_FALSE(is_partition(999999));
    EXPECT_EQ(look_at_segment(999999), segment_is::unknown);
}

TEST_F(PartitionTest, SegmentThatMayNotBeReadIsNot)
{
    const int id = segment(40, 300, 102);
    const fault foreign = fault::fails("shmat", EACCES);
    EXPECT_EQ(look_at_segment(id), segment_is::unknown);
    EXPECT_EQ(foreign.fired(), 1);
    const fault not_even_its_size = fault::fails("shmctl", EACCES);
    EXPECT_EQ(look_at_segment(id), segment_is::unknown);
    EXPECT_EQ(not_even_its_size.fired(), 1);
}

TEST_F(PartitionTest, OtherSegmentsAreStrangers)
{
    EXPECT_EQ(look_at_segment(segment(IPC_PRIVATE, 300, 102)), segment_is::strangers);
    EXPECT_EQ(look_at_segment(segment(41, 300, 101)), segment_is::strangers);
}

} // namespace
