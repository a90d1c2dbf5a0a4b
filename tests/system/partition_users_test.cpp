// One partition and several processes and threads that come and go.
#include <array>
#include <atomic>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "C_shm_kill.h"
#include "C_shm_mpool.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "fault.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionUsers : public CleanNamespace {};

TEST_F(PartitionUsers, LastOneToLeaveRemovesThePartitionWhoeverMadeIt)
{
    latch made, found, leave;
    child maker([&] {
        const C_shm part("T_SHARED", 2, 10, true);
        made.open();
        found.wait();
    });
    made.wait();
    child finder([&] {
        const C_shm part("T_SHARED");
        EXPECT_EQ(use_count_of(part), 2);
        found.open();
        leave.wait();
        EXPECT_EQ(part.getStat("freebuf"), "2");
    });
    EXPECT_EQ(maker.wait(), 0);
    EXPECT_EQ(segments_in_namespace(), 1);
    leave.open();
    EXPECT_EQ(finder.wait(), 0);
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionUsers, CrashedOneKeepsItAliveUntilItIsKilled)
{
    latch in;
    child crashing([&] {
        const C_shm part("T_CRASH", 2, 10, true);
        in.open();
        pause();
    });
    in.wait();
    crashing.kill_now();
    for (int i = 0; i < 3; ++i) {
        const C_shm visitor("T_CRASH");
        EXPECT_EQ(visitor.valid(), 1);
        EXPECT_EQ(use_count_of(visitor), 2);
    }
    EXPECT_EQ(segments_in_namespace(), 1);
    {
        const C_shm_kill kill("T_CRASH");
    }
    EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
}

TEST_F(PartitionUsers, UserOfAPartitionThatWasMadeAnewFailsButLives)
{
    captured_output captured; // before the fork: the child has its own idea of standard output
    latch made, in, remade;
    child reader([&] {
        made.wait();
        C_shm_buffer part("T_ANEW");
        EXPECT_EQ(part.valid(), 1);
        in.open();
        remade.wait();
        EXPECT_THROW(part.gate(true), SysError);
        EXPECT_THROW(part.get_buffer(BM_NO_WAIT, true), SysError);
        EXPECT_NE(part.get_buffer_addr(0), nullptr) << "its mapping lasts as long as it does";
        part.get_buffer_addr(0)[0] = 'x';
        const C_shm fresh_id(segment_at_key(32));
        EXPECT_EQ(fresh_id.valid(), 1) << "the new one by its id";
    });
    {
        const C_shm part("T_ANEW", 2, 10, true);
        made.open();
        in.wait();
    }
    {
        const C_shm_kill kill("T_ANEW");
    }
    const C_shm anew("T_ANEW", 2, 10, true);
    remade.open();
    EXPECT_EQ(reader.wait(), 0);
    EXPECT_EQ(captured.out().rfind("throw C_shm::gate UP sem: 0 errno: 22 semid: ", 0), 0U);
    EXPECT_EQ(anew.getStat("freebuf"), "2");
    EXPECT_EQ(use_count_of(anew), 1);
}

void come_and_go(int turns)
{
    for (int i = 0; i < turns; ++i) {
        const C_shm by_name("T_BUSY");
        const C_shm by_id(shmid_of(by_name));
        const C_shm with_sizes("T_BUSY", 1, 1, false);
        ASSERT_EQ(by_name.valid() + by_id.valid() + with_sizes.valid(), 3);
    }
}

TEST_F(PartitionUsers, ProcessesComeAndGoAtOnce)
{
    const C_shm part("T_BUSY", 2, 10, false);
    {
        child a([] { come_and_go(300); }), b([] { come_and_go(300); }), c([] { come_and_go(300); });
        for (child* one : {&a, &b, &c}) EXPECT_EQ(one->wait(), 0);
    }
    EXPECT_EQ(use_count_of(part), 1);
    EXPECT_EQ(attachments(shmid_of(part)), 1);
    EXPECT_EQ(registered(shmid_of(part)), 1);
}

