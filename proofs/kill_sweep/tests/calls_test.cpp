// Which calls of a role are swept.
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "calls.h"

using namespace sweep;

namespace {

using numbers = std::vector<int>;

TEST(SweptCalls, AreAllCallsThatDoSomething)
{
    const std::vector<call> calls(6, {SYS_semtimedop, 0});
    EXPECT_EQ(swept_calls(calls), (numbers{1, 2, 3, 4, 5, 6}));
}

TEST(SweptCalls, AreThreeOfALongSearchThatFindsNothing)
{
    std::vector<call> calls{{SYS_shmget, 1}};
    calls.insert(calls.end(), 9, {SYS_shmget, -2});
    calls.push_back({SYS_shmget, 2});
    EXPECT_EQ(swept_calls(calls), (numbers{1, 2, 6, 10, 11}));
}

TEST(SweptCalls, AreAllOfAShortRow) { EXPECT_EQ(swept_calls({4, {SYS_shmget, -2}}), (numbers{1, 2, 3, 4})); }

TEST(SweptCalls, TellAnswersApart)
{
    EXPECT_EQ(swept_calls({{SYS_kill, -3}, {SYS_kill, -1}, {SYS_kill, -3}, {SYS_kill, -1}, {SYS_kill, -3}}),
              (numbers{1, 2, 3, 4, 5}));
}

TEST(SweptCalls, AreNoneWhereNoneIsMade) { EXPECT_TRUE(swept_calls({}).empty()); }

TEST(CallName, IsTheKernelsNameOrTheNumber)
{
    EXPECT_EQ(name_of_call(SYS_semtimedop), "semtimedop");
    EXPECT_EQ(name_of_call(9999), "call_9999");
}

} // namespace
