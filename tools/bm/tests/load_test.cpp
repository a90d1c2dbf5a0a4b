// Generator and consumer against each other, and the onlooker between them.
#include <memory>

#include <gtest/gtest.h>

#include "C_shm_buffer.h"
#include "background_bm.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "latch.h"
#include "model/arrivals.h"
#include "model/load_mark.h"
#include "sb_write.h"

namespace bm::test {
namespace {

using namespace zrk4::test;
using words = std::vector<std::string>;

class Load : public CleanNamespace, public testing::WithParamInterface<const char*> {
  protected:
    words with(words arguments) const
    {
        arguments.insert(arguments.end(), {"--records", GetParam()});
        return arguments;
    }
    outcome run(const words& arguments) const { return run_bm(with(arguments)); }
    /// A generator of which two events have been read.
    std::unique_ptr<background_bm> generator_at_work() const
    {
        background_bm reader(with({"read", "--count", "2"}));
        EXPECT_TRUE(reader.complains("bm: reading"));
        auto writer = std::make_unique<background_bm>(with({"write", "--json", "--rate", "20"}));
        EXPECT_EQ(reader.wait(), 0) << reader.seen_out;
        return writer;
    }
};
INSTANTIATE_TEST_SUITE_P(Records, Load, testing::Values("2010", "2024"));

TEST_P(Load, WhatIsWrittenIsReadAndBalanced)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm reader(with({"read", "--json", "--count", "12", "--patience", "20"}));
    ASSERT_TRUE(reader.complains("bm: reading"));
    const outcome written =
        run({"write", "--json", "--blocks", "3", "--size", "5001", "--rate", "20", "--count", "12", "--buffers", "16"});
    EXPECT_EQ(written.status, 0) << written.err;
    const nlohmann::json w = written.document();
    EXPECT_EQ(w["schema"], "bm.write");
    EXPECT_EQ(w["events"], 12);
    EXPECT_EQ(w["blocks"], 36);
    EXPECT_EQ(w["bytes"], 36 * 5001);
    EXPECT_EQ(w["out"], 0);
    EXPECT_EQ(w["balanced"], true);
    EXPECT_EQ(reader.wait(), 0) << reader.seen_out << reader.seen_err;
    const auto r = nlohmann::json::parse(reader.seen_out);
    EXPECT_EQ(r["schema"], "bm.read");
    EXPECT_EQ(r["events"], 12);
    EXPECT_EQ(r["blocks"], 36);
    EXPECT_EQ(r["holes"].get<int>() + r["damaged"].get<int>() + r["lost"].get<int>() + r["strangers"].get<int>(), 0);
    EXPECT_EQ(r["balanced"], true);
}

TEST_P(Load, ByTheirIdsEventsMayFollowEachOtherFasterThanTheTimeMask)
{
    running_master master(GetParam(), {"--mode", "evid"});
    ASSERT_TRUE(master.up());
    const words member{"--mode", "evid", "--json", "--count", "30"};
    const auto joined = [&](words arguments) {
        arguments.insert(arguments.end(), member.begin(), member.end());
        return with(arguments);
    };
    background_bm reader(joined({"read", "--patience", "20"}));
    ASSERT_TRUE(reader.complains("bm: reading"));
    const outcome written = run_bm(joined({"write", "--blocks", "2", "--rate", "100", "--buffers", "64"}));
    EXPECT_EQ(written.status, 0) << written.out << written.err;
    EXPECT_EQ(reader.wait(), 0) << reader.seen_out << reader.seen_err;
    const auto r = nlohmann::json::parse(reader.seen_out);
    EXPECT_EQ(r["events"], 30) << "two blocks with one id are one event";
    EXPECT_EQ(r["blocks"], 60);
    EXPECT_EQ(r["balanced"], true);
    const outcome refused = run({"write", "--rate", "100", "--count", "30"});
    EXPECT_EQ(refused.status, 64) << "by their times they would be one event";
}

TEST_P(Load, AReaderJudgesTheBlocksThatItAskedFor)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm reader(with({"read", "--json", "--count", "8", "--blocks", "LOAD.2", "--patience", "20"}));
    ASSERT_TRUE(reader.complains("bm: reading"));
    EXPECT_EQ(run({"write", "--blocks", "3", "--rate", "20", "--count", "8"}).status, 0);
    EXPECT_EQ(reader.wait(), 0) << reader.seen_out;
    EXPECT_EQ(nlohmann::json::parse(reader.seen_out)["blocks"], 8);
}

TEST_P(Load, TextSaysTheSame)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    const outcome written = run({"write", "--rate", "20", "--count", "3"});
    EXPECT_EQ(written.status, 0) << written.err;
    EXPECT_EQ(written.out.substr(0, 34), "wrote 3 events, 3 blocks, 12.3 kB ");
    EXPECT_NE(written.out.find("refused 0, waited for a buffer 0 times, buffers not back 0: the balance is right\n"),
              std::string::npos)
        << written.out;
}

