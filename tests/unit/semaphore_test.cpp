// One operation on one semaphore: how often it asks the kernel, and what it makes of the answers.
#include "sem_change.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/sem.h>

#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"

using namespace zrk4::test;
using namespace zrk4::impl;

namespace {

class Semaphore : public CleanNamespace {
  protected:
    const int semid = semget(IPC_PRIVATE, 2, 0600);
    int32_t busy = 0;
    ~Semaphore() override { semctl(semid, 0, IPC_RMID); }
};

TEST_F(Semaphore, ChangesTheOneNamed)
{
    EXPECT_EQ(change_with_undo(semid, 1, 3, busy), sem_outcome::done);
    EXPECT_EQ(change_with_undo(semid, 1, -1, busy), sem_outcome::done);
    EXPECT_EQ(semaphore_value(semid, 0), 0);
    EXPECT_EQ(semaphore_value(semid, 1), 2);
    EXPECT_EQ(busy, 0);
}

TEST_F(Semaphore, FailureAtOnceKeepsItsReason)
{
    EXPECT_EQ(change_with_undo(semid, 2, 1, busy), sem_outcome::failed_at_once) << "no such semaphore";
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(busy, 0);
}

TEST_F(Semaphore, SignalAtOnceIsNotBusy)
{
    const fault signal = fault::fails("semop", EINTR);
    EXPECT_EQ(change_with_undo(semid, 1, 1, busy), sem_outcome::interrupted);
    EXPECT_EQ(busy, 0);
}

TEST_F(Semaphore, BusyOneIsTriedAgainAndCountedOnce)
{
    ASSERT_TRUE(change_semaphore(semid, 1, 1));
    const long before = calls_of("semop");
    const fault taken = fault::fails("semop", EAGAIN);
    EXPECT_EQ(change_with_undo(semid, 1, -1, busy), sem_outcome::done);
    EXPECT_EQ(taken.fired(), 1);
    EXPECT_EQ(calls_of("semop") - before, 2);
    EXPECT_EQ(busy, 1);
}

TEST_F(Semaphore, SetThatVanishesWhileItIsTriedAgainIsAFailedWait)
{
    const fault gone = fault::preceded(
        "semop", [&] { semctl(semid, 0, IPC_RMID); }, 2);
    EXPECT_EQ(change_with_undo(semid, 1, -1, busy), sem_outcome::failed_waiting);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(busy, 1);
}

TEST_F(Semaphore, SignalWhileItIsTriedAgainEndsTheWait)
{
    const long before = calls_of("semop");
    const fault signal = fault::fails("semop", EINTR, 2);
    EXPECT_EQ(change_with_undo(semid, 1, -1, busy), sem_outcome::interrupted);
    EXPECT_EQ(signal.fired(), 1);
    EXPECT_EQ(calls_of("semop") - before, 2);
    EXPECT_EQ(busy, 1);
}

TEST_F(Semaphore, WithoutUndoTheErrorIsTheResult)
{
    EXPECT_EQ(change_without_undo(semid, 1, 1, 0), 0);
    EXPECT_EQ(change_without_undo(semid, 1, -1, IPC_NOWAIT), 0);
    EXPECT_EQ(change_without_undo(semid, 1, -1, IPC_NOWAIT), EAGAIN);
    EXPECT_EQ(change_without_undo(semid, 2, 1, 0), EFBIG);
}

} // namespace
