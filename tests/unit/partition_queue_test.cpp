// The queue of buffers, at every alignment and on records that a crash has left behind.
#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "C_shm_int.h"

namespace {

constexpr int NBUF = 6;

/// Control block and descriptors as in a segment, at an address of any alignment.
class BufferQueue : public testing::TestWithParam<int> {
  protected:
    BufferQueue()
    {
        // Exactly as large as needed: a step outside is seen by the address sanitizer.
        const size_t shift = static_cast<size_t>(GetParam());
        room_.resize(shift + sizeof(C_shm_global) + NBUF * sizeof(C_shm_buf));
        at_ = room_.data() + shift;
        global().nbuf = NBUF;
        std::strcpy(global().name, "QUEUE");
        queue().init();
        global().full.init();
        for (int i = 0; i < NBUF; ++i) {
            bufs()[i].status = 8; // foreign bits stay
            bufs()[i].link = 99;
        }
    }
    C_shm_global& global() { return *reinterpret_cast<C_shm_global*>(at_); }
    C_shm_BufferQ& queue() { return global().free; }
    C_shm_buf* bufs() { return reinterpret_cast<C_shm_buf*>(at_ + sizeof(C_shm_global)); }
    void link(int i)
    {
        queue().link(bufs(), i);
        bufs()[i].status |= BUF_QUEUED;
    }
    std::deque<int> content()
    {
        std::deque<int> found;
        for (int i = queue().head; i >= 0 && found.size() <= NBUF; i = bufs()[i].link) found.push_back(i);
        return found;
    }

