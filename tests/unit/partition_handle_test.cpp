// A handle's life: construction, access, release, removal.
#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "C_shm_kill.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

static_assert(!std::is_copy_constructible_v<C_shm>, "a copy is made from an lvalue that may change");
static_assert(std::is_constructible_v<C_shm, C_shm&>);
static_assert(!std::has_virtual_destructor_v<C_shm> && !std::is_polymorphic_v<C_shm_buffer>);

class PartitionHandle : public CleanNamespace {};

/// Another process with access to the partition, until it is told to leave or dies.
class other_user {
  public:
    explicit other_user(const char* name)
        : process_([this, name] {
              const C_shm part(name);
              EXPECT_EQ(part.valid(), 1);
              in_.open();
              leave_.wait();
          })
    {
        in_.wait();
    }
    void leave()
    {
        leave_.open();
        EXPECT_EQ(process_.wait(), 0);
    }
    void kill_now() { process_.kill_now(); }

  private:
    latch in_, leave_;
    child process_;
};

TEST_F(PartitionHandle, DefaultOneIsDetached)
{
    const C_shm part;
    EXPECT_FALSE(part.found());
    EXPECT_EQ(part.valid(), 0);
    EXPECT_STREQ(part.Error(), "Partition not attached");
    EXPECT_EQ(part.getLockCount(), 0);
    EXPECT_EQ(part.getBufferCount(), 0);
    EXPECT_EQ(part.getBufferLength(), 0);
}

TEST_F(PartitionHandle, FailedSearchLeavesNoError)
{
    const C_shm by_name("T_ABSENT");
    EXPECT_STREQ(by_name.Error(), "No error");
    EXPECT_FALSE(by_name.found());
    captured_output captured;
    const C_shm by_id(4711);
    EXPECT_STREQ(by_id.Error(), "No error");
    EXPECT_FALSE(by_id.found());
}

TEST_F(PartitionHandle, ErrorsHaveTheirTexts)
{
    struct with_error : C_shm {
        const char* text(int code)
        {
            shm_error = static_cast<C_shm_error>(code);
            return Error();
        }
    } part;
    const char* const texts[] = {"No error",
                                 "Partition not attached",
                                 "Existing partition is incompatible with request",
                                 "Semaphore doesn't exist",
                                 "No free partition IDs are available",
                                 "Unable to attach partition",
                                 "Unable to create a new partition",
                                 "Unable to create a new semaphore",
                                 "No Priviledge for attempted operation",
                                 "Incompatible version number"};
    for (int code = 0; code < 10; ++code) EXPECT_STREQ(part.text(code), texts[code]) << "code " << code;
    EXPECT_STREQ(part.text(10), "Unidentifier error");
    EXPECT_STREQ(part.text(-1), "Unidentifier error");
}

TEST_F(PartitionHandle, MadeOneHasAccessAndARegistryEntry)
{
    const C_shm part("T_MADE", 3, 10, /*sems=*/true);
    EXPECT_EQ(part.valid(), 1);
    EXPECT_TRUE(part.found());
    EXPECT_STREQ(part.Error(), "No error");
    EXPECT_EQ(part.getBufferCount(), 3);
    EXPECT_EQ(part.getBufferLength(), 10);
    EXPECT_EQ(use_count_of(part), 1);
    EXPECT_EQ(registered(shmid_of(part)), 1);
}

TEST_F(PartitionHandle, ThreeArgumentFormMakesNoBufferLocks)
{
    const C_shm part("T_THREE", 2, 10);
    EXPECT_EQ(part.valid(), 1);
    EXPECT_EQ(semaphores_in_set(semid_of(part)), 4);
}

TEST_F(PartitionHandle, TwoOfOneProcessShareOneMapping)
{
    auto first = std::make_unique<C_shm>("T_TWICE", 2, 10, false);
    const int id = shmid_of(*first);
    auto second = std::make_unique<C_shm>("T_TWICE");
    EXPECT_EQ(attachments(id), 1);
    EXPECT_EQ(registered(id), 2);
    EXPECT_EQ(use_count_of(*second), 2);
    first.reset();
    EXPECT_EQ(attachments(id), 1) << "the second one still uses it";
    EXPECT_EQ(registered(id), 1);
    EXPECT_EQ(second->getStat("freebuf"), "2");
    second.reset();
    EXPECT_FALSE(segment_exists(id)) << "the last user removes it";
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionHandle, LastOneOfAProcessDetachesWhileOthersUseThePartition)
{
    auto part = std::make_unique<C_shm>("T_OTHERS", 2, 10, false);
    const int id = shmid_of(*part);
    other_user other("T_OTHERS");
    EXPECT_EQ(use_count_of(*part), 2);
    EXPECT_EQ(attachments(id), 2);
    part.reset();
    EXPECT_TRUE(segment_exists(id));
    EXPECT_EQ(attachments(id), 1);
    EXPECT_EQ(registered(id), 0);
    other.leave();
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionHandle, KeptOneNeverRemovesThePartition)
{
    int id = -1;
    {
        C_shm part("T_KEPT", 1, 1, false);
        id = shmid_of(part);
        part.keep(true);
    }
    EXPECT_TRUE(segment_exists(id));
    EXPECT_EQ(attachments(id), 0);
    {
        C_shm again("T_KEPT");
        EXPECT_EQ(shmid_of(again), id);
        again.keep(true);
        again.keep(false);
    }
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionHandle, AccessIsGainedOnceAndOnlyWhenAttached)
{
    C_shm part;
    EXPECT_FALSE(part.access());
    ASSERT_FALSE(part.make("T_ACCESS", 2, 10));
    EXPECT_TRUE(part.access());
    EXPECT_FALSE(part.access()) << "has it already";
    EXPECT_EQ(use_count_of(part), 1);
    part.deaccess();
    EXPECT_EQ(use_count_of(part), 0);
    EXPECT_EQ(part.valid(), 0);
    EXPECT_TRUE(part.found());
    part.deaccess();
    EXPECT_EQ(use_count_of(part), 0) << "nothing to give up";
    EXPECT_TRUE(part.access());
}

