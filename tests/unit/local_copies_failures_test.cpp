// Local copies of blocks that are not as they should be, and of those that memory is short for.
#include <climits>
#include <cstdio>

#include <malloc.h>
#include <stdio_ext.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include "merge_calls.h"
#include "run_block_event.h"

using namespace zrk4::test;

namespace {

class LocalCopyFailures : public run_block_event {};
INSTANTIATE_TEST_SUITE_P(OfBothGenerations, LocalCopyFailures, GENERATIONS, name_of);

} // namespace

TEST_P(LocalCopyFailures, FailedMergesAreReportedAndTheWalkGoesOn)
{
    // A copy that something else was put into: no merge can succeed.
    event(ZRK4_EV_UPD, {DICT});
    event(ZRK4_EV_ENV, {DATA});
    EXPECT_EQ(failing_event(ZRK4_EV_HB, {ENV, DATA, ENV, UPD}), "Failed to update the local copy of ENV\n" +
                                                                    unknown("HB", 41) +
                                                                    "Failed to update the local copy of ENV\n");
    EXPECT_COPIES(DICT.bytes(), DATA.bytes(), UPD.bytes(), "none", "none");
    EXPECT_EQ(failing_event(ZRK4_EV_ENV, {ENV}), "Failed to update the local copy of ENV\n");
    reinterpret_cast<zrk4_serv_block_subhead_2010*>(local_upd_copy_)->dtype = ZRK4_BOR_BLOCK_2010;
    EXPECT_EQ(failing_event(ZRK4_EV_EOR, {UPD, EOR}), "Failed to update UPD in EOR\n");
    EXPECT_EQ(failing_event(ZRK4_EV_UPD, {UPD}), "Failed to update UPD in UPD\n");
    EXPECT_NE(local_eor_copy_, nullptr);
}

TEST_P(LocalCopyFailures, LengthsThatCannotBeAllocatedAreReported)
{
    const auto no_memory = [](const char* kind) {
        return std::string("Failed to allocate memory for the local copy of ") + kind + "\n";
    };
    for (const int ldata : {-1, INT_MIN}) {
        clean_local_copies();
        EXPECT_EQ(failing_event(ZRK4_EV_HB, {DICT.says(ldata)}), no_memory("DICT"));
        EXPECT_EQ(failing_event(ZRK4_EV_HB, {UPD.says(ldata)}), no_memory("UPD"));
        EXPECT_EQ(failing_event(ZRK4_EV_BOR, {DICT.says(ldata)}), no_memory("DICT"));
        EXPECT_EQ(failing_event(ZRK4_EV_BOR, {BOR.says(ldata)}), no_memory("BOR"));
        EXPECT_EQ(failing_event(ZRK4_EV_BOR, {UPD.says(ldata)}), no_memory("UPD"));
        EXPECT_EQ(failing_event(ZRK4_EV_EOR, {EOR.says(ldata)}), no_memory("EOR"));
        EXPECT_EQ(failing_event(ZRK4_EV_UPD, {UPD.says(ldata)}), no_memory("UPD"));
        EXPECT_EQ(failing_event(ZRK4_EV_UPD, {DICT.says(ldata)}), no_memory("DICT"));
        EXPECT_EQ(event(ZRK4_EV_EOR, {UPD.says(ldata)}), no_memory("UPD")) << "an end of run does not fail for it";
        EXPECT_COPIES("none", "none", "none", "none", "none");
        event(ZRK4_EV_UPD, {DICT});
        EXPECT_EQ(failing_event(ZRK4_EV_ENV, {ENV.says(ldata)}), no_memory("ENV"));
        EXPECT_EQ(failing_event(ZRK4_EV_HB, {ENV.says(ldata)}), no_memory("ENV"));
        EXPECT_EQ(local_env_copy_, nullptr);
    }
}

TEST_P(LocalCopyFailures, MergeThatThrowsGivesTheMutexBack)
{
    event(ZRK4_EV_UPD, {UPD});
    next_event(ZRK4_EV_UPD);
    put(block_of_2010({LATER_UPD}).bytes());
    merges_throw = true;
    EXPECT_THROW(update(), std::runtime_error);
    EXPECT_THROW(query_as(GetParam(), "VOLT", nullptr), std::runtime_error) << "and does not wait for ever";
    merges_throw = false;
    EXPECT_FALSE(update());
    EXPECT_EQ(bytes_of_copy(local_upd_copy_), MERGED_UPD);
}

