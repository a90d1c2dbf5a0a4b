// The verdict: a whole run has no complaint, and every kind of loss has one.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>

#include "summary.h"

using namespace demo;

namespace {

constexpr int64_t TICKS = 200;
constexpr std::array<uint64_t, 4> EVENTS_IN_TWO_SECONDS{1, 1, 2, 1}; // begin, end, environment, update

/// The record of a run of `TICKS` events as it is when all goes well; the prescaled reader takes what its trigger or
/// its time ratio gives it.
class finished_run {
  public:
    finished_run() : record(TICKS)
    {
        int64_t last_us = 0;
        for (int64_t tick = 0; tick < TICKS; ++tick) {
            record.head().gate.enter(tick);
            tick_record& one = at(tick);
            one.registered = blocks_per_event();
            const int64_t begun_us = 1'000'000 + tick * PERIOD_US;
            one.to[EVERY_BLOCK] = {1, blocks_per_event(), 1000 * (tick + 1), begun_us, begun_us + 100};
            one.to[TWO_BLOCKS] = {1, 2, 1000, begun_us, begun_us + 100};
            if (tick % TICKS_PER_TRIGGER != 0 && begun_us - last_us < 200'000) continue;
            one.to[PRESCALED] = {1, blocks_per_event(), 1000, begun_us, begun_us + 100};
            last_us = begun_us;
        }
        for (reader_record& reader : record.head().reader) reader.bytes_in_place = 1000;
        run_control_record& control = record.head().control;
        for (size_t kind = 0; kind < RUN_EVENTS.size(); ++kind)
            control.sent[kind] = control.received[kind] = EVENTS_IN_TWO_SECONDS[kind];
        control.channels = control.by_name = 12;
    }
    tick_record& at(int64_t tick) { return record.ticks()[static_cast<size_t>(tick)]; }
    std::vector<std::string> verdict() const
    {
        run_figures run = count(record);
        run.partitions = {{"DATA", 1, 5, 5, 5, false}, {"SLOTS", 2, 5, 4, 4, true}};
        return complaints(run);
    }

    run_record record;
};

using lines = std::vector<std::string>;

} // namespace

TEST(Verdict, OfAWholeRunIsClean) { EXPECT_EQ(finished_run().verdict(), lines{}); }

TEST(Verdict, NamesAnEventWithoutAllItsBlocks)
{
    finished_run run;
    --run.at(7).registered;
    EXPECT_EQ(run.verdict(),
              (lines{"1 of 200 events without all their blocks", "999 blocks registered instead of 1000"}));
}

TEST(Verdict, NamesEventsThatWereNeverBegun)
{
    run_record longer(TICKS + 1);
    longer.head().gate.enter(0);
    const lines found = complaints(count(longer));
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0], "1 events begun instead of 201");
}

TEST(Verdict, AllowsAnInterruptedRunToBeShort)
{
    finished_run whole;
    run_figures run = count(whole.record);
    run.ticks = 1000;
    run.partitions = {{"DATA", 1, 5, 5, 5, false}};
    EXPECT_EQ(complaints(run), lines{"200 events begun instead of 1000"});
    run.interrupted = true;
    EXPECT_EQ(complaints(run), lines{});
}

TEST(Verdict, NamesAnEventThatAReaderDidNotGet)
{
    finished_run run;
    run.at(7).to[EVERY_BLOCK] = {};
    run.at(8).to[TWO_BLOCKS] = {};
    run.at(TICKS_PER_TRIGGER).to[PRESCALED] = {};
    EXPECT_EQ(run.verdict(),
              (lines{"reader A: 1 events missing", "reader B: 1 events missing", "reader C: 1 events missing"}));
}

TEST(Verdict, NamesAnEventThatCameTwice)
{
    finished_run run;
    run.at(7).to[TWO_BLOCKS].times = 2;
    EXPECT_EQ(run.verdict(), lines{"reader B: 1 events delivered more than once"});
}

TEST(Verdict, NamesAnEventThatCameWithoutABlock)
{
    finished_run run;
    --run.at(7).to[EVERY_BLOCK].blocks;
    EXPECT_EQ(run.verdict(), lines{"reader A: 1 events without all the blocks that it wants"});
}

TEST(Verdict, NamesAnEventThatCameTooSoonToAPrescaledReader)
{
    finished_run run;
    run.at(3).to[PRESCALED] = run.at(3).to[EVERY_BLOCK];
    EXPECT_EQ(run.verdict(), lines{"reader C: 1 events that were not due to it"});
}

TEST(Verdict, NamesEventsOverdueForAPrescaledReader)
{
    finished_run run;
    for (int64_t tick = 1; tick < TICKS_PER_TRIGGER; ++tick) run.at(tick).to[PRESCALED] = {};
    EXPECT_EQ(run.verdict(), lines{"reader C: 9 events missing"}) << "from 410 ms after the last one up to the trigger";
}