TEST_F(PartitionHandle, AccessAndItsEndTryAgainAfterASignal)
{
    C_shm part;
    ASSERT_FALSE(part.make("T_SIGNALS", 2, 10));
    {
        const fault signal = fault::fails("semop", EINTR, 1, 2);
        EXPECT_TRUE(part.access());
        EXPECT_EQ(signal.fired(), 2);
    }
    const fault signal = fault::fails("semop", EINTR, 1, 2);
    part.deaccess();
    EXPECT_EQ(signal.fired(), 2);
    EXPECT_EQ(use_count_of(part), 0);
    EXPECT_EQ(semaphore_value(semid_of(part), 0), 1);
}

TEST_F(PartitionHandle, ReleaseOfADetachedOneDoesNothing)
{
    C_shm part;
    captured_output captured;
    part.release();
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_STREQ(part.Error(), "Partition not attached");
}

TEST_F(PartitionHandle, ReleasedOneAttachesAgain)
{
    C_shm part("T_AGAIN", 1, 1, false);
    other_user other("T_AGAIN");
    part.release();
    EXPECT_FALSE(part.found());
    EXPECT_EQ(part.getStat("name"), "0");
    EXPECT_FALSE(part.find("T_AGAIN")) << "false is success";
    EXPECT_TRUE(part.access());
    part.add_shmid_entry(shmid_of(part));
    other.leave();
}

TEST_F(PartitionHandle, RemovalLeavesTheRegistryEntry)
{
    int id = -1;
    {
        const C_shm part("T_STALE", 1, 1, false);
        id = shmid_of(part);
    }
    EXPECT_FALSE(segment_exists(id));
    EXPECT_EQ(registered(id), 1) << "nobody asks for this id again";
}

TEST_F(PartitionHandle, LargerPartitionIsTakenAsItIs)
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

TEST_F(PartitionHandle, TooSmallPartitionWithoutUsersIsRefusedAndRemoved)
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
TEST_F(PartitionHandle, TooSmallPartitionWithUsersStaysAndStaysMapped)
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

TEST_F(PartitionHandle, TooSmallOneTakesTheCountOfAnotherButNotItsMapping)
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

TEST_F(PartitionHandle, OtherVersionWithoutUsersIsRefusedAndRemoved)
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

TEST_F(PartitionHandle, OtherVersionWithUsersIsRefusedAndStays)
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
TEST_F(PartitionHandle, ById_SegmentThatIsNoPartitionIsRemoved)
{
    const int id = shmget(IPC_PRIVATE, 4096, 0600);
    const C_shm part(id);
    EXPECT_STREQ(part.Error(), "Incompatible version number");
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionHandle, FailedMakeLeavesARegistryEntryAndNoRelease)
{
    const int before = registered(-1);
    captured_output captured;
    const C_shm part("T_NONE", -1, 1, false);
    EXPECT_STREQ(part.Error(), "Unable to create a new partition");
    EXPECT_EQ(part.valid(), 0);
    EXPECT_EQ(registered(-1), before + 1) << "for the id that the handle had: none";
    EXPECT_EQ(captured.out(), "");
}

TEST_F(PartitionHandle, CopyIsOneMoreUserWithoutARegistryEntry)
{
    auto part = std::make_unique<C_shm_buffer>("T_COPIED", 2, 10, true);
    const int id = shmid_of(*part);
    {
        C_shm copy(static_cast<C_shm&>(*part));
        EXPECT_EQ(copy.valid(), 1);
        EXPECT_STREQ(copy.Error(), "No error");
        EXPECT_EQ(use_count_of(copy), 2);
        EXPECT_EQ(registered(id), 1);
        EXPECT_EQ(attachments(id), 1);
        EXPECT_EQ(copy.attaches(id), 2);
        EXPECT_EQ(copy.buffer_addr(1), part->buffer_addr(1));
        EXPECT_TRUE(copy.ctrl(1, true));
        EXPECT_TRUE(copy.ctrl(1, false));
    }
    EXPECT_EQ(registered(id), 0) << "the copy's release uses up the original's entry";
    EXPECT_EQ(attachments(id), 1) << "but not its mapping";
    EXPECT_NE(part->get_buffer(BM_NO_WAIT, false), nullptr);
    part.reset();
    EXPECT_FALSE(segment_exists(id));
}

