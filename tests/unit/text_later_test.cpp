// Texts that wait until the locks are given back.
#include "text_later.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "C_shm_buffer.h"
#include "bm_message.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "fault.h"

using namespace zrk4::test;
using namespace zrk4::impl;

namespace {

TEST(Message, HasADateABlankAndANewline)
{
    char text[] = "ev_update(): so it is";
    EXPECT_EQ(dates_marked(out_of([&] { bm_dump_message(text); })), "DATE ev_update(): so it is\n");
    char two_lines[] = "ends in one\n";
    EXPECT_EQ(dates_marked(out_of([&] { bm_dump_message(two_lines); })), "DATE ends in one\n\n");
}

TEST(TextLater, WithoutOneTextsComeAtOnce)
{
    captured_output captured;
    say("a %d", 1);
    EXPECT_EQ(dates_marked(captured.out()), "DATE a 1\n");
    captured.forget();
    say_plain("b %d\n", 2);
    EXPECT_EQ(captured.out(), "b 2\n");
    errno = ENOENT;
    say_perror("c");
    EXPECT_EQ(captured.err(), "c: No such file or directory\n");
}

TEST(TextLater, KeepsTextsInOrderUntilItGoes)
{
    captured_output captured;
    {
        const text_later kept;
        say("one");
        say_plain("two\n");
        errno = EINTR;
        say_perror("three");
        errno = 0;
        say("four");
        EXPECT_EQ(captured.out() + captured.err(), "");
    }
    EXPECT_EQ(dates_marked(captured.out()), "DATE one\ntwo\nDATE four\n");
    EXPECT_EQ(captured.err(), "three: Interrupted system call\n") << "the reason as it was";
}

TEST(TextLater, OutermostOneSpeaks)
{
    captured_output captured;
    {
        const text_later outer;
        {
            const text_later inner;
            say_plain("in\n");
        }
        EXPECT_EQ(captured.out(), "");
        say_plain("out\n");
    }
    EXPECT_EQ(captured.out(), "in\nout\n");
}

TEST(TextLater, EachThreadHasItsOwn)
{
    captured_output captured;
    const text_later kept;
    say_plain("later\n");
    std::thread([] { say_plain("at once\n"); }).join();
    EXPECT_EQ(captured.out(), "at once\n");
}

TEST(TextLater, CutsALineAt511Characters)
{
    const std::string longer(600, 'x');
    captured_output captured;
    say("%s", longer.c_str());
    EXPECT_EQ(dates_stripped(captured.out()), std::string(511, 'x') + "\n");
    captured.forget();
    say_plain("%s", longer.c_str());
    EXPECT_EQ(captured.out(), std::string(511, 'x'));
}

// The exception that follows a text speaks of errno, and writing to a full disk changes it.
TEST(TextLater, LeavesErrnoAlone)
{
    captured_output captured;
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(dup2(full, STDOUT_FILENO), 0);
    close(full);
    const text_later kept;
    say("text");
    errno = EIDRM;
    text_later::write_now();
    const int after = errno;
    std::clearerr(stdout);
    EXPECT_EQ(after, EIDRM);
}

/// Something of the partition layer that speaks at once, on either stream.
struct speaker {
    const char* name;
    void (*speak)(C_shm_buffer& part);

    friend std::ostream& operator<<(std::ostream& os, const speaker& one) { return os << one.name; }
};

void fail_make(C_shm_buffer& /*part*/)
{
    C_shm none;
    none.make("T_NONE", -1, 1);
}

void fail_semaphore(const std::function<void()>& action)
{
    const fault broken = fault::fails("semop", EFBIG);
    EXPECT_THROW(action(), SysError);
}

const speaker SPEAKERS[] = {
    {"Bufmode", [](C_shm_buffer& part) { part.bufmode(9); }},
    {"WrongSlot", [](C_shm_buffer& part) { part.ctrl(7, true); }},
    {"NoSlotLocks", [](C_shm_buffer& part) { part.ctrl(0, true); }},
    {"Gate", [](C_shm_buffer& part) { fail_semaphore([&] { part.gate(true); }); }},
    {"GetBuffer", [](C_shm_buffer& part) { fail_semaphore([&] { part.get_buffer(BM_NO_WAIT, true); }); }},
    {"Registry", [](C_shm_buffer& part) { part.rem_shmid_entry(-4711); }},
    {"Make", fail_make},
};

class TextLaterAndPartitions : public CleanNamespace, public testing::WithParamInterface<speaker> {};

INSTANTIATE_TEST_SUITE_P(All, TextLaterAndPartitions, testing::ValuesIn(SPEAKERS),
                         [](const auto& one) { return std::string(one.param.name); });

// The partition layer speaks at once; what was collected before belongs before it.
TEST_P(TextLaterAndPartitions, CollectedTextsComeBeforeTheOnesThatComeAtOnce)
{
    C_shm_buffer part("T_TEXTS", 1, 1, false);
    captured_output captured;
    const text_later kept;
    say_plain("collected\n");
    GetParam().speak(part);
    const std::string spoken = captured.out();
    EXPECT_EQ(spoken.rfind("collected\n", 0), 0U) << spoken;
    EXPECT_GT(spoken.size() + captured.err().size(), std::string("collected\n").size()) << "it did speak";
}

// Partitions are attached with a slot's lock in hand; there is no exception to follow that must come behind the text.
TEST(TextLater, FailedAttachmentIsCollected)
{
    captured_output captured;
    {
        const text_later kept;
        say_plain("before\n");
        C_shm().find(4711);
        say_plain("behind\n");
        EXPECT_EQ(captured.out() + captured.err(), "");
    }
    EXPECT_EQ(captured.out(), "before\nSYSERROR: 22\nbehind\n");
    EXPECT_EQ(captured.err(), "C_shm_find - shmget: Invalid argument\n");
}

class TextLaterAndLocks : public CleanNamespace {};

TEST_F(TextLaterAndLocks, LockOfASlotSpeaksAtOnceToo)
{
    const C_shm part("T_SLOTS", 1, 1, /*sems=*/true);
    captured_output captured;
    const text_later kept;
    say_plain("collected\n");
    fail_semaphore([&] { part.ctrl(0, true); });
    EXPECT_EQ(captured.out().rfind("collected\nthrow C_shm::ctrl UP sem: 4", 0), 0U);
}

} // namespace
