/// @file
/// The command line: common options and one command.
#ifndef ZRK4_TOOL_COMMAND_LINE_H
#define ZRK4_TOOL_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "cli/exit_status.h"
#include "cli/limits.h"
#include "cli/options.h"

namespace bm {

/// Collects the commands, reads the arguments, runs the one that was named.
class command_line {
  public:
    command_line();

    /// Adds a command.
    /// @param declare  adds its options to the parser, bound to the Options
    /// @param run      does it; may throw failure
    template <class Options>
    void add(const std::string& name, const std::string& about, const std::function<void(CLI::App&, Options&)>& declare,
             std::function<exit_status(const common_options&, const Options&)> run)
    {
        auto options = std::make_shared<Options>();
        CLI::App* command = app_.add_subcommand(name, about);
        command->fallthrough(); // common options are also understood behind the command
        declare(*command, *options);
        command->callback([this, options, run = std::move(run)] {
            run_ = [options, run](const common_options& common) { return run(common, *options); };
        });
    }
    /// Adds a command without options of its own.
    void add(const std::string& name, const std::string& about, std::function<exit_status(const common_options&)> run);

    /// @return the exit status; every failure has been printed.
    exit_status run(int argc, const char* const* argv);

    /// The parser, for a command that describes the others.
    const CLI::App& parser() const { return app_; }

  private:
    exit_status refuse(const CLI::ParseError& error) const;

    CLI::App app_;
    given_options given_;
    std::function<exit_status(const common_options&)> run_;
};

} // namespace bm

#endif