TEST_P(Load, AnInterruptedGeneratorTakesStockAndLeaves)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    const auto writer = generator_at_work();
    EXPECT_EQ(writer->end(SIGINT), 0) << writer->seen_out << writer->seen_err;
    EXPECT_GE(nlohmann::json::parse(writer->seen_out)["events"], 2);
    EXPECT_EQ(run_bm({"ls", "--json"}).document()["partitions"].size(), 2U) << "its partition went with it";
}

TEST_P(Load, AGeneratorTakesItsPartitionAlongWhenItsTerminalCloses)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    const auto writer = generator_at_work();
    EXPECT_EQ(writer->end(SIGHUP), 0) << writer->seen_out << writer->seen_err;
    EXPECT_EQ(segments_in_namespace(), 2) << "the master's";
}

TEST_P(Load, AGeneratorTakesItsPartitionAlongWhenNobodyReadsItsBalance)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    const auto writer = generator_at_work();
    writer->stop_listening();
    EXPECT_EQ(writer->end(SIGINT), 0) << writer->seen_err;
    EXPECT_EQ(segments_in_namespace(), 2) << "the master's";
}

TEST_P(Load, RecordsAreThoseOfTheExchangeWhenNobodyNamesThem)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm watcher({"watch", "1", "-n", "1", "--json"});
    ASSERT_TRUE(watcher.complains("bm: watching"));
    EXPECT_EQ(run_bm({"write", "--rate", "20", "--count", "2"}).status, 0);
    EXPECT_EQ(watcher.wait(), 0) << watcher.seen_err;
    EXPECT_EQ(nlohmann::json::parse(watcher.seen_out)["event"]["blocks"][0]["records"], std::stoi(GetParam()));
}

TEST_P(Load, WithoutAMasterThereIsNothingToJoin)
{
    for (const words& joins : {words{"write"}, words{"read"}, words{"watch", "1"}}) {
        const outcome seen = run(joins);
        EXPECT_EQ(seen.status, 3) << testing::PrintToString(joins);
        EXPECT_EQ(seen.err, "bm: no partition has the name \"ZRK4_CLIENT_SLOTS\"\n"
                            "  needed: a master, which makes the slot partitions\n  try:    bm master\n");
    }
}

TEST_P(Load, AReaderThatHearsNothingTimesOut)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    const outcome seen = run({"read", "--patience", "0.2", "--json"});
    EXPECT_EQ(seen.status, 4) << seen.err;
    EXPECT_EQ(seen.document()["silent"], true);
    EXPECT_EQ(seen.document()["balanced"], false);
}

TEST_P(Load, ABlockThatWasSpoiltMakesTheBalanceWrong)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm reader(with({"read", "--json", "--count", "3", "--work", "300"}));
    ASSERT_TRUE(reader.complains("bm: reading"));
    background_bm writer(with({"write", "--rate", "20", "--count", "3", "--buffers", "8"}));
    // While the reader is at work on the first event, the last byte of every buffer is changed.
    std::unique_ptr<C_shm_buffer> part;
    const auto spoil = [&] {
        if (!part || !part->found()) part = std::make_unique<C_shm_buffer>("BM_LOAD.LOAD");
        for (int i = 0; i < part->getBufferCount(); ++i) {
            if (part->get_bufptr()[i].queued() || !load_in({part->buffer_addr(i), 4096}).whole) continue;
            part->buffer_addr(i)[2000] ^= 1;
            return true;
        }
        return false;
    };
    ASSERT_TRUE(eventually(spoil));
    EXPECT_EQ(reader.wait(), 1) << reader.seen_out;
    EXPECT_GE(nlohmann::json::parse(reader.seen_out)["damaged"], 1);
    EXPECT_EQ(writer.wait(), 0) << writer.seen_out;
}

TEST_P(Load, WithoutBuffersTheGeneratorTimesOut)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    latch made;
    child holder([&] {
        C_shm_buffer part("BM_LOAD.LOAD", 2, 4096, false);
        part.get_buffer(BM_NO_WAIT, true);
        part.get_buffer(BM_NO_WAIT, true);
        made.open();
        pause();
    });
    made.wait();
    const outcome seen = run({"write", "--json", "--count", "1", "--buffers", "2", "--patience", "0.2"});
    EXPECT_EQ(seen.status, 4) << seen.err;
    EXPECT_EQ(seen.document()["starved"], true);
    EXPECT_EQ(seen.document()["out"], 2);
    EXPECT_EQ(run_bm({"rm", "BM_LOAD.LOAD", "--force", "--force"}).status, 0);
}