// The sanitizers' own memory cannot be limited.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
namespace {

// One heap for all threads: what another one has reserved could still be had.
const int one_heap = mallopt(M_ARENA_MAX, 1);

/// No mapping can be made for the life of this.
class no_more_memory {
  public:
    no_more_memory()
    {
        getrlimit(RLIMIT_AS, &before_);
        const rlimit now{0, before_.rlim_max};
        setrlimit(RLIMIT_AS, &now);
    }
    ~no_more_memory() { setrlimit(RLIMIT_AS, &before_); }
    no_more_memory(const no_more_memory&) = delete;
    no_more_memory& operator=(const no_more_memory&) = delete;

  private:
    rlimit before_{};
};

} // namespace

TEST_P(LocalCopyFailures, MemoryThatCannotBeHadIsReported)
{
    ASSERT_NE(one_heap, 0);
    constexpr int MUCH = 8 << 20;
    mallopt(M_MMAP_THRESHOLD, MUCH / 2); // so much is never left over in the heap
    const int large = bm.add("T_LARGE", 1, 2 * MUCH, /*sems=*/false);
    const sub_block upd("UPD", ZRK4_UPD_BLOCK_2010, std::string(MUCH, 'x'));
    const std::string block = block_of_2010({upd, EOR}).bytes();
    std::memcpy(bm.get_buffer_address(0, large), block.data(), block.size());
    const auto update_without_memory = [&](int type) {
        next_event(type);
        add_entry("SERVER", large, 0);
        const no_more_memory none;
        return update();
    };
    const char* const report = "Failed to allocate memory for the local copy of UPD\n";
    EXPECT_EQ(out_of([&] { EXPECT_TRUE(update_without_memory(ZRK4_EV_UPD)); }), report);
    EXPECT_EQ(out_of([&] { EXPECT_FALSE(update_without_memory(ZRK4_EV_EOR)); }), report) << "an end of run goes on";
    EXPECT_EQ(local_upd_copy_, nullptr);
    EXPECT_EQ(bytes_of_copy(local_eor_copy_), EOR.bytes());
}
#endif

TEST_P(LocalCopyFailures, SubBlocksAreTakenWhateverTheBlockSaysOfItsLength)
{
    for (const int ltotal : {INT_MAX, HEAD_2010 + SUBHEAD - 1, HEAD_2010, 0, -1, INT_MIN}) {
        clean_local_copies();
        const auto event_of = [&](int type, const std::vector<sub_block>& parts) {
            next_event(type);
            block_of_2010 block(parts);
            block.head.ltotal = ltotal;
            put(block.bytes());
            EXPECT_EQ(out_of([&] { EXPECT_FALSE(update()); }), "") << ltotal;
        };
        event_of(ZRK4_EV_BOR, {DICT, BOR});
        event_of(ZRK4_EV_ENV, {ENV});
        event_of(ZRK4_EV_UPD, {UPD});
        event_of(ZRK4_EV_EOR, {EOR});
        EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), BOR.bytes(), EOR.bytes());
    }
}

TEST_P(LocalCopyFailures, SubBlockThatIsLongerThanTheBufferIsNotTaken)
{
    EXPECT_EQ(failing_event(ZRK4_EV_BOR, {DICT, BOR.says(LENGTH)}),
              "Failed to allocate memory for the local copy of BOR\n");
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
    event(ZRK4_EV_ENV, {ENV});
    EXPECT_EQ(failing_event(ZRK4_EV_ENV, {LATER_ENV.says(LENGTH)}), "Failed to update the local copy of ENV\n");
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), "none", "none", "none");
}

TEST_P(LocalCopyFailures, NothingIsTakenFromBehindTheBuffer)
{
    const int data = LENGTH - HEAD_2010 - SUBHEAD;
    for (const int too_long : {0, 1}) {
        clean_local_copies();
        next_event(ZRK4_EV_BOR);
        block_of_2010 block({sub_block("BOR", ZRK4_BOR_BLOCK_2010, std::string(static_cast<size_t>(data), 'x'))});
        block.head.ltotal = INT_MAX;
        std::string bytes = block.bytes();
        const int32_t ldata = SUBHEAD + data + too_long;
        std::memcpy(&bytes[static_cast<size_t>(HEAD_2010) + 264], &ldata, sizeof ldata);
        put(bytes);
        const std::string text = out_of([&] { EXPECT_EQ(update(), too_long == 1); });
        EXPECT_EQ(text, too_long == 1 ? "Failed to allocate memory for the local copy of BOR\n" : "");
        EXPECT_EQ(local_bor_copy_ == nullptr, too_long == 1);
    }
}

