// The raw record.
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "raw_record.h"

namespace bench {
namespace {

record of(const std::string& text)
{
    std::istringstream in(text);
    record r;
    r.read(in);
    return r;
}

TEST(Record, ReadsWhatItWrites)
{
    const figure_line line{3, "one/1KiB/1cpu", "library", "p50_us", 12.25};
    const record r = of(to_text(line) + '\n');
    EXPECT_EQ(r.value(3, "one/1KiB/1cpu", "library", "p50_us"), 12.25);
}

TEST(Record, WhatWasCountedOnceHoldsForEveryRound)
{
    const record r = of("0\tshape/1/1/1\tlibrary\tcalls\t29\n");
    EXPECT_EQ(r.value(7, "shape/1/1/1", "library", "calls"), 29);
    EXPECT_FALSE(r.value(7, "shape/1/1/1", "strict", "calls").has_value());
}

TEST(Record, OfOneRoundSaysNothingAboutAnother)
{
    EXPECT_FALSE(of("1\ts\tlibrary\tcalls\t29\n").value(2, "s", "library", "calls").has_value());
}

TEST(Record, NamesEveryMachineOnce)
{
    EXPECT_EQ(of("machine\ta\nmachine\tb c\nmachine\ta\n").machines(), (std::vector<std::string>{"a", "b c"}));
}

TEST(Record, KnowsSizesInOrder)
{
    EXPECT_EQ(of("1\tg/r/12\tl\tc\t1\n1\tg/r/9\tl\tc\t1\n1\tg/w/3\tl\tc\t1\n").sizes("g/r/"),
              (std::vector<int>{9, 12}));
}

TEST(Record, BrokenLinesAreRefused)
{
    for (const char* text : {"1\ts\tl\tc\n", "1\ts\tl\tc\t12x\n", "x\ts\tl\tc\t1\n", "1\ts\tl\tc\tnan\n",
                             "-1\ts\tl\tc\t1\n", "1\ts\tl\tc\t1\tmore\n"})
        EXPECT_THROW(of(text), std::runtime_error) << text;
}

} // namespace
} // namespace bench