TEST_P(Load, WatchPrintsHeadsChannelsAndValues)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm watcher(with({"watch", "NORMAL", "-n", "2", "--values", "hex", "--most", "1", "--slow", "NONE"}));
    ASSERT_TRUE(watcher.complains("bm: watching"));
    const outcome written = run({"write", "--name", "ADC", "--blocks", "2", "--rate", "20", "--count", "4"});
    EXPECT_EQ(written.status, 0) << written.err;
    EXPECT_EQ(watcher.wait(), 0) << watcher.seen_err;
    const std::string& out = watcher.seen_out;
    EXPECT_EQ(out.substr(0, 6), "event ");
    EXPECT_NE(out.find(" NORMAL (1) id "), std::string::npos) << out;
    EXPECT_NE(out.find(", mask 0x1, 2 of 2 blocks\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  ADC.1  server ADC.1, " + std::string(GetParam()) + " records, time "), std::string::npos)
        << out;
    const std::string bytes = GetParam() == std::string("2024") ? "4.10 kB" : "4.08 kB";
    EXPECT_NE(out.find(", mask 0x1, status 0, " + bytes + "\n"), std::string::npos) << out;
    EXPECT_NE(out.find("    BM.LOAD  type 41, error 0, "), std::string::npos) << out;
    EXPECT_NE(out.find(" bytes: 3164616f6c2e6d62\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  slow NONE = not there\n"), std::string::npos) << out;
}

TEST_P(Load, WatchPrintsADocumentALineAndLeavesOnASignal)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    background_bm watcher(with({"watch", "1", "--json", "--blocks", "LOAD", "--mask", "0x1", "--ratio", "0"}));
    ASSERT_TRUE(watcher.complains("bm: watching"));
    background_bm writer(with({"write", "--rate", "20"}));
    ASSERT_TRUE(watcher.says("\n")) << watcher.seen_err;
    EXPECT_EQ(watcher.end(SIGINT), 0);
    EXPECT_EQ(writer.end(SIGTERM), 0) << writer.seen_out;
    const auto one = nlohmann::json::parse(watcher.seen_out.substr(0, watcher.seen_out.find('\n')));
    EXPECT_EQ(one["schema"], "bm.watch");
    EXPECT_EQ(one["event"]["type_name"], "NORMAL");
    EXPECT_EQ(one["event"]["blocks"][0]["name"], "LOAD");
    EXPECT_EQ(one["event"]["blocks"][0]["records"], std::stoi(GetParam()));
    EXPECT_EQ(one["event"]["blocks"][0]["channels"][0]["name"], "BM.LOAD");
    EXPECT_EQ(one["event"]["blocks"][0]["sound"], true);
}

TEST_P(Load, AWatchThatEndsTooEarlyTimesOut)
{
    running_master master(GetParam());
    ASSERT_TRUE(master.up());
    EXPECT_EQ(run({"watch", "1", "-n", "1", "--seconds", "0.1"}).status, 4);
    EXPECT_EQ(run({"watch", "1", "--seconds", "0.1"}).status, 0);
}

TEST(LoadUsage, WrongNumbersAreWrongUsage)
{
    for (const words& wrong :
         {words{"write", "--size", "100"}, words{"write", "--rate", "100"}, words{"write", "--type", "32"},
          words{"read", "--type", "MOON"}, words{"watch"}, words{"watch", "1", "--mask", "x"},
          words{"watch", "1", "--values", "f16"}, words{"write", "--count", "0"}}) {
        const outcome seen = run_bm(wrong);
        EXPECT_EQ(seen.status, 64) << testing::PrintToString(wrong) << seen.err;
        EXPECT_EQ(seen.out, "");
    }
    EXPECT_EQ(run_bm({"write", "--rate", "100"}).err,
              "bm: events this close have the same key\n"
              "  seen:   100 events/s with a time mask of 20000 us\n"
              "  needed: at most 25.0 events/s\n"
              "  try:    a smaller --time-mask, or --mode evid, in all clients alike\n");
}

TEST(Arrivals, InAnyOrderNothingIsLost)
{
    arrivals seen;
    for (const int64_t n : {3, 5, 4, 2, 6}) seen.came(n);
    EXPECT_EQ(seen.count(), 5);
    EXPECT_EQ(seen.lost(), 0);
    EXPECT_EQ(seen.repeated(), 0);
}

TEST(Arrivals, GapsAndRepetitionsAreCounted)
{
    arrivals seen;
    for (const int64_t n : {10, 11, 14, 14, 11, 17}) seen.came(n);
    EXPECT_EQ(seen.lost(), 4) << "12, 13, 15, 16";
    EXPECT_EQ(seen.repeated(), 2);
    seen.came(13);
    EXPECT_EQ(seen.lost(), 3);
}

TEST(LoadMark, AnyChangedByteIsSeen)
{
    std::string buffer(1000, '\0');
    zrk4::sb_write block(buffer.data(), buffer.size(), zrk4::sb_form::of_2024, {"A"});
    const load_mark mark{LOAD_MAGIC, 77, 5, 0, 101};
    block.sub_block(LOAD_CHANNEL, ZRK4_BLOCK_1CHAN_2010);
    block.append(&mark, sizeof mark);
    char* pattern = block.reserve(mark.bytes);
    fill_pattern(mark, pattern);
    const size_t bytes = block.finish();
    EXPECT_TRUE(load_in({buffer.data(), bytes}).whole);
    for (size_t i = 0; i < mark.bytes; ++i) {
        pattern[i] ^= 0x10;
        EXPECT_FALSE(load_in({buffer.data(), bytes}).whole) << i;
        pattern[i] ^= 0x10;
    }
    EXPECT_TRUE(load_in({buffer.data(), bytes}).whole);
}

} // namespace
} // namespace bm::test
