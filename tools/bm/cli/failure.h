/// @file
/// How the command says that it cannot do what it was asked for.
#ifndef ZRK4_TOOL_FAILURE_H
#define ZRK4_TOOL_FAILURE_H

#include <stdexcept>
#include <string>

#include "cli/exit_status.h"

namespace bm {

/// Thrown by a command. main prints it on standard error, one fact a line, and ends with `status`.
///
///     throw failure(exit_status::not_found, "no partition has the name \"ADC\"")
///         .seen("3 partitions").needed("1 of this name").help("bm ls");
class failure : public std::runtime_error {
  public:
    failure(exit_status status, const std::string& cause) : std::runtime_error(cause), status_(status) {}

    failure& seen(const std::string& what) { return add("seen:   ", what); }
    failure& needed(const std::string& what) { return add("needed: ", what); }
    /// The command that mends it, or tells more.
    failure& help(const std::string& command) { return add("try:    ", command); }

    exit_status status() const { return status_; }
    /// The whole message, each line ended.
    std::string text() const { return std::string("bm: ") + what() + "\n" + facts_; }

  private:
    failure& add(const char* label, const std::string& what)
    {
        facts_ += std::string("  ") + label + what + "\n";
        return *this;
    }

    exit_status status_;
    std::string facts_;
};

} // namespace bm

#endif
