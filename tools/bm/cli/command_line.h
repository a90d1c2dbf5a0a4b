/// @file
/// The command line: common options and one command.
#ifndef ZRK4_TOOL_COMMAND_LINE_H
#define ZRK4_TOOL_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/exit_status.h"
#include "cli/options.h"

namespace bm {

/// An option as it is typed and explained.
struct described_option {
    std::vector<std::string> long_names, short_names; ///< without dashes; none of an operand
    std::string about;
};

/// A command, or what all commands have in common.
struct described_command {
    std::string name, about;
    std::vector<described_option> options;
};

/// Collects the commands, reads the arguments, runs the one that was named.
class command_line {
  public:
    command_line();
    ~command_line();

    /// Adds a command.
    /// @param declare  declares its options, bound to the Options
    /// @param run      does it; may throw failure
    template <class Options>
    void add(const std::string& name, const std::string& about,
             const std::function<void(arguments&, Options&)>& declare,
             const std::function<exit_status(const common_options&, const Options&)>& run)
    {
        auto options = std::make_shared<Options>();
        arguments app =
            add_command(name, about, [options, run](const common_options& common) { return run(common, *options); });
        declare(app, *options);
    }
    /// Adds a command without options of its own.
    void add(const std::string& name, const std::string& about,
             const std::function<exit_status(const common_options&)>& run)
    {
        add_command(name, about, run);
    }

    /// @return the exit status; every failure has been printed.
    exit_status run(int argc, const char* const* argv);

    /// What all commands have in common.
    described_command common() const;
    std::vector<described_command> commands() const;

  private:
    arguments add_command(const std::string& name, const std::string& about,
                          std::function<exit_status(const common_options&)> run);

    std::unique_ptr<CLI::App> app_;
    given_options given_;
    std::function<exit_status(const common_options&)> run_;
};

} // namespace bm

#endif
