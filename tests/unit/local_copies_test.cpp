// The process's own copies of the run-control blocks.
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "run_block_event.h"

using namespace zrk4::test;

namespace {

class LocalCopies : public run_block_event {};
INSTANTIATE_TEST_SUITE_P(OfBothGenerations, LocalCopies, GENERATIONS, name_of);

} // namespace

TEST_P(LocalCopies, HeartBeatMakesDictionaryEnvironmentAndUpdateCopies)
{
    EXPECT_EQ(event(ZRK4_EV_HB, {DICT, ENV, UPD}), "");
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), "none", "none");
}

TEST_P(LocalCopies, LaterHeartBeatMergesTheEnvironmentAlone)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    EXPECT_EQ(event(ZRK4_EV_HB, {LATER_DICT, LATER_UPD, LATER_ENV}), "");
    EXPECT_COPIES(DICT.bytes(), MERGED_ENV, UPD.bytes(), "none", "none");
}

TEST_P(LocalCopies, BeginOfRunMakesDictionaryBeginAndUpdateCopiesOnce)
{
    EXPECT_EQ(event(ZRK4_EV_BOR, {DICT, BOR, UPD}), "");
    EXPECT_COPIES(DICT.bytes(), "none", UPD.bytes(), BOR.bytes(), "none");
    EXPECT_EQ(event(ZRK4_EV_BOR, {LATER_DICT, LATER_BOR, LATER_UPD}), "");
    EXPECT_COPIES(DICT.bytes(), "none", UPD.bytes(), BOR.bytes(), "none");
    clean_local_copies();
    event(ZRK4_EV_BOR, {LATER_BOR});
    EXPECT_COPIES("none", "none", "none", LATER_BOR.bytes(), "none");
}

TEST_P(LocalCopies, EndOfRunMergesUpdatesAndKeepsTheFirstEnd)
{
    EXPECT_EQ(event(ZRK4_EV_EOR, {UPD, EOR}), "");
    EXPECT_COPIES("none", "none", UPD.bytes(), "none", EOR.bytes());
    EXPECT_EQ(event(ZRK4_EV_EOR, {LATER_UPD, LATER_EOR}), "");
    EXPECT_COPIES("none", "none", MERGED_UPD, "none", EOR.bytes());
}

TEST_P(LocalCopies, UpdateEventMakesAnUpdateCopyAndMergesIntoIt)
{
    EXPECT_EQ(event(ZRK4_EV_UPD, {UPD}), "");
    EXPECT_COPIES("none", "none", UPD.bytes(), "none", "none");
    EXPECT_EQ(event(ZRK4_EV_UPD, {LATER_UPD}), "");
    EXPECT_COPIES("none", "none", MERGED_UPD, "none", "none");
}

TEST_P(LocalCopies, UpdateEventMakesADictionaryCopyOnce)
{
    EXPECT_EQ(event(ZRK4_EV_UPD, {DICT}), "");
    EXPECT_EQ(event(ZRK4_EV_UPD, {LATER_DICT}), "");
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
}

TEST_P(LocalCopies, EnvironmentNeedsADictionaryFirst)
{
    for (const int type : {ZRK4_EV_HB, ZRK4_EV_ENV}) {
        clean_local_copies();
        EXPECT_EQ(event(type, {ENV}), "");
        EXPECT_COPIES("none", "none", "none", "none", "none");
        event(ZRK4_EV_UPD, {DICT});
        EXPECT_EQ(event(type, {ENV}), "");
        EXPECT_COPIES(DICT.bytes(), ENV.bytes(), "none", "none", "none");
        EXPECT_EQ(event(type, {LATER_ENV}), "");
        EXPECT_COPIES(DICT.bytes(), MERGED_ENV, "none", "none", "none");
    }
}

TEST_P(LocalCopies, EnvironmentBeforeTheDictionaryOfItsBlockIsDropped)
{
    event(ZRK4_EV_HB, {ENV, DICT});
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
}

TEST_P(LocalCopies, EnvironmentAndUpdateEventsLookAtTheFirstSubBlockAlone)
{
    event(ZRK4_EV_UPD, {DICT, UPD});
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
    event(ZRK4_EV_ENV, {ENV, LATER_ENV});
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), "none", "none", "none");
}

TEST_P(LocalCopies, EnvironmentEventTakesItsFirstSubBlockWhateverItsType)
{
    event(ZRK4_EV_UPD, {DICT});
    EXPECT_EQ(event(ZRK4_EV_ENV, {DATA}), "");
    EXPECT_COPIES(DICT.bytes(), DATA.bytes(), "none", "none", "none");
    EXPECT_EQ(failing_event(ZRK4_EV_ENV, {ENV}), "Failed to update the local copy of ENV\n")
        << "what was taken first is no environment";
}

