// The process's own copies of the run-control blocks.
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <stdio_ext.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include "captured_output.h"
#include "evutl.h"
#include "local_copies.h"
#include "reader_event.h"

using namespace zrk4::test;

// These stand in front of our event utilities: a site's own may throw, and they are called with the mutex held.
static bool merges_throw = false;
static int calls_without_mutex = 0;

static void note_mutex()
{
    // The platform's own call: unlike the standard's it may be made by the owner, and then says "busy".
    pthread_mutex_t* const mutex = zrk4::impl::mx_lcp.native_handle();
    if (pthread_mutex_trylock(mutex) == EBUSY) return;
    pthread_mutex_unlock(mutex);
    ++calls_without_mutex;
}

template <class... Args> static bool call_ours(const char* function, Args... args)
{
    return reinterpret_cast<bool (*)(Args...)>(dlsym(RTLD_NEXT, function))(args...);
}

bool copy_upd_entries_2010(char* copy, char* fresh)
{
    note_mutex();
    if (merges_throw) throw std::runtime_error("merge");
    return call_ours("copy_upd_entries_2010", copy, fresh);
}

bool copy_env_entries_2010(char* copy, char* fresh)
{
    note_mutex();
    return call_ours("copy_env_entries_2010", copy, fresh);
}

bool find_slow_channel_2010(char* env, char* dict, const char* channel, zrk4_env_data_block_2010** record)
{
    note_mutex();
    return call_ours("find_slow_channel_2010", env, dict, channel, record);
}

namespace {

const sub_block DICT("DICT", ZRK4_ENV_DICT_BLOCK_2010, dict_record("TEMP", 7) + dict_record("VOLT", 9));
const sub_block ENV("ENV", ZRK4_ENV_BLOCK_2010, env_record(9, 1.F) + env_record(7, 2.F));
const sub_block UPD("UPD", ZRK4_UPD_BLOCK_2010, upd_record("VOLT", 3.F));
const sub_block BOR("BOR", ZRK4_BOR_BLOCK_2010, "begin");
const sub_block EOR("EOR", ZRK4_EOR_BLOCK_2010, "end!");
const sub_block DATA("DATA", ZRK4_BLOCK_1CHAN_2010, "data");

const sub_block LATER_DICT("DICT2", ZRK4_ENV_DICT_BLOCK_2010, dict_record("TEMP", 9));
const sub_block LATER_ENV("ENV2", ZRK4_ENV_BLOCK_2010, env_record(7, 20.F) + env_record(8, 80.F));
const sub_block LATER_UPD("UPD2", ZRK4_UPD_BLOCK_2010, upd_record("TEMP", 40.F) + upd_record("VOLT", 30.F));
const sub_block LATER_BOR("BOR2", ZRK4_BOR_BLOCK_2010, "begin again");
const sub_block LATER_EOR("EOR2", ZRK4_EOR_BLOCK_2010, "end again");

// What a merge leaves: the copy's own sub-head and size, the records that it held brought up to date.
const std::string MERGED_ENV = sub_block("ENV", ZRK4_ENV_BLOCK_2010, env_record(9, 1.F) + env_record(7, 20.F)).bytes();
const std::string MERGED_UPD = sub_block("UPD", ZRK4_UPD_BLOCK_2010, upd_record("VOLT", 30.F)).bytes();

std::string unknown(const char* event, int type)
{
    return std::string("UNKNOWN BLOCK: in ") + event + ": " + std::to_string(type) + " \n";
}

/// A copy as bytes; "none" when there is none.
std::string bytes_of_copy(const char* copy)
{
    if (copy == nullptr) return "none";
    return {copy, static_cast<size_t>(reinterpret_cast<const zrk4_serv_block_subhead_2010*>(copy)->ldata)};
}

class LocalCopiesBase : public reader_event {
  protected:
    bool update_as(reader r)
    {
        if (r == reader::of_2010) return update_local_copies_2010(&slot_2010, entries.data(), &bm, &h10);
        return update_local_copies(&slot_2024, entries.data(), &bm, &h10, &h24);
    }
    int query_as(reader r, const char* channel, float* value)
    {
        if (r == reader::of_2010) {
            return get_slow_channel_data_2010(&slot_2010, entries.data(), channel, &bm, &h10, value);
        }
        return get_slow_channel_data(&slot_2024, entries.data(), channel, &bm, &h10, &h24, value);
    }
};

class LocalCopies : public LocalCopiesBase, public testing::WithParamInterface<reader> {
  protected:
    /// @return false on success.
    bool update() { return update_as(GetParam()); }
    /// An event of one block, which must go well. @return what was printed.
    std::string event(int type, const std::vector<sub_block>& parts)
    {
        next_event(type);
        put(block_of_2010(parts).bytes());
        return out_of([&] { EXPECT_FALSE(update()) << "false is success"; });
    }
    /// The same with a failure.
    std::string failing_event(int type, const std::vector<sub_block>& parts)
    {
        next_event(type);
        put(block_of_2010(parts).bytes());
        return out_of([&] { EXPECT_TRUE(update()) << "true is failure"; });
    }
};

const auto GENERATIONS = testing::Values(reader::of_2010, reader::of_2024);
std::string name_of(const testing::TestParamInfo<reader>& r)
{
    return r.param == reader::of_2010 ? "Readers2010" : "Readers2024";
}
INSTANTIATE_TEST_SUITE_P(OfBothGenerations, LocalCopies, GENERATIONS, name_of);

#define EXPECT_COPIES(dict, env, upd, bor, eor)                                                                        \
    EXPECT_EQ(bytes_of_copy(local_dict_copy_), dict);                                                                  \
    EXPECT_EQ(bytes_of_copy(local_env_copy_), env);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_upd_copy_), upd);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_bor_copy_), bor);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_eor_copy_), eor)

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

