// The texts of /proc and /sys become slow channels; the host's real ones are measured as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "slow_source.h"
#include "slow_texts.h"

using namespace demo;

namespace {

template <class Fill> std::map<std::string, slow_value> named(Fill fill)
{
    slow_values all;
    fill(all);
    std::map<std::string, slow_value> by_name;
    for (const slow_value& one : all) by_name[one.name] = one;
    EXPECT_EQ(by_name.size(), all.size()) << "no name twice";
    return by_name;
}

} // namespace

TEST(SlowTexts, LoadIsThreeAveragesAndTheTasks)
{
    auto seen = named([](slow_values& to) { add_load("0.20 1.18 12.5 3/80 11206\n", to); });
    EXPECT_EQ(seen.size(), 5U);
    EXPECT_FLOAT_EQ(seen["load 1 min"].value, 0.20F);
    EXPECT_FLOAT_EQ(seen["load 5 min"].value, 1.18F);
    EXPECT_FLOAT_EQ(seen["load 15 min"].value, 12.5F);
    EXPECT_EQ(seen["tasks running"].value, 3);
    EXPECT_EQ(seen["tasks"].value, 80);
}

TEST(SlowTexts, MemoryIsCountedInMebibytes)
{
    auto seen = named([](slow_values& to) {
        add_memory(
            "MemTotal:       4096 kB\nMemFree:   7 kB\nMemAvailable:  1024 kB\nSwapTotal: 3072 kB\nSwapFree: 1024 kB\n",
            to);
    });
    EXPECT_EQ(seen["memory available"].value, 1);
    EXPECT_EQ(seen["memory used"].value, 3);
    EXPECT_EQ(seen["swap used"].value, 2);
}

TEST(SlowTexts, FrequenciesAreThoseOfTheProcessorsThatTellThem)
{
    auto seen = named([](slow_values& to) {
        add_frequencies("processor\t: 0\nmodel name\t: Some @ 2.40GHz\ncpu MHz\t\t: 2399.998\n\n"
                        "processor\t: 3\ncpu MHz\t\t: 800.000\nprocessor\t: 4\n",
                        to);
    });
    EXPECT_EQ(seen.size(), 2U);
    EXPECT_FLOAT_EQ(seen["frequency 0"].value, 2399.998F);
    EXPECT_FLOAT_EQ(seen["frequency 3"].value, 800);
}

TEST(SlowTexts, TemperaturesMayBeBelowZeroOrMissing)
{
    auto seen = named([](slow_values& to) {
        add_temperature(0, "45500\n", to);
        add_temperature(1, "-2000\n", to);
        add_temperature(2, "", to);
        add_temperature(3, "warm\n", to);
    });
    EXPECT_FLOAT_EQ(seen["temperature 0"].value, 45.5F);
    EXPECT_FLOAT_EQ(seen["temperature 1"].value, -2);
    EXPECT_EQ(seen["temperature 0"].status, 0);
    EXPECT_EQ(seen["temperature 1"].status, 0);
    EXPECT_NE(seen["temperature 2"].status, 0);
    EXPECT_NE(seen["temperature 3"].status, 0);
}

TEST(SlowTexts, UptimeIsTheFirstNumber)
{
    auto seen = named([](slow_values& to) { add_uptime("5167.25 9000.50\n", to); });
    EXPECT_EQ(seen["uptime"].value, 5167.25F);
}

TEST(SlowSource, MeasuresThisHostAlwaysInTheSameOrder)
{
    slow_source host;
    const slow_values first = host.measure(), second = host.measure();
    ASSERT_EQ(first.size(), second.size());
    for (size_t i = 0; i < first.size(); ++i) EXPECT_EQ(first[i].name, second[i].name);
    auto seen = named([&](slow_values& to) { to = first; });
    EXPECT_GT(seen["uptime"].value, 0);
    EXPECT_GT(seen["memory used"].value, 0);
    EXPECT_GT(seen["tasks"].value, 0);
    slow_values properties;
    host.add_properties(properties);
    ASSERT_EQ(properties.size(), 1U);
    EXPECT_GE(properties[0].value, seen["uptime"].value);
}