TEST_F(PartitionHandle, CopyTakesTheCountOfBusyLocksButNotKeep)
{
    C_shm part("T_COUNTED", 2, 10, false);
    part.keep(true);
    {
        const fault busy = fault::fails("semop", EAGAIN);
        EXPECT_TRUE(part.gate(true));
        part.gate(false);
    }
    ASSERT_EQ(part.getLockCount(), 1);
    const int id = shmid_of(part);
    {
        C_shm copy(part);
        EXPECT_EQ(copy.getLockCount(), 1);
        part.deaccess();
    }
    EXPECT_FALSE(segment_exists(id)) << "the copy was the last user and does not keep";
    EXPECT_FALSE(part.found()) << "and the original knows that its partition is gone";
}

TEST_F(PartitionHandle, CopyOfADetachedOneIsDetached)
{
    C_shm none;
    const C_shm copy(none);
    EXPECT_FALSE(copy.found());
    EXPECT_STREQ(copy.Error(), "No error");
}

TEST_F(PartitionHandle, CopyThatGetsNoAccessIsNotOnTheChain)
{
    C_shm part("T_NO_COPY", 2, 10, false);
    const int id = shmid_of(part);
    live_segment raw(id, live_segment::WRITE);
    raw.put_int32(AT_VERSION, 1);
    {
        C_shm copy(part);
        EXPECT_EQ(copy.valid(), 0);
        EXPECT_STREQ(copy.Error(), "Incompatible version number");
        EXPECT_EQ(part.attaches(id), 1);
    }
    raw.put_int32(AT_VERSION, 102);
    EXPECT_EQ(part.getStat("freebuf"), "2");
}

TEST_F(PartitionHandle, DestructorSurvivesARemovedSemaphoreSet)
{
    captured_output captured;
    int id = -1;
    {
        const C_shm part("T_ROBBED", 2, 10, false);
        id = shmid_of(part);
        semctl(semid_of(part), 0, IPC_RMID);
    }
    EXPECT_NE(captured.out().find("throw C_shm::gate UP sem: 0 errno: 22"), std::string::npos);
    EXPECT_EQ(attachments(id), 0);
    EXPECT_TRUE(segment_exists(id)) << "its use count is not 0 any more";
    clear_ipc_namespace();
}

TEST_F(PartitionHandle, ConstructorThatThrowsLeavesNoLockNoHandleAndNoMapping)
{
    int id = -1;
    {
        C_shm made("T_BROKEN", 2, 10, false);
        id = shmid_of(made);
        semctl(semid_of(made), 0, IPC_RMID);
        captured_output captured;
        EXPECT_THROW(C_shm("T_BROKEN"), SysError);
        EXPECT_THROW(C_shm{id}, SysError);
        EXPECT_THROW(C_shm("T_BROKEN", 1, 1, false), SysError);
        EXPECT_THROW({ C_shm copy(made); }, SysError);
        EXPECT_EQ(made.attaches(id), 1) << "no half-made handle on the chain";
        EXPECT_EQ(attachments(id), 1);
    }
    captured_output captured;
    EXPECT_THROW(C_shm("T_BROKEN"), SysError);
    EXPECT_EQ(attachments(id), 0);
    const C_shm next("T_NEXT", 1, 1, false); // stops here for ever if the process's mutex is still held
    EXPECT_EQ(next.valid(), 1);
    clear_ipc_namespace();
}

TEST_F(PartitionHandle, ZeussZeroesTheUseCountAndAttachesWithoutAccess)
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

TEST_F(PartitionHandle, ZeussOnAnAttachedOneOnlySaysSo)
{
    C_shm part("T_HERE", 2, 10, false);
    captured_output captured;
    part.Zeuss("T_HERE");
    EXPECT_EQ(captured.err(), "Zeuss: Can't zero user count - partition is attached.\n");
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(use_count_of(part), 1);
}

TEST_F(PartitionHandle, ZeussOfAnUnknownNameDoesNothing)
{
    C_shm part;
    captured_output captured;
    part.Zeuss("T_ABSENT");
    EXPECT_FALSE(part.found());
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(PartitionHandle, ZeussForgetsKeep)
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

TEST_F(PartitionHandle, KillRemovesAPartitionThatOthersUse)
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

TEST_F(PartitionHandle, KillRemovesWhatACrashLeftBehind)
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

TEST_F(PartitionHandle, KillWithoutANameRemovesNothing)
{
    const C_shm part("T_STAYS", 1, 1, false);
    {
        const C_shm_kill none(nullptr);
    }
    EXPECT_TRUE(segment_exists(shmid_of(part)));
}

TEST_F(PartitionHandle, KillSparesAPartitionThatGotANewUserMeanwhile)
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

TEST_F(PartitionHandle, KillTellsTheOtherHandlesOfTheProcess)
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