// ---- failures -------------------------------------------------------------------------------------------------------

TEST_P(LocalCopies, FailedMergesAreReportedAndTheWalkGoesOn)
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

TEST_P(LocalCopies, LengthsThatCannotBeAllocatedAreReported)
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

TEST_P(LocalCopies, MergeThatThrowsGivesTheMutexBack)
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

TEST_P(LocalCopies, MemoryThatCannotBeHadIsReported)
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

TEST_P(LocalCopies, SubBlocksAreTakenWhateverTheBlockSaysOfItsLength)
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

TEST_P(LocalCopies, SubBlockThatIsLongerThanTheBufferIsNotTaken)
{
    EXPECT_EQ(failing_event(ZRK4_EV_BOR, {DICT, BOR.says(LENGTH)}),
              "Failed to allocate memory for the local copy of BOR\n");
    EXPECT_COPIES(DICT.bytes(), "none", "none", "none", "none");
    event(ZRK4_EV_ENV, {ENV});
    EXPECT_EQ(failing_event(ZRK4_EV_ENV, {LATER_ENV.says(LENGTH)}), "Failed to update the local copy of ENV\n");
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), "none", "none", "none");
}

TEST_P(LocalCopies, NothingIsTakenFromBehindTheBuffer)
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

TEST_P(LocalCopies, WalkEndsWithTheBufferWhateverItCounts)
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

TEST_P(LocalCopies, ZerosBehindTheLastSubBlockEndTheWalk)
{
    next_event(ZRK4_EV_BOR);
    block_of_2010 block({DICT, BOR});
    block.head.nchan = INT_MAX;
    put(block.bytes());
    EXPECT_EQ(out_of([&] { EXPECT_FALSE(update()); }), unknown("BOR", 0));
    EXPECT_COPIES(DICT.bytes(), "none", "none", BOR.bytes(), "none");
}

TEST_P(LocalCopies, OfASubBlockTooShortForItsHeadHasAWholeZeroHeadAndEndsTheWalk)
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

TEST_P(LocalCopies, MergeIntoAndFromShortSubBlocksIsHarmless)
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

TEST_P(LocalCopies, ReportsAreFlushedExceptThoseOfUnknownTypesOutsideUpdateEvents)
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