  private:
    std::vector<char> room_;
    char* at_ = nullptr;
};

using list = std::deque<int>;

INSTANTIATE_TEST_SUITE_P(AtEveryAlignment, BufferQueue, testing::Range(0, 8));

TEST_P(BufferQueue, IsEmptyAfterInit)
{
    EXPECT_TRUE(queue().empty());
    EXPECT_EQ(+queue().head, -1);
    EXPECT_EQ(+queue().tail, -1);
    EXPECT_EQ(queue().length(bufs()), 0);
}

TEST_P(BufferQueue, GivesBuffersInTheOrderInWhichTheyCame)
{
    for (int i : {4, 0, 2}) link(i);
    EXPECT_FALSE(queue().empty());
    EXPECT_EQ(queue().length(bufs()), 3);
    EXPECT_EQ(content(), (list{4, 0, 2}));
    EXPECT_EQ(+queue().tail, 2);
    EXPECT_EQ(queue().remove(bufs()), 4);
    EXPECT_EQ(+bufs()[4].link, -1);
    EXPECT_EQ(queue().remove(bufs()), 0);
    EXPECT_EQ(queue().remove(bufs()), 2);
    EXPECT_TRUE(queue().empty());
    EXPECT_EQ(+queue().tail, -1);
}

TEST_P(BufferQueue, EmptyOneGivesMinusOneAndChangesNothing)
{
    EXPECT_EQ(queue().remove(bufs()), -1);
    EXPECT_EQ(+queue().head, -1);
    EXPECT_STREQ(global().name, "QUEUE");
}

TEST_P(BufferQueue, LinkAndRemovalOfTheHeadLeaveTheStatusToTheCaller)
{
    queue().link(bufs(), 1);
    EXPECT_EQ(+bufs()[1].status, 8);
    EXPECT_FALSE(bufs()[1].queued());
    bufs()[1].status = 9;
    EXPECT_TRUE(bufs()[1].queued());
    queue().remove(bufs());
    EXPECT_EQ(+bufs()[1].status, 9);
}

TEST_P(BufferQueue, BufferIsUnlinkedWhereverItStands)
{
    for (int gone : {3, 1, 5}) {
        queue().init();
        for (int i : {3, 1, 5}) link(i);
        queue().remove(bufs(), gone);
        list rest{3, 1, 5};
        rest.erase(std::find(rest.begin(), rest.end(), gone));
        EXPECT_EQ(content(), rest) << "without " << gone;
        EXPECT_EQ(+queue().tail, rest.back());
        EXPECT_EQ(+bufs()[gone].status, 8) << "bit 1 is cleared, the others stay";
        EXPECT_EQ(+bufs()[gone].link, -1);
    }
}

TEST_P(BufferQueue, LastOneUnlinkedLeavesItEmpty)
{
    link(2);
    queue().remove(bufs(), 2);
    EXPECT_EQ(+queue().head, -1);
    EXPECT_EQ(+queue().tail, -1);
}

TEST_P(BufferQueue, UnlinkingWhatIsNotInItChangesNothing)
{
    for (int i : {3, 1}) link(i);
    bufs()[0].status = 9;
    for (int absent : {0, -1, NBUF, 1 << 30}) queue().remove(bufs(), absent);
    EXPECT_EQ(content(), (list{3, 1}));
    EXPECT_EQ(+bufs()[0].status, 9);
    EXPECT_EQ(+bufs()[0].link, 99);
}

// Killed between "descriptor[tail].link = i" and "tail = i": without a look for the true end, buffer i would be lost.
TEST_P(BufferQueue, AppendFindsTheEndBehindATailThatLags)
{
    for (int i : {3, 1, 5}) link(i);
    queue().tail = 1;
    link(0);
    EXPECT_EQ(content(), (list{3, 1, 5, 0}));
    EXPECT_EQ(+queue().tail, 0);
}

// Killed between "head = i" and "tail = i": a literal append would write before the descriptors, into the name.
TEST_P(BufferQueue, AppendFindsTheEndWhenTheTailWasNeverSet)
{
    link(3);
    queue().tail = -1;
    link(1);
    EXPECT_EQ(content(), (list{3, 1}));
    EXPECT_EQ(+queue().tail, 1);
    EXPECT_STREQ(global().name, "QUEUE");
}

// Killed before "tail = 5"; then all before 5 are taken out, the lagging tail with them.
TEST_P(BufferQueue, AppendFindsTheEndWhenTheTailThatLagsWasTakenOut)
{
    for (int i : {3, 1, 5}) link(i);
    queue().tail = 1;
    EXPECT_EQ(queue().remove(bufs()), 3);
    EXPECT_EQ(queue().remove(bufs()), 1);
    link(0);
    EXPECT_EQ(content(), (list{5, 0}));
    EXPECT_EQ(+bufs()[1].link, -1) << "nothing hangs on what was taken out";
}

TEST_P(BufferQueue, AppendFindsTheEndWhenTheTailThatLagsWasUnlinked)
{
    for (int i : {3, 1, 5}) link(i);
    queue().tail = 1;
    queue().remove(bufs(), 1);
    link(0);
    EXPECT_EQ(content(), (list{3, 5, 0}));
    EXPECT_EQ(+bufs()[1].link, -1);
}

TEST_P(BufferQueue, CycleEndsEveryWalkAfterAsManyStepsAsThereAreBuffers)
{
    for (int i : {3, 1, 5}) link(i);
    bufs()[5].link = 3;
    EXPECT_EQ(queue().length(bufs()), NBUF);
    queue().remove(bufs(), 0); // returns
    queue().link(bufs(), 2);   // returns
    EXPECT_EQ(+bufs()[2].link, -1);
}

TEST_P(BufferQueue, WildIndexIsNotFollowed)
{
    for (int wild : {NBUF, 1 << 30, -7}) {
        queue().init();
        for (int i : {3, 1}) link(i);
        bufs()[1].link = wild;
        EXPECT_EQ(queue().length(bufs()), 2);
        queue().remove(bufs(), 0);
        queue().tail = wild;
        link(4);
        EXPECT_EQ(+queue().tail, 4);
    }
}

TEST_P(BufferQueue, WildHeadGivesNoBuffer)
{
    queue().head = NBUF;
    EXPECT_EQ(queue().remove(bufs()), -1);
    EXPECT_EQ(queue().length(bufs()), 0);
    link(2);
    EXPECT_EQ(content(), (list{2}));
}

TEST_P(BufferQueue, BothQueuesOfASegmentAreBounded)
{
    global().full.link(bufs(), 1);
    bufs()[1].link = 1;
    EXPECT_EQ(global().full.length(bufs()), NBUF);
}

TEST_P(BufferQueue, BehavesAsAListUnderRandomOperations)
{
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    list expected;
    for (int step = 0; step < 2000; ++step) {
        const int i = static_cast<int>(random() % NBUF);
        const auto at = std::find(expected.begin(), expected.end(), i);
        if (random() % 4 == 0) {
            const int first = expected.empty() ? -1 : expected.front();
            if (!expected.empty()) expected.pop_front();
            ASSERT_EQ(queue().remove(bufs()), first);
        } else if (at == expected.end()) {
            expected.push_back(i);
            link(i);
        } else {
            expected.erase(at);
            queue().remove(bufs(), i);
        }
        ASSERT_EQ(content(), expected) << "step " << step;
        ASSERT_EQ(queue().length(bufs()), static_cast<int>(expected.size()));
        ASSERT_EQ(+queue().tail, expected.empty() ? -1 : expected.back());
    }
}

// A queue outside a segment has no count of descriptors beside it and works by its links alone.
TEST(BufferQueueAlone, WorksWithoutASegmentAroundIt)
{
    C_shm_buf bufs[3] = {};
    C_shm_BufferQ queue{};
    queue.init();
    for (int i : {2, 0, 1}) queue.link(bufs, i);
    EXPECT_EQ(queue.length(bufs), 3);
    queue.remove(bufs, 0);
    EXPECT_EQ(queue.remove(bufs), 2);
    EXPECT_EQ(queue.remove(bufs), 1);
    EXPECT_EQ(queue.remove(bufs), -1);
}

} // namespace
