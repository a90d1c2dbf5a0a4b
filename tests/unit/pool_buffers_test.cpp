// Taking buffers from a set of partitions and giving them back.
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/sem.h>

#include "C_shm_kill.h"
#include "C_shm_mpool.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PoolBuffers : public CleanNamespace {
  protected:
    C_shm_mpool pool;
    const int small = pool.add("T_SMALL", 2, 1000, false);
    const int first = pool.add("T_FIRST", 2, 4000, false);
    const int second = pool.add("T_SECOND", 1, 4000, false);

    struct taken {
        char* addr;
        int shmid;
        int bnum;
    };
    /// From any partition.
    taken take(int size, int flags = BM_NO_WAIT)
    {
        taken t{nullptr, 0, -7};
        t.addr = pool.get_buffer_from_pool(flags, size, &t.shmid, &t.bnum);
        return t;
    }
    std::string free_in(int id) { return pool.find_by_id(id)->getStat("freebuf"); }
};

TEST_F(PoolBuffers, SmallestFittingPartitionGivesFirstThenThoseOfEqualLengthInOrder)
{
    const std::vector<std::pair<int, int>> expected{{first, 0}, {first, 1}, {second, 0}};
    for (const auto& [shmid, bnum] : expected) {
        const taken t = take(2000);
        ASSERT_NE(t.addr, nullptr);
        EXPECT_EQ(t.shmid, shmid);
        EXPECT_EQ(t.bnum, bnum);
        EXPECT_EQ(t.addr, pool.get_buffer_address(bnum, shmid));
    }
    const taken none = take(2000);
    EXPECT_EQ(none.addr, nullptr);
    EXPECT_EQ(none.shmid, 0) << "unchanged";
    EXPECT_EQ(none.bnum, -7) << "unchanged";
    EXPECT_EQ(free_in(small), "2");
}

TEST_F(PoolBuffers, BusyPartitionIsSkippedForALargerOne)
{
    EXPECT_EQ(take(1000).shmid, small);
    EXPECT_EQ(take(0).shmid, small);
    EXPECT_EQ(take(1).shmid, first);
}

TEST_F(PoolBuffers, SizeMustFit)
{
    EXPECT_EQ(take(4000).shmid, first);
    EXPECT_EQ(take(4001).addr, nullptr);
    EXPECT_EQ(take(5000).addr, nullptr);
    EXPECT_EQ(take(-1).addr, nullptr);
    EXPECT_EQ(take(1001).shmid, first);
}

TEST_F(PoolBuffers, GivenPartitionIsTheOnlyOneAsked)
{
    int shmid = second;
    int bnum = -7;
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 10, &shmid, &bnum), pool.get_buffer_address(0, second));
    EXPECT_EQ(shmid, second);
    EXPECT_EQ(bnum, 0);
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 10, &shmid, &bnum), nullptr) << "it has no more";
    EXPECT_EQ(free_in(first), "2");
}

TEST_F(PoolBuffers, GivenPartitionMustExistAndFit)
{
    int shmid = small;
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 1001, &shmid, nullptr), nullptr);
    EXPECT_NE(pool.get_buffer_from_pool(BM_NO_WAIT, 1000, &shmid, nullptr), nullptr);
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, -1, &shmid, nullptr), nullptr);
    int absent = 4711;
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 1, &absent, nullptr), nullptr);
    EXPECT_EQ(absent, 4711);
}

TEST_F(PoolBuffers, IdNotAboveZeroMeansAnyAndIsFilledIn)
{
    for (const int any : {0, -1, -4711}) {
        int shmid = any;
        EXPECT_NE(pool.get_buffer_from_pool(BM_NO_WAIT, 3000, &shmid, nullptr), nullptr);
        EXPECT_TRUE(shmid == first || shmid == second);
    }
}

TEST_F(PoolBuffers, ResultsAreOptional)
{
    EXPECT_NE(pool.get_buffer_from_pool(BM_NO_WAIT, 1, nullptr, nullptr), nullptr);
    int bnum = -7;
    EXPECT_NE(pool.get_buffer_from_pool(BM_NO_WAIT, 1, nullptr, &bnum), nullptr);
    EXPECT_EQ(bnum, 1);
}

TEST_F(PoolBuffers, TakenOnesAreNobodysCurrent)
{
    take(1000);
    EXPECT_TRUE(pool.find_by_id(small)->return_buffer()) << "true is failure: none";
}

