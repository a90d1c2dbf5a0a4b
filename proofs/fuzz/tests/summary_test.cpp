// The record of a call of the fuzzers, and what is made of it.
#include <sstream>

#include <gtest/gtest.h>

#include "summary.h"

using namespace fuzz;

namespace {

const std::string GOOD = "run date=2026-01-02 target=blocks corpus=abc status=0 units=1000\n";
const std::string MORE = "run date=2026-01-02 target=copies corpus=def status=0 units=234\n";
const std::string FOUND = "run date=2026-01-02 target=entries corpus=123 status=77 units=7\n";

std::vector<one_run> read(const std::string& text)
{
    std::istringstream record(text);
    return runs_of(record);
}

} // namespace

TEST(FuzzSummary, AddsTheUnitsOfAllRuns) { EXPECT_EQ(last_line(read(GOOD + MORE)), "runs: 1234, findings: 0"); }

TEST(FuzzSummary, CountsARunThatEndedWithAnErrorAsAFinding)
{
    EXPECT_EQ(last_line(read(GOOD + FOUND)), "runs: 1007, findings: 1");
    EXPECT_EQ(complaints(read(GOOD + FOUND)), "entries: ended with status 77\n");
}

TEST(FuzzSummary, CountsARunWithoutStatisticsAsAFinding)
{
    for (const std::string line :
         {"run date=d target=t corpus=c status=0 units=\n", "run date=d target=t corpus=c status=0\n",
          "run date=d target=t corpus=c units=5\n", "run date=d target=t corpus=c status=0 units=5x\n"}) {
        EXPECT_EQ(read(line).size(), 1U);
        EXPECT_NE(last_line(read(line)).find("findings: 1"), std::string::npos) << line;
        EXPECT_EQ(complaints(read(line)), "t: its record is not complete\n") << line;
    }
}

TEST(FuzzSummary, IsNotContentWithNothing)
{
    EXPECT_EQ(complaints(read("")), "no fuzzer ran\n");
    EXPECT_EQ(last_line(read("")), "runs: 0, findings: 0");
    EXPECT_EQ(complaints(read("run date=d target=t corpus=c status=0 units=0\n")), "t: executed nothing\n");
}

TEST(FuzzSummary, IsContentWithRunsThatFoundNothing) { EXPECT_EQ(complaints(read(GOOD + MORE)), ""); }

TEST(FuzzSummary, PassesOverOtherLines)
{
    EXPECT_EQ(last_line(read("# a word\n" + GOOD + "\n")), "runs: 1000, findings: 0");
}

TEST(FuzzSummary, SumsMoreThan32Bits)
{
    const std::string line = "run date=d target=t corpus=c status=0 units=4000000000\n";
    EXPECT_EQ(last_line(read(line + line)), "runs: 8000000000, findings: 0");
}

TEST(FuzzSummary, KeepsRunsWithoutFindingsInTheLedger)
{
    EXPECT_EQ(ledger_rows(read(GOOD + FOUND + MORE)), "2026-01-02\tblocks\tabc\t1000\n2026-01-02\tcopies\tdef\t234\n");
}
