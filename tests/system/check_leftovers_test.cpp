// Segments, sets and use counts that belong to nobody any more.
#include <string>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "../unit/check_findings.h"
#include "C_shm_buffer.h"
#include "child.h"
#include "clean_namespace.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

class CheckLeftovers : public CleanNamespace {
  protected:
    static lines found(const bm_check_request& request = quick()) { return lines_of(bm_check(request)); }
    static bm_check_request with_sets()
    {
        bm_check_request request = quick_repair();
        request.remove_orphan_sets = true;
        return request;
    }
    /// Runs `body` in a process that ends. @return its id.
    static pid_t gone_after(const std::function<void()>& body)
    {
        child maker(body);
        EXPECT_EQ(maker.wait(), 0);
        return maker.pid();
    }
    static std::string repaired(std::string line) { return line.replace(line.find("broken"), 6, "repaired"); }
};

TEST_F(CheckLeftovers, AnEmptyHostIsClean) { EXPECT_EQ(found(), lines{}); }

TEST_F(CheckLeftovers, ASegmentThatNeverBecameAPartitionGoes)
{
    shared<int> id;
    const pid_t maker = gone_after([&] { *id = shmget(32, 300 + 3 * 148, IPC_CREAT | 0666); });
    const std::string line = "9 broken  pid " + std::to_string(maker) + ": segment " + std::to_string(*id) +
                             " at key 32 is a partition that was never finished";
    EXPECT_EQ(found(), lines{line});
    EXPECT_EQ(found(quick_repair()), lines{repaired(line)});
    EXPECT_FALSE(segment_exists(*id));
}

TEST_F(CheckLeftovers, WithItGoesTheSetThatItNames)
{
    const pid_t maker = gone_after([] {
        const int id = shmget(40, 300 + 3 * 148, IPC_CREAT | 0666);
        live_segment begun(id, live_segment::WRITE);
        const int semid = semget(IPC_PRIVATE, 4, IPC_CREAT | 0666);
        unsigned short values[] = {1, 3, 0, 0};
        semctl(semid, 0, SETALL, values);
        begun.put_int32(AT_SEMID, semid);
        begun.put_int32(AT_LBUF, 100);
        begun.put_int32(AT_VERSION, 102);
    });
    EXPECT_EQ(found(quick_repair()),
              lines{"9 repaired  pid " + std::to_string(maker) + ": segment " + std::to_string(segment_at_key(40)) +
                    " at key 40 is a partition that was never finished"})
        << "";
    EXPECT_EQ(semaphore_sets_in_namespace(), 0);
}

