// bm check, bm repair: what processes that died left behind, told and mended by the library's own checker.
#include <chrono>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "host/records_shown.h"
#include "model/check_look.h"

namespace bm {
namespace {

struct check_options {
    std::vector<std::string> names;
    double observe_s = 5, patience_s = 1;
    bool held = false;
    bool dry_run = false;
    bool orphan_sets = false;
};

std::chrono::milliseconds milliseconds_of(double seconds)
{
    return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
}

bm_check_request request_of(const common_options& common, const check_options& options)
{
    bm_check_request request;
    request.clients = common.clients;
    request.events = common.events;
    request.observe = milliseconds_of(options.observe_s);
    request.patience = milliseconds_of(options.patience_s);
    request.list_held = options.held;
    request.remove_orphan_sets = options.orphan_sets;
    return request;
}

exit_status look(const char* command, bool repair, const common_options& common, const check_options& options)
{
    bm_check_request request = request_of(common, options);
    request.records_2024 = records_of(common) == records::of_2024;
    request.repair = repair;
    const check_look seen = look_at_host(request, options.names);
    if (common.json) {
        print_document(to_json(command, seen));
    } else {
        print(text_of(seen, common.color));
    }
    return seen.status();
}

void declare_common(arguments& app, check_options& options)
{
    app.option("NAME", options.names, "partitions to look at (default: the whole exchange)");
    app.option("--observe", options.observe_s, "how long what may be movement is watched (5)")
        .check(between(0.0, 3600.0))
        .type_name("SECONDS");
    app.option("--patience", options.patience_s, "how long one lock is waited for (1)")
        .check(between(0.0, 3600.0))
        .type_name("SECONDS");
}

} // namespace

void add_check(command_line& line)
{
    line.add<check_options>(
        "check", "everything that must hold of the partitions, in words",
        [](arguments& app, check_options& options) {
            declare_common(app, options);
            app.flag("--held", options.held,
                     "also list buffers that a live process held, without an event, all the time");
        },
        [](const common_options& common, const check_options& options) {
            return look("check", false, common, options);
        });
}

void add_repair(command_line& line)
{
    line.add<check_options>(
        "repair", "mends what dead processes left; never what a live one may hold",
        [](arguments& app, check_options& options) {
            declare_common(app, options);
            app.flag("--dry-run", options.dry_run, "change nothing; say what is broken");
            app.flag("--orphan-sets", options.orphan_sets,
                     "also remove semaphore sets that no partition names: they may be another program's");
        },
        [](const common_options& common, const check_options& options) {
            return look("repair", !options.dry_run, common, options);
        });
}

} // namespace bm