TEST(Verdict, NamesBytesThatWereNotReadInPlace)
{
    finished_run run;
    run.record.head().reader[EVERY_BLOCK].bytes_copied = 12;
    EXPECT_EQ(run.verdict(), lines{"reader A: 12 bytes not read in place"});
}

TEST(Verdict, NamesDamagedBlocksAndStrangeEvents)
{
    finished_run run;
    run.record.head().reader[EVERY_BLOCK].damaged = 1;
    run.record.head().reader[TWO_BLOCKS].strangers = 2;
    EXPECT_EQ(run.verdict(), (lines{"reader A: 1 blocks damaged", "reader B: 2 events that are no tick of this run"}));
}

TEST(Verdict, NamesRefusedBlocks)
{
    finished_run run;
    run.record.head().writer[1].refused = 3;
    EXPECT_EQ(run.verdict(), lines{"3 blocks refused"});
}

TEST(Verdict, NamesRunControlEventsThatWereNotSentOrDidNotCome)
{
    const std::string received[] = {"0 begin events received of 1", "0 end events received of 1",
                                    "1 environment events received of 2", "0 update events received of 1"};
    const std::string sent[] = {"0 begin events sent instead of 1", "0 end events sent instead of 1",
                                "1 environment events sent instead of 2", "0 update events sent instead of 1"};
    for (size_t kind = 0; kind < RUN_EVENTS.size(); ++kind) {
        finished_run run;
        --run.record.head().control.received[kind];
        EXPECT_EQ(run.verdict(), lines{"run control: " + received[kind]});
        --run.record.head().control.sent[kind];
        EXPECT_EQ(run.verdict(), lines{"run control: " + sent[kind]});
    }
}

TEST(Verdict, NamesSlowChannelsThatWereNotReadByName)
{
    finished_run run;
    run.record.head().control.by_name = 11;
    EXPECT_EQ(run.verdict(), lines{"run control: 11 of 12 slow channels read by name"});
    run.record.head().control.channels = run.record.head().control.by_name = 0;
    EXPECT_EQ(run.verdict(), lines{"run control: no slow channel in the dictionary"});
}

TEST(Verdict, NamesSlowValuesAndEventsThatWereNotAsTheyWereSent)
{
    finished_run run;
    run_control_record& control = run.record.head().control;
    control.strangers = 1;
    control.mistaken = 2;
    control.not_copied = 3;
    control.writer.refused = 4;
    EXPECT_EQ(run.verdict(), (lines{"4 blocks refused", "run control: 1 events that were not due",
                                    "run control: 2 values not as they were sent",
                                    "run control: 3 events or blocks that the local copies did not take"}));
}

TEST(Verdict, NamesAPartitionThatIsNotWhole)
{
    finished_run whole;
    run_figures run = count(whole.record);
    run.partitions = {{"DATA", 1, 5, 4, 5, false}, {"SLOTS", 2, 5, 4, 3, true}, {"GONE", -1, 0, 0, 0, false}};
    EXPECT_EQ(complaints(run), (lines{"partition DATA: 4 in the free queue, semaphore 1 at 5, instead of 5",
                                      "partition SLOTS: 4 in the free queue, semaphore 1 at 3, instead of 4",
                                      "partition GONE: not found"}));
    run.partitions.clear();
    EXPECT_EQ(complaints(run), lines{"no partition was looked at"});
}

TEST(Verdict, NamesProcessesThatFailed)
{
    finished_run whole;
    run_figures run = count(whole.record);
    run.partitions = {{"DATA", 1, 5, 5, 5, false}};
    run.failures = {"writer memory: ended by signal 9"};
    EXPECT_EQ(complaints(run), lines{"writer memory: ended by signal 9"});
    EXPECT_NE(summary_text(run).find("WRONG: writer memory: ended by signal 9"), std::string::npos);
}

TEST(Summary, TellsTheLatencies)
{
    const run_figures run = count(finished_run().record);
    EXPECT_EQ(run.readers[EVERY_BLOCK].latency.p50_us, 100.0);
    EXPECT_EQ(run.readers[EVERY_BLOCK].latency.p99_us, 198.0);
    std::vector<int64_t> none;
    EXPECT_EQ(percentiles_of(none).p99_us, 0.0);
}

TEST(Summary, TellsEveryFigure)
{
    finished_run whole;
    run_figures run = count(whole.record);
    run.partitions = {{"DATA", 1, 5, 5, 5, false}};
    const std::string text = summary_text(run);
    for (const char* part : {"begun 200   complete 200   blocks per event 5.00 of 5", "reader A   delivered 200",
                             "bytes in place 1000   copied 0", "p50 100.0 us   p99 198.0 us",
                             "begin 1/1   end 1/1   environment 2/2   update 1/1",
                             "slow channels in the dictionary 12   read by name 12", "all accounted for"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;
}