TEST_P(LocalCopies, EnvironmentEventTakesItsSubBlockEvenWhenNoneIsCounted)
{
    event(ZRK4_EV_UPD, {DICT});
    for (const int nchan : {0, -1, INT_MIN}) {
        next_event(ZRK4_EV_ENV);
        block_of_2010 block({local_env_copy_ == nullptr ? ENV : LATER_ENV});
        block.head.nchan = nchan;
        put(block.bytes());
        EXPECT_FALSE(update());
    }
    EXPECT_COPIES(DICT.bytes(), MERGED_ENV, "none", "none", "none");
}

TEST_P(LocalCopies, BlocksThatCountNothingAreSteppedOver)
{
    for (const int type : {ZRK4_EV_HB, ZRK4_EV_BOR, ZRK4_EV_EOR, ZRK4_EV_UPD}) {
        for (const int nchan : {0, -1, INT_MIN}) {
            next_event(type);
            block_of_2010 none({DATA});
            none.head.nchan = nchan;
            put(none.bytes());
            char* const second = put(block_of_2010({UPD}).bytes());
            EXPECT_EQ(out_of([&] { EXPECT_FALSE(update()); }), "");
            EXPECT_EQ(reinterpret_cast<char*>(h10), second);
        }
        EXPECT_COPIES("none", "none", UPD.bytes(), "none", "none");
        clean_local_copies();
    }
}

TEST_P(LocalCopies, UnknownTypesAreReportedAndSteppedOver)
{
    EXPECT_EQ(event(ZRK4_EV_HB, {DATA, BOR, EOR, DICT}), unknown("HB", 41) + unknown("HB", 36) + unknown("HB", 37));
    EXPECT_EQ(event(ZRK4_EV_BOR, {ENV, EOR, BOR}), unknown("BOR", 35) + unknown("BOR", 37));
    EXPECT_EQ(event(ZRK4_EV_EOR, {DICT, ENV, BOR, EOR}), unknown("EOR", 34) + unknown("EOR", 35) + unknown("EOR", 36));
    EXPECT_EQ(event(ZRK4_EV_UPD, {ENV, UPD}), unknown("UPD", 35));
    EXPECT_EQ(event(ZRK4_EV_UPD, {{"OLD", ZRK4_UPD_BLOCK}}), unknown("UPD", 1));
    EXPECT_EQ(event(ZRK4_EV_UPD, {{"NEGATIVE", -7}}), unknown("UPD", -7));
    EXPECT_COPIES(DICT.bytes(), "none", "none", BOR.bytes(), EOR.bytes());
}

TEST_P(LocalCopies, EachBlockOfAnEventIsLookedAt)
{
    next_event(ZRK4_EV_BOR);
    put(block_of_2010({DICT}).bytes());
    put(block_of_2010({BOR, UPD}).bytes());
    char* const last = put(block_of_2010({LATER_BOR}).bytes());
    EXPECT_FALSE(update());
    EXPECT_COPIES(DICT.bytes(), "none", UPD.bytes(), BOR.bytes(), "none");
    EXPECT_EQ(reinterpret_cast<char*>(h10), last);
}

TEST_P(LocalCopies, AreMadeAtEveryAlignment)
{
    for (int buffer = 0; buffer < 8; ++buffer) {
        clean_local_copies();
        for (const bool later : {false, true}) {
            next_event(ZRK4_EV_HB);
            start_at_buffer(buffer);
            put(block_of_2010({DICT, later ? LATER_ENV : ENV, UPD}).bytes());
            EXPECT_FALSE(update());
        }
        EXPECT_COPIES(DICT.bytes(), MERGED_ENV, UPD.bytes(), "none", "none");
    }
}

TEST_P(LocalCopies, StayWhenTheBlockIsOverwritten)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    next_event(ZRK4_EV_HB);
    put(std::string(LENGTH, '\xff'));
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), "none", "none");
}

TEST_P(LocalCopies, OtherEventTypesFailAtTheFirstBlockAndLeaveTheOutputs)
{
    auto* const before_10 = h10 = reinterpret_cast<zrk4_serv_block_head_2010*>(&slot_2010);
    auto* const before_24 = h24 = reinterpret_cast<zrk4_serv_block_head_2024*>(&slot_2024);
    for (const int type : {1, 6, 7, 31, 32, INT_MAX, -1}) {
        EXPECT_EQ(failing_event(type, {DICT, ENV, UPD}), "") << type;
    }
    EXPECT_EQ(h10, before_10);
    EXPECT_EQ(h24, before_24);
    EXPECT_COPIES("none", "none", "none", "none", "none");
}