TEST_P(LocalCopies, BadArgumentsFindNoBlock)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2010({DICT}).bytes());
    EXPECT_FALSE(update_local_copies(nullptr, entries.data(), &bm, &h10, &h24));
    EXPECT_FALSE(update_local_copies(&slot_2024, nullptr, &bm, &h10, &h24));
    EXPECT_FALSE(update_local_copies(&slot_2024, entries.data(), nullptr, &h10, &h24));
    EXPECT_FALSE(update_local_copies_2010(nullptr, entries.data(), &bm, &h10));
    EXPECT_COPIES("none", "none", "none", "none", "none");
}

// ---- what the generations do differently ----------------------------------------------------------------------------

using LocalCopies2024 = LocalCopiesBase;
using LocalCopies2010 = LocalCopiesBase;

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

// ---- slow channels --------------------------------------------------------------------------------------------------

namespace {

class SlowChannelQuery : public LocalCopies {
  protected:
    static constexpr float UNTOUCHED = -99.F;

    /// The value of a channel in an event; `UNTOUCHED` when the result was 1.
    float ask(const char* channel)
    {
        float value = UNTOUCHED;
        const int result = query_as(GetParam(), channel, &value);
        EXPECT_EQ(result, value == UNTOUCHED ? 1 : 0);
        return value;
    }
};
INSTANTIATE_TEST_SUITE_P(OfBothGenerations, SlowChannelQuery, GENERATIONS, name_of);

} // namespace

TEST_P(SlowChannelQuery, BringsTheCopiesUpToDateFirst)
{
    next_event(ZRK4_EV_HB);
    char* const block = put(block_of_2010({DICT, ENV}).bytes());
    EXPECT_EQ(ask("TEMP"), 2.F);
    EXPECT_EQ(ask("VOLT"), 1.F);
    EXPECT_EQ(ask("FREQ"), UNTOUCHED);
    EXPECT_EQ(reinterpret_cast<char*>(h10), block);
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), "none", "none", "none");
}

TEST_P(SlowChannelQuery, UpdatedValueWinsExceptInAnEnvironmentEvent)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    for (const int type : {ZRK4_EV_HB, ZRK4_EV_BOR, ZRK4_EV_EOR, ZRK4_EV_UPD}) {
        next_event(type);
        EXPECT_EQ(ask("VOLT"), 3.F) << type;
        EXPECT_EQ(ask("TEMP"), 2.F) << "not in the update copy";
    }
    next_event(ZRK4_EV_ENV);
    EXPECT_EQ(ask("VOLT"), 1.F);
    EXPECT_EQ(ask("TEMP"), 2.F);
}

TEST_P(SlowChannelQuery, EnvironmentEventIsNotAnsweredFromTheUpdates)
{
    event(ZRK4_EV_UPD, {UPD});
    next_event(ZRK4_EV_UPD);
    EXPECT_EQ(ask("VOLT"), 3.F);
    next_event(ZRK4_EV_ENV);
    EXPECT_EQ(ask("VOLT"), UNTOUCHED);
}

TEST_P(SlowChannelQuery, ValueThatIsNotValidIsNotGiven)
{
    const sub_block bad_env("ENV", ZRK4_ENV_BLOCK_2010, env_record(9, 1.F, 1) + env_record(7, 2.F, -1));
    const sub_block bad_upd("UPD", ZRK4_UPD_BLOCK_2010, upd_record("VOLT", 3.F, 5));
    event(ZRK4_EV_HB, {DICT, bad_env});
    next_event(ZRK4_EV_HB);
    EXPECT_EQ(ask("TEMP"), UNTOUCHED);
    EXPECT_EQ(ask("VOLT"), UNTOUCHED);
    event(ZRK4_EV_HB, {ENV, bad_upd});
    next_event(ZRK4_EV_HB);
    EXPECT_EQ(ask("VOLT"), UNTOUCHED) << "the environment's valid value does not stand in";
    EXPECT_EQ(ask("TEMP"), 2.F);
    next_event(ZRK4_EV_ENV);
    EXPECT_EQ(ask("VOLT"), 1.F);
}

