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
using zrk4::impl::is_partition;

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
}

TEST_F(PartitionTest, SegmentThatMayNotBeReadIsNot)
{
    const int id = segment(40, 300, 102);
    const fault foreign = fault::fails("shmat", EACCES);
    EXPECT_FALSE(is_partition(id));
    EXPECT_EQ(foreign.fired(), 1);
}

} // namespace
