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
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "partition_user.h"

using namespace zrk4::test;

namespace {

static_assert(!std::is_copy_constructible_v<C_shm>, "a copy is made from an lvalue that may change");
static_assert(std::is_constructible_v<C_shm, C_shm&>);
static_assert(!std::has_virtual_destructor_v<C_shm> && !std::is_polymorphic_v<C_shm_buffer>);

class PartitionHandle : public CleanNamespace {};

struct chain : C_shm {
    static const C_shm* newest() { return base; }
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
        EXPECT_EQ(made.attaches(id), 1);
        EXPECT_EQ(chain::newest(), &made) << "no half-made handle on it";
        EXPECT_EQ(attachments(id), 1);
    }
    captured_output captured;
    EXPECT_THROW(C_shm("T_BROKEN"), SysError);
    EXPECT_EQ(attachments(id), 0);
    const C_shm next("T_NEXT", 1, 1, false); // stops here for ever if the process's mutex is still held
    EXPECT_EQ(next.valid(), 1);
    clear_ipc_namespace();
}

} // namespace
