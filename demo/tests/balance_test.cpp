// The balance is read from the live segments, and it really tells when something is missing.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "balance.h"
#include "live_segment.h"

using namespace demo;

namespace {

partition_balance balance_of(const std::string& name, bool slots = false)
{
    return read_balance({{name, slots}}).at(0);
}

constexpr size_t FREE_HEAD = offsetof(C_shm_global, free);
constexpr size_t link_of(int i)
{
    return sizeof(C_shm_global) + static_cast<size_t>(i) * sizeof(C_shm_buf) + offsetof(C_shm_buf, link);
}

} // namespace

TEST(Balance, OfAFreshPartitionIsWhole)
{
    const C_shm_buffer part("B_DATA", 5, 100, false);
    const partition_balance seen = balance_of("B_DATA");
    EXPECT_EQ(seen.buffers, 5);
    EXPECT_EQ(seen.queued, 5);
    EXPECT_EQ(seen.countable, 5);
    EXPECT_TRUE(seen.whole());
}

TEST(Balance, IsNotWholeWhileABufferIsMissing)
{
    C_shm_buffer part("B_DATA", 5, 100, false);
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    const partition_balance seen = balance_of("B_DATA");
    EXPECT_EQ(seen.queued, 4);
    EXPECT_EQ(seen.countable, 4);
    EXPECT_FALSE(seen.whole());
    EXPECT_FALSE(part.return_buffer(0)) << "false is success";
    EXPECT_TRUE(balance_of("B_DATA").whole());
}

TEST(Balance, OfASlotPartitionLacksTheControlRecord)
{
    C_shm_buffer part("B_SLOTS", 5, 100, true);
    EXPECT_FALSE(balance_of("B_SLOTS", true).whole()) << "its buffer 0 must be out";
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    EXPECT_TRUE(balance_of("B_SLOTS", true).whole());
    ASSERT_NE(part.get_buffer(BM_NO_WAIT, true), nullptr);
    EXPECT_FALSE(balance_of("B_SLOTS", true).whole());
}

TEST(Balance, IsNotWholeWhenTheSemaphoreAloneIsShort)
{
    const C_shm_buffer part("B_DATA", 5, 100, false);
    ASSERT_TRUE(zrk4::test::change_semaphore(std::stoi(part.getStat("semglobal")), gbl_empty, -1));
    const partition_balance seen = balance_of("B_DATA");
    EXPECT_EQ(seen.queued, 5);
    EXPECT_EQ(seen.countable, 4);
    EXPECT_FALSE(seen.whole());
}

TEST(Balance, EndsAndIsNotWholeWithADamagedQueue)
{
    const C_shm_buffer part("B_DATA", 5, 100, false);
    zrk4::test::live_segment damaged(std::stoi(part.getStat("shmid")), zrk4::test::live_segment::WRITE);
    damaged.put_int32(link_of(2), 0);
    EXPECT_FALSE(balance_of("B_DATA").whole()) << "a circle";
    damaged.put_int32(link_of(2), 1'000'000);
    EXPECT_FALSE(balance_of("B_DATA").whole()) << "out of the segment";
    damaged.put_int32(FREE_HEAD, -1);
    EXPECT_EQ(balance_of("B_DATA").queued, 0);
}

TEST(Balance, OfAPartitionThatDoesNotExistIsNotWhole)
{
    EXPECT_FALSE(balance_of("B_NOWHERE").whole());
    EXPECT_FALSE(all_whole(read_balance({{"B_NOWHERE", false}})));
}

TEST(Balance, FindsNoOtherPartitionThanTheOneNamed)
{
    const C_shm_buffer part("B_DATA2", 5, 100, false);
    EXPECT_EQ(balance_of("B_DATA").shmid, -1);
    EXPECT_EQ(balance_of("B_DATA22").shmid, -1);
}

TEST(Balance, LeavesTheUseCountAlone)
{
    const C_shm_buffer part("B_DATA", 5, 100, false);
    balance_of("B_DATA");
    EXPECT_EQ(part.getStat("use_count"), "1");
}

TEST(Leftovers, AreNamedAndRemoved)
{
    auto part = std::make_unique<C_shm_buffer>("B_DATA", 5, 100, false);
    const int shmid = std::stoi(part->getStat("shmid")), semid = std::stoi(part->getStat("semglobal"));
    part->keep(true);
    part.reset();
    ASSERT_TRUE(zrk4::test::segment_exists(shmid));
    EXPECT_EQ(remove_leftovers({{"B_DATA", false}, {"B_NOWHERE", false}}), std::vector<std::string>{"B_DATA"});
    EXPECT_FALSE(zrk4::test::segment_exists(shmid));
    EXPECT_FALSE(zrk4::test::semaphore_set_exists(semid));
    EXPECT_TRUE(remove_leftovers({{"B_DATA", false}}).empty());
}
