#include "cli/arguments.h"

#include <cstdint>
#include <list>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace bm {

limit between(double least, double most)
{
    return {[=](double value) { return value >= least && value <= most; }, fmt::format("{} to {}", least, most)};
}

limit above_zero()
{
    return {[](double value) { return value > 0; }, "a number above 0"};
}

limit not_negative()
{
    return {[](double value) { return value >= 0; }, "0 or more"};
}

argument& argument::check(const limit& allowed)
{
    option_->check(CLI::Validator(
        [allowed](std::string& text) {
            double value = 0;
            return CLI::detail::lexical_cast(text, value) && allowed.holds(value)
                       ? std::string()
                       : fmt::format("\"{}\" was given, needed is {}", text, allowed.needed);
        },
        allowed.needed));
    return *this;
}

argument& argument::one_of(const std::vector<std::string>& words)
{
    option_->check(CLI::IsMember(words))->type_name(CLI::detail::join(words, "|"));
    return *this;
}

argument& argument::type_name(const std::string& name)
{
    option_->type_name(name);
    return *this;
}

argument& argument::required()
{
    option_->required();
    return *this;
}

argument& argument::delimiter(char between)
{
    option_->delimiter(between);
    return *this;
}

argument& argument::alone_means(const std::string& value)
{
    option_->expected(0, 1)->default_str(value);
    return *this;
}

argument arguments::flag(const std::string& name, bool& given, const std::string& about)
{
    return argument(app_->add_flag(name, given, about));
}

argument arguments::flag(const std::string& name, int& times, const std::string& about)
{
    return argument(app_->add_flag(name, times, about));
}

template <class Value> argument arguments::option(const std::string& name, Value& into, const std::string& about)
{
    return argument(app_->add_option(name, into, about));
}

template argument arguments::option(const std::string&, int&, const std::string&);
template argument arguments::option(const std::string&, int64_t&, const std::string&);
template argument arguments::option(const std::string&, unsigned&, const std::string&);
template argument arguments::option(const std::string&, unsigned long&, const std::string&);
template argument arguments::option(const std::string&, double&, const std::string&);
template argument arguments::option(const std::string&, std::string&, const std::string&);
template argument arguments::option(const std::string&, std::optional<int64_t>&, const std::string&);
template argument arguments::option(const std::string&, std::optional<double>&, const std::string&);
template argument arguments::option(const std::string&, std::list<std::string>&, const std::string&);
template argument arguments::option(const std::string&, std::vector<std::string>&, const std::string&);

} // namespace bm