TEST_F(CheckLeftovers, ASegmentWhoseMakerLivesStays)
{
    const int id = shmget(32, 300 + 3 * 148, IPC_CREAT | 0666);
    EXPECT_EQ(found(quick_repair()), lines{});
    EXPECT_TRUE(segment_exists(id));
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(CheckLeftovers, AStrangersSegmentStays)
{
    shared<int> id;
    gone_after([&] {
        *id = shmget(32, 1000, IPC_CREAT | 0666);
        live_segment strange(*id, live_segment::WRITE);
        for (size_t i = 0; i < 300; i += 4) strange.put_int32(i, 0x5A5A5A5A);
    });
    EXPECT_EQ(found(quick_repair()), lines{});
    EXPECT_TRUE(segment_exists(*id));
    shmctl(*id, IPC_RMID, nullptr);
}

TEST_F(CheckLeftovers, ASetThatNoPartitionNamesGoesOnRequest)
{
    shared<int> id;
    const pid_t maker = gone_after([&] {
        *id = semget(IPC_PRIVATE, 4 + 3, IPC_CREAT | 0666);
        unsigned short values[] = {1, 3, 0, 0, 1, 1, 1};
        semctl(*id, 0, SETALL, values);
    });
    const std::string line = "9 broken  pid " + std::to_string(maker) + ": semaphore set " + std::to_string(*id) +
                             " has 7 members like a partition's, and no partition names it";
    EXPECT_EQ(found(), lines{line});
    EXPECT_EQ(found(quick_repair()), lines{line}) << "it may be another program's";
    EXPECT_TRUE(semaphore_set_exists(*id));
    EXPECT_EQ(found(with_sets()), lines{repaired(line)});
    EXPECT_FALSE(semaphore_set_exists(*id));
}

TEST_F(CheckLeftovers, ASetThatWasNeverSetUpGoesOnRequest)
{
    shared<int> id;
    gone_after([&] { *id = semget(IPC_PRIVATE, 4, IPC_CREAT | 0666); });
    EXPECT_EQ(found(with_sets()), lines{"9 repaired : semaphore set " + std::to_string(*id) +
                                        " has 4 members like a partition's, and no partition names it"});
    EXPECT_FALSE(semaphore_set_exists(*id));
}

TEST_F(CheckLeftovers, SetsOfOtherMakesStay)
{
    const int keyed = semget(4711, 4, IPC_CREAT | 0666);
    const int small = semget(IPC_PRIVATE, 1, IPC_CREAT | 0666);
    shared<int> counter;
    gone_after([&] {
        *counter = semget(IPC_PRIVATE, 5, IPC_CREAT | 0666);
        unsigned short values[] = {9, 9, 9, 9, 9};
        semctl(*counter, 0, SETALL, values);
    });
    EXPECT_EQ(found(with_sets()), lines{});
    for (const int id : {keyed, small, *counter}) {
        EXPECT_TRUE(semaphore_set_exists(id));
        semctl(id, 0, IPC_RMID);
    }
}

TEST_F(CheckLeftovers, APartitionWithoutItsSetGoes)
{
    shared<int> id;
    const pid_t maker = gone_after([&] {
        C_shm_buffer part("T_HALF_GONE", 3, 100, false);
        part.keep(true);
        *id = shmid_of(part);
        semctl(semid_of(part), 0, IPC_RMID);
        _exit(testing::Test::HasFailure() ? 1 : 0); // as killed: no handle is released
    });
    const std::string line = "9 broken T_HALF_GONE pid " + std::to_string(maker) +
                             ": the semaphore set of the partition is gone, and nobody has it attached";
    EXPECT_EQ(found(), lines{line});
    EXPECT_EQ(found(quick_repair()), lines{repaired(line)});
    EXPECT_FALSE(segment_exists(*id));
}

TEST_F(CheckLeftovers, TheUseCountOfTheKilledIsForgotten)
{
    child user([&] {
        const C_shm_buffer part("T_USED", 3, 100, false);
        _exit(0);
    });
    EXPECT_EQ(user.wait(), 0);
    const std::string line = "7 broken T_USED: the use count is 1, and nobody has the partition attached";
    EXPECT_EQ(found(), lines{line});
    EXPECT_EQ(found(quick_repair()), lines{repaired(line)});
    EXPECT_EQ(found(), lines{});
    const C_shm_buffer last("T_USED"); // whose release removes it
}

TEST_F(CheckLeftovers, TheUseCountIsNotJudgedWhereSomebodyIsAttached)
{
    child user([&] {
        const C_shm_buffer part("T_USED", 3, 100, false);
        _exit(0);
    });
    EXPECT_EQ(user.wait(), 0);
    {
        const C_shm_buffer part("T_USED");
        EXPECT_EQ(found(quick_repair()), lines{});
        EXPECT_EQ(use_count_of(part), 2);
    }
    clear_ipc_namespace(); // counted as used for ever
}

TEST_F(CheckLeftovers, WhereNoSlotPartitionsAreTheirNamesAreTold)
{
    bm_check_request request = quick();
    request.clients = "T_CLIENTS";
    request.events = "T_EVENTS";
    request.data = {"T_DATA"};
    const bm_check_report report = bm_check(request);
    ASSERT_EQ(report.partitions.size(), 3U);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(report.partitions[i].name, (lines{"T_CLIENTS", "T_EVENTS", "T_DATA"})[i]);
        EXPECT_EQ(report.partitions[i].state, bm_check_state::missing);
    }
    EXPECT_TRUE(report.clean());
    EXPECT_FALSE(report.complete());
}

TEST_F(CheckLeftovers, AnotherExchangesSlotsAreNotTakenForDataBuffers)
{
    latch taken;
    child master([&] {
        C_shm_buffer slots("T_OTHER_SLOTS", 4, 400, true);
        slots.get_buffer(BM_NO_WAIT, true); // its control record
        slots.get_buffer(BM_NO_WAIT, true);
        taken.open();
        pause();
    });
    taken.wait();
    {
        const C_shm_buffer slots("T_OTHER_SLOTS");
        master.kill_now();
        const bm_check_report report = bm_check(quick_repair());
        EXPECT_EQ(lines_of(report), lines{});
        EXPECT_EQ(slots.getStat("freebuf"), "2");
        EXPECT_EQ(report.partitions.front().text,
                  "its owners were not judged: it looks like a slot partition of another exchange");
        bm_check_request named = quick_repair();
        named.data = {"T_OTHER_SLOTS"};
        EXPECT_EQ(found(named).size(), 2U) << "named, it is one of data";
        EXPECT_EQ(slots.getStat("freebuf"), "4");
    }
    clear_ipc_namespace();
}

} // namespace
