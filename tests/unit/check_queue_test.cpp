// Queues, flags and the count of free buffers: what is broken by hand is told in words, and comes back.
#include "buffer_host.h"
#include "check_findings.h"

namespace zrk4::test {
namespace {

class CheckQueue : public Buffer {
  protected:
    static constexpr char NAME[] = "T_BUFFERS";

    lines found(const bm_check_request& request = quick()) const { return lines_of(bm_check_partition(NAME, request)); }
    void put(int i, descriptor_offset field, int32_t value) { raw.put_int32(at_descriptor(i, field), value); }
    /// Broken in one way: told, mended, and whole again with every buffer in the queue.
    void expect_mended(const lines& broken)
    {
        EXPECT_EQ(found(), broken);
        lines repaired = broken;
        for (std::string& line : repaired) line.replace(line.find("broken"), 6, "repaired");
        EXPECT_EQ(found(quick_repair()), repaired);
        EXPECT_EQ(found(), lines{});
    }
    void link_by_hand(int head, int tail, numbers links)
    {
        raw.put_int32(AT_FREE, head);
        raw.put_int32(AT_FREE + 4, tail);
        for (int i = 0; i < 3; ++i) put(i, IN_LINK, links[static_cast<size_t>(i)]);
    }
};

TEST_F(CheckQueue, FindsNothingInAFreshPartition) { EXPECT_EQ(found(), lines{}); }

TEST_F(CheckQueue, FindsNothingWhereBuffersAreHeld)
{
    take();
    take();
    EXPECT_EQ(found(), lines{});
    EXPECT_EQ(found(quick_repair()), lines{});
    EXPECT_EQ(free_ones(), numbers{2});
    for (const int i : {0, 1}) part.return_buffer(i);
}

TEST_F(CheckQueue, ANewTailOfAnEmptyQueueIsNothing)
{
    for (int i = 0; i < 3; ++i) take();
    raw.put_int32(AT_FREE + 4, 2);
    EXPECT_EQ(found(), lines{});
    for (const int i : {0, 1, 2}) part.return_buffer(i);
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, ATailThatLagsBehindIsSetToTheLastBuffer)
{
    raw.put_int32(AT_FREE + 4, 1);
    expect_mended({"1 broken T_BUFFERS[2]: the free queue ends at buffer 2, its tail is 1"});
    EXPECT_EQ(raw.int32(AT_FREE + 4), 2);
}

TEST_F(CheckQueue, ACycleIsCutAndNothingIsLost)
{
    link_by_hand(0, 2, {1, 0, -1});
    expect_mended({"1 broken T_BUFFERS[1]: the free queue leads from 1 to buffer 0 a second time",
                   "2 broken T_BUFFERS[2]: buffer 2 is flagged queued and in no queue"});
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, ALinkToNowhereIsCut)
{
    put(0, IN_LINK, 99);
    expect_mended({"1 broken T_BUFFERS[0]: the free queue leads from 0 to buffer 99, which does not exist",
                   "2 broken T_BUFFERS[1]: buffer 1 is flagged queued and in no queue",
                   "2 broken T_BUFFERS[2]: buffer 2 is flagged queued and in no queue"});
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, AHeadThatDoesNotExistIsReplaced)
{
    raw.put_int32(AT_FREE, 3);
    EXPECT_EQ(found().front(), "1 broken T_BUFFERS: the free queue begins at buffer 3, which does not exist");
    EXPECT_EQ(found(quick_repair()).size(), 4U);
    EXPECT_EQ(found(), lines{});
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, AFullQueueThatEntersTheFreeOneIsCut)
{
    raw.put_int32(AT_FULL, 1);
    raw.put_int32(AT_FULL + 4, 2);
    expect_mended({"1 broken T_BUFFERS: the full queue begins at buffer 1, which is in the other queue"});
    EXPECT_EQ(raw.int32(AT_FULL), -1);
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, AQueuedBufferWithoutItsFlagGetsIt)
{
    put(1, IN_STATUS, 0);
    expect_mended({"2 broken T_BUFFERS[1]: buffer 1 is in the free queue and not flagged queued"});
    EXPECT_EQ(free_ones(), (numbers{0, 1, 2}));
}

TEST_F(CheckQueue, ABufferFlaggedAndNotAppendedIsAppendedAndCounted)
{
    take();
    put(0, IN_STATUS, 1); // as by somebody who was killed while returning it
    EXPECT_EQ(found(), (lines{"2 broken T_BUFFERS[0] pid " + std::to_string(getpid()) +
                              ": buffer 0 is flagged queued and in no queue"}));
    EXPECT_EQ(found(quick_repair()),
              (lines{"2 repaired T_BUFFERS[0] pid " + std::to_string(getpid()) +
                         ": buffer 0 is flagged queued and in no queue",
                     "3 repaired T_BUFFERS: the count of free buffers is 2, the free queue has 3"}));
    EXPECT_EQ(found(), lines{});
    EXPECT_EQ(free_ones(), (numbers{1, 2, 0}));
}

TEST_F(CheckQueue, ACountThatIsShortIsRaised)
{
    ASSERT_TRUE(change_semaphore(semid, EMPTY, -2));
    expect_mended({"3 broken T_BUFFERS: the count of free buffers is 1, the free queue has 3"});
    EXPECT_EQ(value(EMPTY), 3);
}

TEST_F(CheckQueue, ACountThatIsTooHighIsLowered)
{
    ASSERT_TRUE(change_semaphore(semid, EMPTY, 4));
    expect_mended({"3 broken T_BUFFERS: the count of free buffers is 7, the free queue has 3"});
    EXPECT_EQ(value(EMPTY), 3);
}

TEST_F(CheckQueue, IsNoUserOfThePartition)
{
    const int users = use_count_of(part);
    found(quick_repair());
    EXPECT_EQ(use_count_of(part), users);
    EXPECT_EQ(attachments(shmid), 2) << "the case's own handle and look";
}

TEST_F(CheckQueue, LeavesAPartitionThatNobodyUses)
{
    part.keep(true);
    part.release();
    EXPECT_EQ(found(quick_repair()), lines{});
    EXPECT_TRUE(segment_exists(shmid));
    remove_set();
}

namespace {

void expect_not_looked_at(const bm_check_report& report, bm_check_state why, const std::string& text)
{
    EXPECT_TRUE(report.clean());
    ASSERT_EQ(report.partitions.size(), 1U);
    EXPECT_EQ(report.partitions[0].state, why);
    EXPECT_EQ(report.partitions[0].text, text);
}

} // namespace

TEST(CheckPartition, ThatIsNotThereIsAnAnswer)
{
    const bm_check_report report = bm_check_partition("T_NONE", quick());
    expect_not_looked_at(report, bm_check_state::missing, "there is no partition of this name");
    EXPECT_FALSE(report.complete());
}

TEST_F(CheckQueue, OfAnotherVersionIsAnAnswer)
{
    raw.put_int32(AT_VERSION, 101);
    const bm_check_report report = bm_check_partition(NAME, quick());
    raw.put_int32(AT_VERSION, 102);
    expect_not_looked_at(report, bm_check_state::other_version, "its layout version is 101, not 102");
}

TEST_F(CheckQueue, LongerThanItsSegmentIsAnAnswer)
{
    raw.put_int32(AT_NBUF, 1000000);
    const bm_check_report report = bm_check_partition(NAME, quick());
    raw.put_int32(AT_NBUF, 3);
    expect_not_looked_at(report, bm_check_state::damaged, "1000000 buffers of 100 bytes do not fit into its segment");
}

} // namespace
} // namespace zrk4::test
