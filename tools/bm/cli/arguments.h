/// @file
/// The options of a command. The parser behind them stays out of sight: every source that sees it takes seconds to
/// compile.
#ifndef ZRK4_TOOL_ARGUMENTS_H
#define ZRK4_TOOL_ARGUMENTS_H

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace bm {

/// What a number may be, said as an operator would say it.
struct limit {
    std::function<bool(double)> holds;
    std::string needed; ///< "0.05 to 3600"
};
limit between(double least, double most);
limit above_zero();
limit not_negative();

/// An option that was declared, for what more there is to say of it.
class argument {
  public:
    explicit argument(CLI::Option* option) : option_(option) {}

    argument& check(const limit& allowed);
    argument& one_of(const std::vector<std::string>& words);
    /// How its value is called in the help.
    argument& type_name(const std::string& name);
    argument& required();
    /// Several values in one word.
    argument& delimiter(char between);
    /// The option may stand alone: then this is its value.
    argument& alone_means(const std::string& value);

  private:
    CLI::Option* option_;
};

/// Where a command declares its options, each bound to a variable.
class arguments {
  public:
    explicit arguments(CLI::App& app) : app_(&app) {}

    /// @param name  "-n,--count"; a name without dashes is an operand
    argument flag(const std::string& name, bool& given, const std::string& about);
    /// Counts how often it was given.
    argument flag(const std::string& name, int& times, const std::string& about);
    /// Value: a number, a text, an optional number or several texts; arguments.cpp has the list.
    template <class Value> argument option(const std::string& name, Value& into, const std::string& about);

  private:
    CLI::App* app_;
};

} // namespace bm

#endif
