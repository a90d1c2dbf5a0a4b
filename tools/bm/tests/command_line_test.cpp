// What every command has in common: options, exit statuses, the form of errors.
#include <gtest/gtest.h>

#include "cli/output.h"
#include "run_bm.h"

namespace bm::test {
namespace {

TEST(CommandLine, VersionTellsCommandLayoutAndSchema)
{
    const outcome seen = run_bm({"version"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out, "bm " BM_VERSION "\npartition layout 102\nJSON schema 1\n");
    EXPECT_EQ(seen.err, "");
}

TEST(CommandLine, ADocumentBeginsWithItsSchemaAndItsVersion)
{
    const outcome seen = run_bm({"version", "--json"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.document()["schema"], "bm.version");
    EXPECT_EQ(seen.document()["version"], 1);
    EXPECT_EQ(seen.out.substr(0, 30), "{\n  \"schema\": \"bm.version\",\n  ");
}

TEST(CommandLine, CommonOptionsAreTakenBeforeAndBehindTheCommand)
{
    EXPECT_EQ(run_bm({"--json", "version"}).out, run_bm({"version", "--json"}).out);
}

TEST(CommandLine, HelpIsAskedForAndNoError)
{
    const outcome seen = run_bm({"--help"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_NE(seen.out.find("Exit status: 0 fine"), std::string::npos);
}

TEST(CommandLine, WrongUsageEndsWith64)
{
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{},
                                                  {"no-such-command"},
                                                  {"ls", "--no-such-option"},
                                                  {"ls", "--records", "2011"},
                                                  {"ls", "--names", "ONE"},
                                                  {"ls", "--names", "ONE,"},
                                                  {"ls", "--names", "ONE,TWO,THREE"}}) {
        const outcome seen = run_bm(wrong);
        EXPECT_EQ(seen.status, 64) << testing::PrintToString(wrong);
        EXPECT_NE(seen.err, "") << testing::PrintToString(wrong);
        EXPECT_EQ(seen.out, "") << testing::PrintToString(wrong);
    }
}

TEST(CommandLine, AnErrorNamesCauseWhatWasSeenAndWhatIsNeeded)
{
    EXPECT_EQ(run_bm({"ls", "--names", "ONE"}).err, "bm: --names takes two names with a comma between them\n"
                                                    "  seen:   \"ONE\"\n"
                                                    "  needed: CLIENTS,EVENTS\n");
}

TEST(Texts, SizesHaveThreeDigits)
{
    EXPECT_EQ(size_text(0), "0 B");
    EXPECT_EQ(size_text(999), "999 B");
    EXPECT_EQ(size_text(1000), "1.00 kB");
    EXPECT_EQ(size_text(34'000'000), "34.0 MB");
    EXPECT_EQ(size_text(999'600), "1.00 MB");
    EXPECT_EQ(size_text(68'700'000'000), "68.7 GB");
}

TEST(Texts, SpansHaveTwoUnitsAtMost)
{
    EXPECT_EQ(span_text(0.0204), "20 ms");
    EXPECT_EQ(span_text(3.21), "3.2 s");
    EXPECT_EQ(span_text(130), "2 min 10 s");
    EXPECT_EQ(span_text(18730), "5 h 12 min");
    EXPECT_EQ(span_text(-3), "-3.0 s");
}

TEST(Texts, WhatATerminalWouldObeyIsShownAsNumbers)
{
    EXPECT_EQ(printable("A\x1b[2J\n\x7f\xff z"), "A\\x1b[2J\\x0a\\x7f\\xff z");
}

TEST(Texts, ColumnsAreAsWideAsTheirWidestCell)
{
    table lines({{"NAME"}, {"N", table::right}});
    lines.row({"A", "100"});
    lines.row({"LONGER", "1"});
    lines.row({"B"});
    EXPECT_EQ(lines.text(false), "NAME      N\nA       100\nLONGER    1\nB\n");
}

} // namespace
} // namespace bm::test