TEST_P(SlowChannelQuery, OtherEventTypesAreNotLookedAt)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    for (const int type : {1, 6, 17, 31, 32, -1}) {
        next_event(type);
        put(block_of_2010({LATER_ENV}).bytes());
        h10 = reinterpret_cast<zrk4_serv_block_head_2010*>(&slot_2010);
        EXPECT_EQ(ask("VOLT"), UNTOUCHED) << type;
        EXPECT_EQ(reinterpret_cast<char*>(h10), reinterpret_cast<char*>(&slot_2010)) << type;
    }
    EXPECT_COPIES(DICT.bytes(), ENV.bytes(), UPD.bytes(), "none", "none");
}

TEST_P(SlowChannelQuery, FailedUpdateEndsIt)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    next_event(ZRK4_EV_HB);
    put(block_of_2010({LATER_ENV.says(-1)}).bytes());
    EXPECT_EQ(out_of([&] { EXPECT_EQ(ask("VOLT"), UNTOUCHED); }), "Failed to update the local copy of ENV\n");
    next_event(ZRK4_EV_HB);
    EXPECT_EQ(ask("VOLT"), 3.F) << "the mutex was given back";
}

TEST_P(SlowChannelQuery, FindsNothingAfterCleanUntilBlocksArrive)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    clean_local_copies();
    next_event(ZRK4_EV_HB);
    EXPECT_EQ(ask("VOLT"), UNTOUCHED);
    put(block_of_2010({DICT, ENV}).bytes());
    EXPECT_EQ(ask("VOLT"), 1.F);
}

TEST_P(SlowChannelQuery, NeedsAName)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    next_event(ZRK4_EV_HB);
    EXPECT_EQ(ask(""), UNTOUCHED);
    EXPECT_EQ(ask(nullptr), UNTOUCHED);
}

TEST_P(SlowChannelQuery, NeedsNoOutputs)
{
    event(ZRK4_EV_HB, {DICT, ENV});
    EXPECT_EQ(query_as(GetParam(), "TEMP", nullptr), 0);
    EXPECT_EQ(get_slow_channel_data(&slot_2024, entries.data(), "TEMP", &bm, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(get_slow_channel_data_2010(&slot_2010, entries.data(), "TEMP", &bm, nullptr, nullptr), 0);
    EXPECT_EQ(get_slow_channel_data(nullptr, entries.data(), "TEMP", &bm, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(get_slow_channel_data_2010(nullptr, entries.data(), "TEMP", &bm, nullptr, nullptr), 1);
}

TEST_P(SlowChannelQuery, CopiesAreReadAndChangedUnderTheMutexAlone)
{
    calls_without_mutex = 0;
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    next_event(ZRK4_EV_EOR);
    put(block_of_2010({LATER_UPD}).bytes());
    EXPECT_EQ(ask("TEMP"), 2.F);
    next_event(ZRK4_EV_ENV);
    put(block_of_2010({LATER_ENV}).bytes());
    EXPECT_EQ(ask("TEMP"), 20.F);
    EXPECT_EQ(calls_without_mutex, 0);
    EXPECT_TRUE(zrk4::impl::mx_lcp.try_lock()) << "given back";
    zrk4::impl::mx_lcp.unlock();
}

TEST_P(SlowChannelQuery, ThreadsMayAskSideBySide)
{
    event(ZRK4_EV_HB, {DICT, ENV, UPD});
    next_event(ZRK4_EV_HB);
    put(block_of_2010({DICT, LATER_ENV, UPD}).bytes());
    std::array<int, 4> wrong{};
    const auto ask_often = [&](int& count) {
        for (int i = 0; i < 200; ++i) {
            float value = UNTOUCHED;
            const int result =
                GetParam() == reader::of_2010
                    ? get_slow_channel_data_2010(&slot_2010, entries.data(), "TEMP", &bm, nullptr, &value)
                    : get_slow_channel_data(&slot_2024, entries.data(), "TEMP", &bm, nullptr, nullptr, &value);
            if (result != 0 || value != 20.F) ++count;
        }
    };
    std::vector<std::thread> threads;
    for (int& count : wrong) threads.emplace_back(ask_often, std::ref(count));
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(wrong, (std::array<int, 4>{}));
}
