// A host on which one call fails, or datagrams get lost.
#include "scenario.h"

#include <filesystem>

#include <gtest/gtest.h>
#include <unistd.h>

#include "clean_namespace.h"

using namespace call_faults;

namespace {

class CallFaults : public zrk4::test::CleanNamespace {
  protected:
    CallFaults() { std::filesystem::create_directories(folder); }
    ~CallFaults() override { std::filesystem::remove_all(folder); }
    finding run(const std::string& where, bool careless = false)
    {
        return run_point({ROLE_PROGRAM, FAULTS_LIBRARY}, *point::of(where), folder, careless);
    }
    const std::string folder = testing::TempDir() + "call_faults." + std::to_string(getpid());
};

#if PRELOAD_WORKS // a program with a sanitizer in it wants that to come first

TEST_F(CallFaults, ACallThatFailsInAWriterCostsItsEventsAtMost)
{
    const finding found = run("writer:sendto:2:105");
    EXPECT_TRUE(found.met);
    EXPECT_EQ(found.victim, "exit:0");
    EXPECT_FALSE(found.strange || found.stuck || found.gave_up);
    EXPECT_EQ(found.heard, 3) << "of four";
    EXPECT_EQ(found.missing, 0);
    EXPECT_EQ(found.left, 0);
}

TEST_F(CallFaults, APlanBehindTheLastCallIsNotMet)
{
    const finding found = run("writer:sendto:1000:105");
    EXPECT_FALSE(found.met);
    EXPECT_EQ(found.heard, 4);
}

TEST_F(CallFaults, AMasterThatIsRefusedItsSegmentsIsFollowedByAnother)
{
    const finding found = run("master:semget:1:28");
    EXPECT_EQ(found.victim, "exit:10");
    EXPECT_TRUE(found.gave_up);
    EXPECT_FALSE(found.strange || found.stuck);
    EXPECT_EQ(found.missing, 0);
    EXPECT_EQ(found.left, 0);
}

TEST_F(CallFaults, AFifthOfTheDatagramsLostLosesNoSlotAndCallsNobodyTwice)
{
    const finding found = run("writer:datagram:drop:20:7");
    EXPECT_GT(found.kept_back, found.sent / 10);
    EXPECT_EQ(found.heard, found.sent - found.kept_back);
    EXPECT_FALSE(found.strange || found.stuck || found.gave_up);
    EXPECT_EQ(found.missing, 0);
}

TEST_F(CallFaults, ShortDatagramsAreDroppedByTheReader)
{
    const finding found = run("writer:datagram:short:2");
    EXPECT_EQ(found.kept_back, found.sent / 2);
    EXPECT_EQ(found.heard, found.sent - found.kept_back);
    EXPECT_FALSE(found.strange || found.stuck);
    EXPECT_EQ(found.missing, 0);
}

TEST_F(CallFaults, ABufferThatIsNotGivenBackIsSeen)
{
    const finding found = run("writer:sendto:2:105", /*careless=*/true);
    EXPECT_EQ(found.missing, 1);
}

#endif

} // namespace