TEST_P(LocalCopies, WithoutABlockNothingFailsAndTheOutputsBecomeNull)
{
    for (const int type : {ZRK4_EV_HB, ZRK4_EV_NORMAL, ZRK4_EV_UPD, ZRK4_EV_31}) {
        for (const int filled : {0, -1, 2}) {
            next_event(type);
            add_entry("SERVER", 0, 0);
            add_entry("SERVER", id, -1);
            set_filled(filled);
            h10 = reinterpret_cast<zrk4_serv_block_head_2010*>(&slot_2010);
            h24 = nullptr;
            EXPECT_FALSE(update()) << "also for a type that is not handled";
            EXPECT_EQ(h10, nullptr);
            EXPECT_EQ(h24, nullptr);
        }
    }
}

TEST_P(LocalCopies, BlocksThatCannotBeHadAreSteppedOver)
{
    next_event(ZRK4_EV_HB);
    char* const first = put(block_of_2010({DICT}).bytes());
    add_entry("SERVER", id, BUFFERS);
    add_entry("SERVER", id + 1000, 0);
    EXPECT_FALSE(update());
    EXPECT_EQ(reinterpret_cast<char*>(h10), first);
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
}

TEST_P(LocalCopies, NeedNoOutputs)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2010({DICT}).bytes());
    if (GetParam() == reader::of_2010) {
        EXPECT_FALSE(update_local_copies_2010(&slot_2010, entries.data(), &bm, nullptr));
    } else {
        EXPECT_FALSE(update_local_copies(&slot_2024, entries.data(), &bm, nullptr, nullptr));
    }
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
}

TEST_P(LocalCopies, AreDroppedByCleanAndByInit)
{
    for (void (*drop)() : {clean_local_copies, bm_util_init}) {
        event(ZRK4_EV_HB, {DICT, ENV, UPD});
        event(ZRK4_EV_BOR, {BOR});
        event(ZRK4_EV_EOR, {EOR});
        EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), BOR.bytes(), EOR.bytes());
        drop();
        EXPECT_COPIES("none", "none", "none", "none", "none");
        drop(); // nothing to do
    }
}

// ---- what the generations do differently ----------------------------------------------------------------------------

using LocalCopies2024 = run_block_reader;
using LocalCopies2010 = run_block_reader;

TEST_F(LocalCopies2024, EachBlockIsReadByItsOwnForm)
{
    for (int buffer = 0; buffer < 8; ++buffer) {
        clean_local_copies();
        next_event(ZRK4_EV_HB);
        start_at_buffer(buffer);
        put(block_of_2010({DICT}).bytes());
        char* const last = put(block_of_2024({ENV, UPD}).bytes());
        EXPECT_FALSE(update_as(reader::of_2024));
        EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), "none", "none");
        EXPECT_EQ(reinterpret_cast<char*>(h24), last);
        EXPECT_EQ(h10, nullptr);
    }
}

TEST_F(LocalCopies2024, OutputsTellTheLastBlockInItsForm)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2024({DICT}).bytes());
    char* const last = put(block_of_2010({}).bytes());
    EXPECT_FALSE(update_as(reader::of_2024));
    EXPECT_EQ(reinterpret_cast<char*>(h10), last);
    EXPECT_EQ(h24, nullptr);
}

TEST_F(LocalCopies2024, BufferTooShortForItsHeadIsSteppedOver)
{
    const int short_id = bm.add("T_SHORT", 1, HEAD_2024 - 1, false);
    std::memcpy(bm.get_buffer_address(0, short_id), &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    next_event(ZRK4_EV_HB);
    char* const first = put(block_of_2024({DICT}).bytes());
    add_entry("SERVER", short_id, 0);
    EXPECT_FALSE(update_as(reader::of_2024));
    EXPECT_EQ(reinterpret_cast<char*>(h24), first);
}

TEST_F(LocalCopies2024, SlotsPatternIsNotTested)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2024({DICT}).bytes());
    slot_2024.pattern = 0;
    EXPECT_FALSE(update_as(reader::of_2024));
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
}

TEST_F(LocalCopies2010, EveryBlockIsReadInThe2010Form)
{
    next_event(ZRK4_EV_HB);
    block_of_2010 block({DICT});
    std::memcpy(&block.head.time, &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    char* const at = put(block.bytes());
    EXPECT_FALSE(update_as(reader::of_2010));
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
    EXPECT_EQ(reinterpret_cast<char*>(h10), at);
}