TEST_F(PoolBuffers, ErrorsOfASemaphorePassThrough)
{
    captured_output captured;
    const fault broken = fault::fails("semop", EFBIG);
    EXPECT_THROW(pool.get_buffer_from_pool(BM_NO_WAIT, 1, nullptr, nullptr), SysError);
    EXPECT_EQ(captured.out(), "139_C_shm_buffer::get_buffer() errno:27 before SysErrot()\n");
}

TEST_F(PoolBuffers, PartitionThatLostItsAccessIsALogicErrorForAnyAndNullForALengthItNoLongerHas)
{
    {
        const C_shm_kill kill("T_SMALL");
    }
    EXPECT_THROW(pool.get_buffer_from_pool(BM_NO_WAIT, 1, nullptr, nullptr), std::logic_error);
    int shmid = small;
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 1, &shmid, nullptr), nullptr) << "its length reads 0 now";
}

// The first object is in the length index alone now, and nobody else destroys it.
TEST_F(PoolBuffers, ReplacedObjectStillGivesBuffers)
{
    const std::unique_ptr<C_shm_buffer> old(pool.find_by_id(small));
    pool.add("T_SMALL", 2, 1000, false);
    const taken t = take(1000);
    EXPECT_EQ(t.shmid, small);
    EXPECT_EQ(t.addr, old->get_buffer_addr(0));
    EXPECT_EQ(take(1000).bnum, 1);
    EXPECT_EQ(take(1000).shmid, first) << "both objects are one partition";
}

TEST_F(PoolBuffers, AddressTellsPartitionAndNumber)
{
    int shmid = -7;
    EXPECT_EQ(pool.get_buffer_id_from_pool(pool.get_buffer_address(1, first), &shmid), 1);
    EXPECT_EQ(shmid, first);
    EXPECT_EQ(pool.get_buffer_id_from_pool(pool.get_buffer_address(0, second), nullptr), 0);
    shmid = -7;
    EXPECT_EQ(pool.get_buffer_id_from_pool(pool.get_buffer_address(0, second) + 1, &shmid), -1);
    EXPECT_EQ(shmid, -7);
}

TEST_F(PoolBuffers, ReturnByAddressFindsThePartition)
{
    char* const addr = take(2000).addr;
    EXPECT_FALSE(pool.return_buffer_in_pool(addr)) << "false is success";
    EXPECT_EQ(free_in(first), "2");
    EXPECT_FALSE(pool.return_buffer_in_pool(addr)) << "false for every buffer, also a free one";
    EXPECT_TRUE(pool.return_buffer_in_pool(addr + 1)) << "true is failure";
    EXPECT_TRUE(pool.return_buffer_in_pool(static_cast<char*>(nullptr)));
    EXPECT_EQ(free_in(first), "2");
}

TEST_F(PoolBuffers, ReturnByAddressToAGivenPartition)
{
    char* const addr = take(2000).addr;
    EXPECT_TRUE(pool.return_buffer_in_pool(addr, second)) << "true is failure: not its buffer";
    EXPECT_TRUE(pool.return_buffer_in_pool(addr, 4711));
    EXPECT_TRUE(pool.return_buffer_in_pool(addr, 0));
    EXPECT_TRUE(pool.return_buffer_in_pool(addr, -1));
    EXPECT_EQ(free_in(first), "1");
    EXPECT_FALSE(pool.return_buffer_in_pool(addr, first)) << "false is success";
    EXPECT_EQ(free_in(first), "2");
    EXPECT_FALSE(pool.return_buffer_in_pool(addr, first)) << "false, though it was free already";
}

TEST_F(PoolBuffers, ReturnByNumber)
{
    const taken t = take(2000);
    EXPECT_TRUE(pool.return_buffer_in_pool(t.bnum, 0)) << "refused, although 0 can be an id";
    EXPECT_TRUE(pool.return_buffer_in_pool(t.bnum, -1));
    EXPECT_TRUE(pool.return_buffer_in_pool(-1, first));
    EXPECT_TRUE(pool.return_buffer_in_pool(2, first));
    EXPECT_TRUE(pool.return_buffer_in_pool(t.bnum, 4711));
    EXPECT_EQ(free_in(first), "1");
    EXPECT_FALSE(pool.return_buffer_in_pool(t.bnum, first)) << "false is success";
    EXPECT_EQ(free_in(first), "2");
    EXPECT_TRUE(pool.return_buffer_in_pool(t.bnum, first)) << "true is failure: it is free";
}

} // namespace
