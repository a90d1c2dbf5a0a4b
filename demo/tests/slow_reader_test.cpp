// What the run control writes is read by name, in both generations; what cannot be answered is counted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BM.h"
#include "slow_channels.h"
#include "slow_reader.h"

using namespace demo;

namespace {

constexpr time_stamp TAKEN{1'700'000'000, 0};
constexpr int BYTES = 8192;

/// A reader that is handed one event after the other, each of one block in shared memory.
class slow_events : public testing::TestWithParam<bool> {
  protected:
    slow_events()
    {
        partition_ = bm_.add("SLOW_EVENTS", 2, BYTES, false);
        at_ = bm_.get_buffer_from_pool(BM_NO_WAIT, BYTES, &partition_, &number_);
    }
    ~slow_events() override
    {
        bm_.return_buffer_in_pool(number_, partition_);
        bm_.remove("SLOW_EVENTS");
    }
    template <class Fill> void event(ZRK4_EVTYPE type, Fill fill, bool was_due = true)
    {
        ASSERT_NE(at_, nullptr);
        const auto form = GetParam() ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010;
        zrk4::sb_write block(at_, BYTES, form, {RUN_BLOCK, TAKEN, 1, 1});
        fill(block);
        block.finish();
        zrk4_client_sblock_data entry{{}, partition_, number_};
        if (GetParam()) {
            zrk4_event_slot_head_2024 head{};
            head.pattern = 0xFF77FF77FF77FF77;
            hand_over(head, type, entry, was_due);
        } else {
            zrk4_event_slot_head head{};
            hand_over(head, type, entry, was_due);
        }
    }
    void begin()
    {
        event(ZRK4_EV_BOR, [this](zrk4::sb_write& block) {
            channels_.put_dictionary(block);
            block.begin_of_run("RUN");
            put_update(block, {{"ticks", 0, 0}}, TAKEN);
        });
    }
    void environment(const slow_values& values)
    {
        event(ZRK4_EV_ENV, [&](zrk4::sb_write& block) { channels_.put_environment(block, values, TAKEN); });
    }

    run_control_record seen_{};
    live_table table_{{}, {{"warmth", "C"}, {"ticks", ""}}};
    slow_channels channels_{{{"warmth", 40, 0}, {"load", 1, 0}, {"broken", 0, 5}}, 10};

  private:
    template <class Head> void hand_over(Head& head, ZRK4_EVTYPE type, zrk4_client_sblock_data& entry, bool was_due)
    {
        head.evtype = type;
        head.sbfilled = head.nsblocks = 1;
        reader_.event(&head, &entry, facts_in<Head>(&head), was_due);
    }

    BM bm_;
    int partition_ = -1, number_ = -1;
    char* at_ = nullptr;
    slow_reader reader_{bm_, GetParam(), seen_, table_};
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Generations, slow_events, testing::Bool());

TEST_P(slow_events, AreReadByNameAndCounted)
{
    EXPECT_EQ(channels_.size(), 2U) << "what is not valid at the begin is no channel of the run";
    begin();
    environment({{"warmth", 41, 0}, {"load", 2.5, 0}});
    event(ZRK4_EV_UPD, [](zrk4::sb_write& block) { put_update(block, {{"ticks", 50, 0}}, TAKEN); });
    event(ZRK4_EV_EOR, [](zrk4::sb_write& block) {
        put_update(block, {{"ticks", 100, 0}}, TAKEN);
        block.end_of_run("RUN");
    });
    for (const auto& received : seen_.received) EXPECT_EQ(received, 1U);
    EXPECT_EQ(seen_.by_name, 2U);
    EXPECT_EQ(seen_.values, 5U) << "two channels, and one property at three events";
    EXPECT_EQ(seen_.mistaken + seen_.not_copied + seen_.strangers, 0U);
    EXPECT_NE(table_.log_line().find("  warmth 41.0 C  ticks 100.0"), std::string::npos);
}

TEST_P(slow_events, GiveNoValueForAChannelThatIsMissingNow)
{
    begin();
    environment({{"warmth", 41, 0}, {"unheard of", 7, 0}});
    EXPECT_EQ(seen_.by_name, 1U);
    EXPECT_EQ(seen_.mistaken, 0U) << "and say so";
    environment({{"warmth", 42, 3}, {"load", 7, 0}});
    EXPECT_EQ(seen_.by_name, 2U) << "a channel counts when it was read once";
    EXPECT_EQ(seen_.mistaken, 0U);
    EXPECT_NE(table_.log_line().find("warmth 41.0"), std::string::npos) << "the last valid one";
}

TEST_P(slow_events, WithoutADictionaryAreMistaken)
{
    environment({{"warmth", 41, 0}, {"load", 2.5, 0}});
    EXPECT_EQ(seen_.by_name, 0U);
    EXPECT_EQ(seen_.mistaken, 2U);
}

TEST_P(slow_events, WithAPropertyThatTheBeginDidNotHaveAreMistaken)
{
    begin();
    event(ZRK4_EV_UPD, [](zrk4::sb_write& block) { put_update(block, {{"late", 1, 0}}, TAKEN); });
    EXPECT_EQ(seen_.mistaken, 1U);
}

TEST_P(slow_events, ThatWereNotDueAreStrangers)
{
    event(
        ZRK4_EV_UPD,
        [](zrk4::sb_write& block) {
            put_update(block, {{"ticks", 1, 0}}, TAKEN);
        },
        false);
    EXPECT_EQ(seen_.strangers, 1U);
    EXPECT_EQ(seen_.received[UPDATE], 0U);
    EXPECT_EQ(seen_.values, 0U);
}

TEST_P(slow_events, OfASecondBeginAreNotWhatTheCopiesHold)
{
    begin();
    event(ZRK4_EV_BOR, [](zrk4::sb_write& block) { block.begin_of_run("ANOTHER"); });
    EXPECT_EQ(seen_.not_copied, 1U) << "the first begin stays";
}
