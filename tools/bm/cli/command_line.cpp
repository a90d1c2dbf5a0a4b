#include "cli/command_line.h"

#include <cstdio>
#include <exception>
#include <utility>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "cli/output.h"

namespace bm {

namespace {

exit_status refuse(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> named = app.get_subcommands();
    const std::vector<std::string> more = app.remaining();
    failure problem = !named.empty() ? failure(exit_status::usage, error.what())
                      : more.empty() ? failure(exit_status::usage, "a command is missing")
                                     : failure(exit_status::usage, "there is no such command")
                                           .seen("\"" + printable(more.front()) + "\"")
                                           .needed("one of those that bm --help lists");
    problem.help(named.empty() ? "bm --help" : "bm " + named.front()->get_name() + " --help");
    std::fputs(problem.text().c_str(), stderr);
    return problem.status();
}

described_command described(const CLI::App& app)
{
    described_command all{app.get_name(), app.get_description(), {}};
    for (const CLI::Option* option : app.get_options())
        all.options.push_back({option->get_lnames(), option->get_snames(), option->get_description()});
    return all;
}

} // namespace

command_line::command_line()
    : app_(std::make_unique<CLI::App>("Shows, explains and mends the exchange of event data on this host.", "bm"))
{
    app_->require_subcommand(1);
    app_->set_version_flag("--version", "bm " BM_VERSION, "print the version of this command");
    app_->add_flag("--json", given_.json, "print one JSON document instead of text");
    app_->add_flag("--no-color", given_.no_color, "no colours; so does NO_COLOR in the environment");
    app_->add_option("--names", given_.names,
                     "names of the slot partitions (default: ZRK4_CLI_SHM_NAME and ZRK4_EV_SHM_NAME)")
        ->type_name("CLIENTS,EVENTS");
    app_->add_option("--records", given_.records, "generation of the event records (default: as the event slots show)")
        ->type_name("2010|2024")
        ->check(CLI::IsMember({2010, 2024}));
    app_->footer(
        "Exit status: 0 fine, 1 needs attention, 2 failed, 3 no such partition or slot, 4 timed out, 64 usage.");
}

command_line::~command_line() = default;

arguments command_line::add_command(const std::string& name, const std::string& about,
                                    std::function<exit_status(const common_options&)> run)
{
    CLI::App* command = app_->add_subcommand(name, about);
    command->fallthrough(); // common options are also understood behind the command
    command->callback([this, run = std::move(run)] { run_ = run; });
    return arguments(*command);
}

exit_status command_line::run(int argc, const char* const* argv)
{
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? static_cast<exit_status>(app_->exit(error)) : refuse(*app_, error);
    }
    try {
        return run_(resolved(given_));
    } catch (const failure& problem) {
        std::fputs(problem.text().c_str(), stderr);
        return problem.status();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "bm: %s\n", problem.what());
        return exit_status::failed;
    }
}

described_command command_line::common() const { return described(*app_); }

std::vector<described_command> command_line::commands() const
{
    std::vector<described_command> all;
    for (const CLI::App* each : std::as_const(*app_).get_subcommands([](const CLI::App*) { return true; }))
        all.push_back(described(*each));
    return all;
}

} // namespace bm
