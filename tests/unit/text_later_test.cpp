// Texts that wait until the locks are given back.
#include "text_later.h"

#include <cerrno>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "C_shm.h"
#include "bm_message.h"
#include "captured_output.h"
#include "clean_namespace.h"

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

TEST(TextLater, LeavesErrnoAlone)
{
    captured_output captured;
    const text_later kept;
    say("text");
    errno = EIDRM;
    text_later::write_now();
    EXPECT_EQ(errno, EIDRM);
    EXPECT_EQ(dates_marked(captured.out()), "DATE text\n");
}

class TextLaterAndPartitions : public CleanNamespace {};

// The partition layer speaks at once; what was collected before belongs before it.
TEST_F(TextLaterAndPartitions, CollectedTextsComeBeforeTheOnesThatComeAtOnce)
{
    C_shm part("T_TEXTS", 1, 1, false);
    captured_output captured;
    const text_later kept;
    say_plain("collected\n");
    part.bufmode(9);
    EXPECT_EQ(captured.out(), "collected\nC_shm::bufmode: Invalid mode 9 request\n");
    say_plain("more\n");
    part.ctrl(0, true);
    EXPECT_EQ(captured.out(), "collected\nC_shm::bufmode: Invalid mode 9 request\nmore\n"
                              "ctrl(): No additional semaphores available \n");
}

} // namespace