TEST_F(PartitionUsers, ThreadsComeAndGoAtOnce)
{
    C_shm part("T_BUSY", 2, 10, false);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) threads.emplace_back([] { come_and_go(200); });
    for (std::thread& one : threads) one.join();
    EXPECT_EQ(use_count_of(part), 1);
    EXPECT_EQ(attachments(shmid_of(part)), 1);
    EXPECT_EQ(registered(shmid_of(part)), 1);
    EXPECT_EQ(part.attaches("T_BUSY"), 1);
}

TEST_F(PartitionUsers, ThreadsMakeOnePartitionPerName)
{
    std::array<std::unique_ptr<C_shm>, 4> parts;
    std::vector<std::thread> threads;
    for (auto& part : parts) threads.emplace_back([&part] { part = std::make_unique<C_shm>("T_ONE", 2, 10, true); });
    for (std::thread& one : threads) one.join();
    EXPECT_EQ(segments_in_namespace(), 1) << "one of them made it, the others found it";
    for (const auto& part : parts) {
        EXPECT_EQ(part->valid(), 1);
        EXPECT_EQ(use_count_of(*part), 4);
    }
}

/// Buffers of a partition that this process does not have yet, made by another one that stays.
class PoolAndThreads : public CleanNamespace {
  protected:
    latch made_, leave_;
    child other_{[this] {
        const C_shm part("T_THEIRS", 4, 16, false);
        made_.open();
        leave_.wait();
    }};
};

TEST_F(PoolAndThreads, PartitionAttachedByManyAtOnceIsInThePoolOnce)
{
    made_.wait();
    {
        C_shm_mpool pool;
        const int mine = pool.add("T_MINE", 2, 8, false);
        const int theirs = segment_at_key(32);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int turn = 0; turn < 200; ++turn) {
                    ASSERT_NE(pool.get_buffer_address(turn % 4, theirs, /*attach=*/true), nullptr);
                    ASSERT_NE(pool.get_buffer_address(0, mine), nullptr);
                    int shmid = mine, bnum = -1;
                    if (pool.get_buffer_from_pool(BM_NO_WAIT, 8, &shmid, &bnum) == nullptr) continue;
                    ASSERT_FALSE(pool.return_buffer_in_pool(bnum, mine)) << "false is success";
                }
            });
        }
        for (std::thread& one : threads) one.join();
        EXPECT_EQ(use_count_of(*pool.find_by_id(theirs)), 2);
        EXPECT_EQ(registered(theirs), 1) << "the losers of the race left again";
        EXPECT_EQ(attachments(theirs), 2);
        EXPECT_EQ(pool.nbuf(), 6);
        EXPECT_EQ(pool.find_by_id(mine)->getStat("freebuf"), "2");
    }
    leave_.open();
    EXPECT_EQ(other_.wait(), 0);
}

bool sleeps(pid_t thread)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(stat), {}};
    const size_t state = line.rfind(") ");
    return state != std::string::npos && line[state + 2] == 'S';
}

// The second thread has seen that the pool lacks the partition and waits for the process's mutex, which the first one
// holds while it attaches: both come out with an object.
TEST_F(PoolAndThreads, SecondObjectOfARaceIsDropped)
{
    made_.wait();
    {
        C_shm_mpool pool;
        pool.add("T_MINE", 2, 8, false);
        const int theirs = segment_at_key(32);
        std::atomic<pid_t> second_id{0};
        latch first_attaches;
        std::thread second([&] {
            first_attaches.wait();
            second_id = gettid();
            EXPECT_FALSE(pool.add(theirs)) << "false is success";
        });
        const fault meeting = fault::preceded("shmat", [&] {
            first_attaches.open();
            EXPECT_TRUE(eventually([&] { return second_id != 0 && sleeps(second_id); }));
        });
        EXPECT_FALSE(pool.add(theirs)) << "false is success";
        second.join();
        EXPECT_EQ(meeting.fired(), 1);
        EXPECT_EQ(use_count_of(*pool.find_by_id(theirs)), 2) << "the other process and one object";
        EXPECT_EQ(pool.nbuf(), 6);
    }
    leave_.open();
    EXPECT_EQ(other_.wait(), 0);
}

} // namespace
