#include "cli/command_line.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli/failure.h"
#include "cli/output.h"

namespace bm {

command_line::command_line() : app_("Shows, explains and mends the exchange of event data on this host.", "bm")
{
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "bm " BM_VERSION, "print the version of this command");
    app_.add_flag("--json", given_.json, "print one JSON document instead of text");
    app_.add_flag("--no-color", given_.no_color, "no colours; so does NO_COLOR in the environment");
    app_.add_option("--names", given_.names,
                    "names of the slot partitions (default: ZRK4_CLI_SHM_NAME and ZRK4_EV_SHM_NAME)")
        ->type_name("CLIENTS,EVENTS");
    app_.add_option("--records", given_.records, "generation of the event records (default: as the event slots show)")
        ->type_name("2010|2024")
        ->check(CLI::IsMember({2010, 2024}));
    app_.footer(
        "Exit status: 0 fine, 1 needs attention, 2 failed, 3 no such partition or slot, 4 timed out, 64 usage.");
}

void command_line::add(const std::string& name, const std::string& about,
                       std::function<exit_status(const common_options&)> run)
{
    struct none {};
    add<none>(
        name, about, [](CLI::App&, none&) {},
        [run = std::move(run)](const common_options& common, const none&) { return run(common); });
}

exit_status command_line::refuse(const CLI::ParseError& error) const
{
    const std::vector<CLI::App*> named = app_.get_subcommands();
    const std::vector<std::string> more = app_.remaining();
    failure problem = !named.empty() ? failure(exit_status::usage, error.what())
                      : more.empty() ? failure(exit_status::usage, "a command is missing")
                                     : failure(exit_status::usage, "there is no such command")
                                           .seen("\"" + printable(more.front()) + "\"")
                                           .needed("one of those that bm --help lists");
    problem.help(named.empty() ? "bm --help" : "bm " + named.front()->get_name() + " --help");
    std::fputs(problem.text().c_str(), stderr);
    return problem.status();
}

exit_status command_line::run(int argc, const char* const* argv)
{
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? static_cast<exit_status>(app_.exit(error)) : refuse(error);
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

} // namespace bm
