// Slow channels by name, out of the local copies.
#include <array>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "merge_calls.h"
#include "run_block_event.h"

using namespace zrk4::test;

namespace {

class SlowChannelQuery : public run_block_event {
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
