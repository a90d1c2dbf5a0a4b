// Removal of partitions by name.
#include <stdexcept>

#include <gtest/gtest.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "C_shm_kill.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "partition_user.h"

using namespace zrk4::test;

namespace {

class PartitionKill : public CleanNamespace {};

TEST_F(PartitionKill, ZeussZeroesTheUseCountAndAttachesWithoutAccess)
{
    latch made, leave;
    child user([&] {
        C_shm part("T_ZEUSS", 2, 10, false);
        made.open();
        leave.wait();
        EXPECT_EQ(part.getStat("use_count"), "0");
        part.keep(true);
    });
    made.wait();
    const int id = segment_at_key(32);
    C_shm part;
    part.keep(true);
    part.Zeuss("T_ZEUSS");
    EXPECT_TRUE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(use_count_of(part), 0);
    EXPECT_EQ(registered(id), 0);
    leave.open();
    EXPECT_EQ(user.wait(), 0);
    EXPECT_EQ(use_count_of(part), -1) << "the user that was not counted any more has left";
    part.add_shmid_entry(id);
    part.release();
    EXPECT_TRUE(segment_exists(id)) << "removed at exactly 0, not below";
    clear_ipc_namespace();
}

TEST_F(PartitionKill, ZeussOnAnAttachedOneOnlySaysSo)
{
    C_shm part("T_HERE", 2, 10, false);
    captured_output captured;
    part.Zeuss("T_HERE");
    EXPECT_EQ(captured.err(), "Zeuss: Can't zero user count - partition is attached.\n");
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(use_count_of(part), 1);
}

TEST_F(PartitionKill, ZeussOfAnUnknownNameDoesNothing)
{
    C_shm part;
    captured_output captured;
    part.Zeuss("T_ABSENT");
    EXPECT_FALSE(part.found());
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(PartitionKill, ZeussForgetsKeep)
{
    {
        C_shm made("T_FORGET", 2, 10, false);
        made.keep(true);
    }
    {
        C_shm part;
        part.keep(true);
        part.Zeuss("T_FORGET");
    }
    EXPECT_EQ(segments_in_namespace(), 0);
}

TEST_F(PartitionKill, KillRemovesAPartitionThatOthersUse)
{
    C_shm keeper("T_VICTIM", 2, 10, false);
    const int id = shmid_of(keeper), semid = semid_of(keeper);
    other_user other("T_VICTIM");
    child killer([] { const C_shm_kill kill("T_VICTIM"); });
    EXPECT_EQ(killer.wait(), 0);
    EXPECT_FALSE(segment_exists(id));
    EXPECT_FALSE(semaphore_set_exists(semid));
    captured_output captured;
    other.kill_now();
    EXPECT_THROW(keeper.deaccess(), SysError);
}

TEST_F(PartitionKill, KillRemovesWhatACrashLeftBehind)
{
    latch in;
    child crashed([&] {
        const C_shm part("T_CRASHED", 2, 10, false);
        in.open();
        pause();
    });
    in.wait();
    const int id = segment_at_key(32);
    crashed.kill_now();
    {
        const C_shm part("T_CRASHED");
        EXPECT_EQ(use_count_of(part), 2) << "the dead process is still counted";
    }
    EXPECT_TRUE(segment_exists(id));
    {
        const C_shm_kill kill("T_CRASHED");
    }
    EXPECT_FALSE(segment_exists(id));
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionKill, KillWithoutANameRemovesNothing)
{
    const C_shm part("T_STAYS", 1, 1, false);
    {
        const C_shm_kill none(nullptr);
    }
    EXPECT_TRUE(segment_exists(shmid_of(part)));
}

TEST_F(PartitionKill, KillSparesAPartitionThatGotANewUserMeanwhile)
{
    {
        C_shm made("T_LUCKY", 1, 1, false);
        made.keep(true);
    }
    const int id = segment_at_key(32);
    {
        C_shm_kill kill("T_LUCKY");
        kill.add_shmid_entry(id); // so that its release detaches
        live_segment(id, live_segment::WRITE).put_int32(AT_COUNT, 1);
    }
    EXPECT_TRUE(segment_exists(id));
    clear_ipc_namespace();
}

TEST_F(PartitionKill, KillTellsTheOtherHandlesOfTheProcess)
{
    C_shm_buffer part("T_OWN", 2, 10, false);
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    {
        const C_shm_kill kill("T_OWN");
    }
    EXPECT_FALSE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(part.getStat("name"), "0");
    EXPECT_EQ(part.get_buffer_addr(0), nullptr);
    EXPECT_THROW(part.get_buffer(BM_NO_WAIT, true), std::logic_error);
    EXPECT_THROW(part.gate(true), std::logic_error);
    EXPECT_TRUE(part.return_buffer(0)) << "true is failure";
}

} // namespace
