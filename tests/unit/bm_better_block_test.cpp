// A duplicate that has more channels than were counted a moment before takes the place of the block in the slot.
//
// Both counts are read from the incoming block, one after the other: only a writer that still works on it can make them
// differ. Between the two readings the library keeps a text, which allocates memory; there this program's allocation
// changes the count as that writer would.
#include <cstdlib>
#include <new>

#include "event_host.h"

namespace {

char* count_to_lower = nullptr; // by the next allocation

} // namespace

// None of them inline: the compiler would take malloc and delete, or new and free, for a mistaken pair.
__attribute__((noinline)) void* operator new(size_t bytes)
{
    if (count_to_lower != nullptr) zrk4::test::store<int32_t>(std::exchange(count_to_lower, nullptr), 1);
    if (void* at = std::malloc(bytes != 0 ? bytes : 1)) return at;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* at) noexcept { std::free(at); }
__attribute__((noinline)) void operator delete(void* at, size_t) noexcept { std::free(at); }

using namespace zrk4::test;

namespace {

class BmBetterBlock : public EventHost {
  protected:
    BmBetterBlock()
    {
        used_slot();
        slot(1).put(&slot_layout::nsblocks, 5);
    }
    int entered()
    {
        const int bnum = put({.server = "A", .nchan = 2});
        EXPECT_FALSE(bm.ev_update(TYPE, data_id, bnum));
        return bnum;
    }
    /// Offers block `bnum`, whose count falls from 3 to 1. @return what is printed behind the first two lines.
    std::string said_of_better(int bnum, int old_id)
    {
        char* count = block(bnum) + (wide() ? 296 : 280);
        store<int32_t>(count, 3);
        captured_output captured;
        count_to_lower = count;
        const bool refused = bm.ev_update(TYPE, data_id, bnum);
        EXPECT_EQ(count_to_lower, nullptr);
        EXPECT_TRUE(refused) << "a duplicate is a failure, also when it is taken";
        const std::string text = dates_marked(captured.out());
        const std::string counts = "DATE ev_update(): SB duplication A\n"
                                   "DATE ev_update(): SB duplication in ev slot channels:1  new channels; 3 shmid: " +
                                   std::to_string(old_id) + " (" + std::to_string(data_id) + ")\n" +
                                   "DATE ev_update(): SB duplication new SB is better ... substituting\n";
        EXPECT_EQ(text.substr(0, counts.size()), counts);
        return text.substr(std::min(counts.size(), text.size()));
    }
    std::string data_and(int bnum) const
    {
        return " id: " + std::to_string(data_id) + " bnum: " + std::to_string(bnum) + "\n";
    }
};
IN_BOTH_GENERATIONS(BmBetterBlock);

TEST_P(BmBetterBlock, TakesThePlaceOfTheOldOne)
{
    const int old = entered();
    const int better = put({.server = "A", .ltotal = 5000});
    EXPECT_EQ(said_of_better(better, data_id), "DATE ev_update(): BM FREED (OLD)" + data_and(old));
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, better}}));
    EXPECT_TRUE(block_is_free(old));
    EXPECT_FALSE(block_is_free(better));
    EXPECT_EQ(slot(1).evsize(), 400) << "the totals stay";
}

TEST_P(BmBetterBlock, TakesThePlaceOfAPlaceholder)
{
    slot(1).add_entry("A", 0, -1);
    const int better = put({.server = "A"});
    EXPECT_EQ(said_of_better(better, 0), "SYSERROR: 22\nDATE ev_update(): failed to free id: 0 bnum: -1\n");
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, better}}));
}

TEST_P(BmBetterBlock, TakesThePlaceOfOneThatIsFreeAlready)
{
    const int old = entered();
    const int better = put({.server = "A"});
    ASSERT_FALSE(bm.return_buffer_in_pool(old, data_id));
    EXPECT_EQ(said_of_better(better, data_id), "DATE ev_update(): failed to free" + data_and(old));
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, better}}));
}

TEST_P(BmBetterBlock, TakesThePlaceOfOneThatCannotBeReached)
{
    slot(1).add_entry("A", 7777, 0);
    const int better = put({.server = "A"});
    EXPECT_EQ(said_of_better(better, 7777), "SYSERROR: 22\nDATE ev_update(): failed to free id: 7777 bnum: 0\n");
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, better}}));
}

TEST_P(BmBetterBlock, ThatIsTheOldOneItselfStays)
{
    const int bnum = entered();
    EXPECT_EQ(said_of_better(bnum, data_id), "");
    EXPECT_EQ(slot(1).entries(), (std::vector<seen_entry>{{"A", data_id, bnum}}));
    EXPECT_FALSE(block_is_free(bnum));
}

} // namespace
