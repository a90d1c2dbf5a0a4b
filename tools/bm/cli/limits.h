/// @file
/// What a number on the command line may be, said as an operator would say it.
#ifndef ZRK4_TOOL_LIMITS_H
#define ZRK4_TOOL_LIMITS_H

#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace bm {

/// @param holds   of a number
/// @param needed  "0.05 to 3600"
template <class Holds> CLI::Validator number_that(Holds holds, const std::string& needed)
{
    return CLI::Validator(
        [holds, needed](std::string& text) {
            double value = 0;
            return CLI::detail::lexical_cast(text, value) && holds(value)
                       ? std::string()
                       : fmt::format("\"{}\" was given, needed is {}", text, needed);
        },
        needed);
}

inline CLI::Validator between(double least, double most)
{
    return number_that([=](double value) { return value >= least && value <= most; },
                       fmt::format("{} to {}", least, most));
}

inline CLI::Validator above_zero()
{
    return number_that([](double value) { return value > 0; }, "a number above 0");
}

inline CLI::Validator not_negative()
{
    return number_that([](double value) { return value >= 0; }, "0 or more");
}

} // namespace bm

#endif