TEST_P(LocalCopyFailures, WalkEndsWithTheBufferWhateverItCounts)
{
    const int room = LENGTH - HEAD_2010 - DICT.ldata - SUBHEAD;
    for (const int left : {0, 1, SUBHEAD - 1}) {
        clean_local_copies();
        next_event(ZRK4_EV_BOR);
        const sub_block last("BOR", ZRK4_BOR_BLOCK_2010, std::string(static_cast<size_t>(room - left), 'x'));
        block_of_2010 block({DICT, last});
        block.head.nchan = INT_MAX;
        put(block.bytes());
        EXPECT_EQ(out_of([&] { EXPECT_FALSE(update()); }), "") << left;
        EXPECT_COPIES(DICT.bytes(), "none", "none", last.bytes(), "none");
    }
}

TEST_P(LocalCopyFailures, ZerosBehindTheLastSubBlockEndTheWalk)
{
    next_event(ZRK4_EV_BOR);
    block_of_2010 block({DICT, BOR});
    block.head.nchan = INT_MAX;
    put(block.bytes());
    EXPECT_EQ(out_of([&] { EXPECT_FALSE(update()); }), unknown("BOR", 0));
    EXPECT_COPIES(DICT.bytes(), "none", "none", BOR.bytes(), "none");
}

TEST_P(LocalCopyFailures, OfASubBlockTooShortForItsHeadHasAWholeZeroHeadAndEndsTheWalk)
{
    for (const int ldata : {0, 1, 255, 260, SUBHEAD - 1}) {
        clean_local_copies();
        EXPECT_EQ(event(ZRK4_EV_BOR, {BOR.says(ldata), DICT, DATA}), "");
        ASSERT_NE(local_bor_copy_, nullptr);
        const auto taken = static_cast<size_t>(ldata);
        EXPECT_EQ(std::string(local_bor_copy_, SUBHEAD),
                  BOR.says(ldata).bytes().substr(0, taken) + std::string(SUBHEAD - taken, '\0'));
        EXPECT_EQ(local_dict_copy_, nullptr);
    }
    EXPECT_EQ(event(ZRK4_EV_HB, {DATA.says(0), DICT}), unknown("HB", 41)) << "reported once, whatever its length";
    EXPECT_EQ(local_dict_copy_, nullptr);
}

TEST_P(LocalCopyFailures, MergeIntoAndFromShortSubBlocksIsHarmless)
{
    for (const int ldata : {0, 1, 255, 256}) {
        clean_local_copies();
        event(ZRK4_EV_UPD, {UPD.says(ldata)});
        next_event(ZRK4_EV_UPD);
        put(block_of_2010({LATER_UPD}).bytes());
        const std::string text = out_of([&] { EXPECT_TRUE(update()); });
        EXPECT_EQ(text, "Failed to update UPD in UPD\n") << "the copy's kind did not fit in";
        clean_local_copies();
        event(ZRK4_EV_UPD, {UPD});
        EXPECT_EQ(event(ZRK4_EV_UPD, {LATER_UPD.says(ldata)}), "") << "holds no record";
        EXPECT_EQ(bytes_of_copy(local_upd_copy_), UPD.bytes());
    }
}

TEST_P(LocalCopyFailures, ReportsAreFlushedExceptThoseOfUnknownTypesOutsideUpdateEvents)
{
    const captured_output captured;
    setvbuf(stdout, nullptr, _IOFBF, 4096);
    const auto pending_after = [&](int type, const sub_block& part) {
        next_event(type);
        put(block_of_2010({part}).bytes());
        std::fflush(stdout);
        update();
        return __fpending(stdout);
    };
    EXPECT_EQ(pending_after(ZRK4_EV_HB, DATA), unknown("HB", 41).size());
    EXPECT_EQ(pending_after(ZRK4_EV_BOR, DATA), unknown("BOR", 41).size());
    EXPECT_EQ(pending_after(ZRK4_EV_EOR, DATA), unknown("EOR", 41).size());
    EXPECT_EQ(pending_after(ZRK4_EV_UPD, DATA), 0U);
    EXPECT_EQ(pending_after(ZRK4_EV_UPD, UPD.says(-1)), 0U);
    EXPECT_EQ(pending_after(ZRK4_EV_UPD, UPD), 0U);
    EXPECT_EQ(pending_after(ZRK4_EV_UPD, UPD.says(-1)), 0U);
}

TEST_P(LocalCopyFailures, BadArgumentsFindNoBlock)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2010({DICT}).bytes());
    EXPECT_FALSE(update_local_copies(nullptr, entries.data(), &bm, &h10, &h24));
    EXPECT_FALSE(update_local_copies(&slot_2024, nullptr, &bm, &h10, &h24));
    EXPECT_FALSE(update_local_copies(&slot_2024, entries.data(), nullptr, &h10, &h24));
    EXPECT_FALSE(update_local_copies_2010(nullptr, entries.data(), &bm, &h10));
    EXPECT_COPIES("none", "none", "none", "none", "none");
}
