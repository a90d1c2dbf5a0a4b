// What did not come back is found, buffer by buffer.
#include "capacity.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace soak;
using proof::stock_of;
using namespace zrk4::test;

namespace {

class SoakStock : public CleanNamespace {
  protected:
    C_shm_buffer part{"T_STOCK", 5, 64, true};
};

TEST_F(SoakStock, NothingIsMissingFromAFullPartition)
{
    const stock seen = stock_of("T_STOCK", false);
    EXPECT_EQ(seen.buffers, 5);
    EXPECT_TRUE(seen.out.empty());
    EXPECT_EQ(seen.uncounted(), 0);
}

TEST_F(SoakStock, ATakenBufferIsOutWithItsOwner)
{
    part.get_buffer(BM_NO_WAIT, true);
    part.get_buffer(BM_NO_WAIT, true);
    const stock seen = stock_of("T_STOCK", false);
    ASSERT_EQ(seen.out.size(), 2U);
    EXPECT_EQ(seen.out[1].number, 1);
    EXPECT_EQ(seen.out[1].owner, getpid());
    EXPECT_EQ(seen.uncounted(), 0);
}

TEST_F(SoakStock, TheControlRecordOfASlotPartitionDoesNotCount)
{
    part.get_buffer(BM_NO_WAIT, true);
    const stock seen = stock_of("T_STOCK", true);
    EXPECT_EQ(seen.buffers, 4);
    EXPECT_TRUE(seen.out.empty());
    EXPECT_EQ(seen.uncounted(), 0);
}

TEST_F(SoakStock, ACountThatIsShortIsUncounted)
{
    ASSERT_TRUE(change_semaphore(semid_of(part), 1, -1));
    EXPECT_EQ(stock_of("T_STOCK", false).uncounted(), 1);
}

TEST_F(SoakStock, ACircleInTheQueueEnds)
{
    live_segment damaged(shmid_of(part), live_segment::WRITE);
    damaged.put_int32(at_descriptor(1, IN_LINK), 0);
    EXPECT_EQ(stock_of("T_STOCK", false).out.size(), 3U);
}

TEST_F(SoakStock, EveryLostThingIsALineOfTheRecord)
{
    part.get_buffer(BM_NO_WAIT, true);
    ASSERT_TRUE(change_semaphore(semid_of(part), 1, -1));
    const std::string path = testing::TempDir() + "soak_stock." + std::to_string(getpid());
    soak::tell(record(path), {stock_of("T_STOCK", false)});
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    unlink(path.c_str());
    EXPECT_NE(text.str().find(" partition=T_STOCK buffers=5 free=4 countable=3\n"), std::string::npos);
    EXPECT_NE(text.str().find(" partition=T_STOCK buffer=0 owner=" + std::to_string(getpid())), std::string::npos);
    EXPECT_NE(text.str().find(" partition=T_STOCK count\n"), std::string::npos);
}

} // namespace
