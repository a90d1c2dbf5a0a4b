// Existing partitions that are taken as they are, and those that are refused.
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionRefused : public CleanNamespace {};

TEST_F(PartitionRefused, LargerPartitionIsTakenAsItIs)
{
    const C_shm made("T_LARGE", 4, 100, true);
    const C_shm part("T_LARGE", 2, 50, false);
    EXPECT_EQ(part.valid(), 1);
    EXPECT_EQ(part.getBufferCount(), 4);
    EXPECT_EQ(part.getBufferLength(), 100);
    EXPECT_TRUE(part.ctrl(3, true)) << "locks as the partition has them, not as asked for";
    EXPECT_TRUE(part.ctrl(3, false));
    EXPECT_EQ(registered(shmid_of(part)), 2);
}

TEST_F(PartitionRefused, TooSmallPartitionWithoutUsersIsRefusedAndRemoved)
{
    for (const auto& [nbuf, lbuf] : {std::pair{3, 100}, std::pair{2, 101}}) {
        int id = -1;
        {
            C_shm made("T_SMALL", 2, 100, false);
            id = shmid_of(made);
            made.keep(true);
        }
        ASSERT_TRUE(segment_exists(id));
        captured_output captured;
        const C_shm part("T_SMALL", nbuf, lbuf, false);
        EXPECT_STREQ(part.Error(), "Existing partition is incompatible with request");
        EXPECT_EQ(part.valid(), 0);
        EXPECT_FALSE(part.found());
        EXPECT_FALSE(segment_exists(id));
        EXPECT_EQ(semaphore_sets_in_namespace(), 0);
        EXPECT_EQ(captured.out() + captured.err(), "");
    }
}

// Refused, with no registry entry of its own: then the mapping stays, here until the child ends.
TEST_F(PartitionRefused, TooSmallPartitionWithUsersStaysAndStaysMapped)
{
    const C_shm user("T_USED", 2, 100, false);
    const int id = shmid_of(user);
    const std::string text = out_of([&] {
        child refused([&] {
            C_shm().flush(); // the inherited handle is the parent's
            C_shm().rem_shmid_entry(id);
            const C_shm part("T_USED", 3, 100, false);
            EXPECT_STREQ(part.Error(), "Existing partition is incompatible with request");
            EXPECT_FALSE(part.found());
            EXPECT_EQ(attachments(id), 3) << "the parent's, the inherited one, and the one that stays";
        });
        EXPECT_EQ(refused.wait(), 0);
    });
    EXPECT_EQ(text, "rem_shmid_entry() shmid: " + std::to_string(id) + "  NOT FOUND\n");
    EXPECT_EQ(use_count_of(user), 1);
    EXPECT_EQ(user.getStat("freebuf"), "2");
}

TEST_F(PartitionRefused, TooSmallOneTakesTheCountOfAnotherButNotItsMapping)
{
    C_shm_buffer user("T_MINE", 2, 100, false);
    const int id = shmid_of(user);
    captured_output captured;
    const C_shm refused("T_MINE", 3, 100, false);
    EXPECT_STREQ(refused.Error(), "Existing partition is incompatible with request");
    EXPECT_EQ(registered(id), 0);
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(attachments(id), 1);
    EXPECT_EQ(user.valid(), 1);
    char* const addr = user.get_buffer(BM_NO_WAIT, true);
    ASSERT_NE(addr, nullptr);
    addr[99] = 'x'; // the mapping is there
    EXPECT_FALSE(user.return_buffer(addr));
}

TEST_F(PartitionRefused, OtherVersionWithoutUsersIsRefusedAndRemoved)
{
    int id = -1;
    {
        C_shm made("T_OLD", 2, 100, false);
        id = shmid_of(made);
        made.keep(true);
    }
    live_segment(id, live_segment::WRITE).put_int32(AT_VERSION, 101);
    const C_shm part("T_OLD");
    EXPECT_STREQ(part.Error(), "Incompatible version number");
    EXPECT_EQ(part.valid(), 0);
    EXPECT_FALSE(segment_exists(id));
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionRefused, OtherVersionWithUsersIsRefusedAndStays)
{
    C_shm user("T_NEW", 2, 100, false);
    const int id = shmid_of(user);
    live_segment(id, live_segment::WRITE).put_int32(AT_VERSION, 103);
    {
        const C_shm by_name("T_NEW");
        EXPECT_STREQ(by_name.Error(), "Incompatible version number");
        const C_shm with_sizes("T_NEW", 1, 1, false);
        EXPECT_STREQ(with_sizes.Error(), "Incompatible version number");
    }
    EXPECT_TRUE(segment_exists(id));
    EXPECT_EQ(attachments(id), 1);
    live_segment(id, live_segment::WRITE).put_int32(AT_VERSION, 102);
    EXPECT_EQ(user.getStat("freebuf"), "2");
}

// A caller that asks for an id gets what it asked for: a segment that is no partition goes when it is released.
TEST_F(PartitionRefused, SegmentThatIsNoPartitionIsRemovedWhenAskedForById)
{
    const int id = shmget(IPC_PRIVATE, 4096, 0600);
    const C_shm part(id);
    EXPECT_STREQ(part.Error(), "Incompatible version number");
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionRefused, FailedMakeLeavesARegistryEntryAndNoRelease)
{
    const int before = registered(-1);
    captured_output captured;
    const C_shm part("T_NONE", -1, 1, false);
    EXPECT_STREQ(part.Error(), "Unable to create a new partition");
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(registered(-1), before + 1) << "for the id that the handle had: none";
    EXPECT_EQ(captured.out(), "");
}

} // namespace
