#include "cli/options.h"

#include <cstdlib>

#include <unistd.h>

#include "cli/failure.h"

namespace bm {
namespace {

std::string from_environment(const char* variable, const char* otherwise)
{
    const char* value = std::getenv(variable);
    return value == nullptr ? otherwise : value;
}

void take_names(common_options& options, const std::string& names)
{
    const size_t comma = names.find(',');
    if (comma == std::string::npos || comma == 0 || comma + 1 == names.size() ||
        names.find(',', comma + 1) != std::string::npos) {
        throw failure(exit_status::usage, "--names takes two names with a comma between them")
            .seen("\"" + names + "\"")
            .needed("CLIENTS,EVENTS");
    }
    options.clients = names.substr(0, comma);
    options.events = names.substr(comma + 1);
}

// no-color.org: set and not empty.
bool wants_no_color()
{
    const char* value = std::getenv("NO_COLOR");
    return value != nullptr && *value != '\0';
}

} // namespace

common_options resolved(const given_options& given)
{
    common_options options;
    options.json = given.json;
    options.color = !given.no_color && !wants_no_color() && isatty(STDOUT_FILENO) == 1;
    options.clients = from_environment("ZRK4_CLI_SHM_NAME", "ZRK4_CLIENT_SLOTS");
    options.events = from_environment("ZRK4_EV_SHM_NAME", "ZRK4_EVENT_SLOTS");
    if (!given.names.empty()) take_names(options, given.names);
    if (given.records != 0) options.form = static_cast<records>(given.records);
    return options;
}

} // namespace bm
