// bm ls: every partition of the host, one a line.
#include <algorithm>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/output.h"
#include "commands/commands.h"
#include "host/partition.h"
#include "partition_report.h"

namespace bm {
namespace {

/// What a partition needs somebody for; empty: nothing.
std::string complaint(const partition& seen)
{
    if (seen.state != partition_state::sound) return seen.why;
    const long needed = gbl_nsems + (seen.has_locks() ? seen.buffers() : 0);
    if (seen.semaphores < needed) {
        return fmt::format("semaphore set {}: {}, needed {}", +seen.control().gbl_semid,
                           seen.semaphores < 0 ? "not there" : fmt::format("{} semaphores", seen.semaphores), needed);
    }
    // What moves is no complaint: the queues change while they are looked at.
    if (!seen.flaws.empty() && !seen.torn) return seen.flaws.front();
    return "";
}

std::string remark(const partition& seen)
{
    if (seen.torn) return "torn";
    const std::string text = complaint(seen);
    return seen.state == partition_state::sound || text.empty() ? text
                                                                : fmt::format("{}: {}", word_of(seen.state), text);
}

json to_json(const partition& seen)
{
    json one{{"name", seen.name}, {"id", seen.where.id}, {"key", seen.where.key}, {"state", word_of(seen.state)}};
    if (seen.state == partition_state::sound) {
        one["buffers"] = seen.buffers();
        one["length"] = seen.length();
        one["free"] = seen.free();
        one["out"] = seen.out();
        one["full"] = seen.full;
        one["users"] = +seen.control().gbl_count;
        one["modes"] = zrk4::impl::mode_words(seen.control().status);
        one["locks"] = seen.has_locks();
        one["torn"] = seen.torn;
    }
    one["attached"] = seen.where.attached;
    one["bytes"] = seen.where.bytes;
    one["uid"] = seen.where.uid;
    one["owner"] = user_text(seen.where.uid);
    one["mode"] = fmt::format("{:04o}", seen.where.mode & 0777U);
    one["creator"] = seen.where.creator;
    one["created"] = seen.where.changed;
    one["complaint"] = complaint(seen);
    return one;
}

std::vector<std::string> cells_of(const partition& seen)
{
    const auto number = [&](auto value) {
        return seen.state == partition_state::sound ? fmt::format("{}", value) : std::string("-");
    };
    const std::string shape =
        seen.state == partition_state::sound ? fmt::format("{} x {}", seen.buffers(), seen.length()) : "-";
    return {seen.name.empty() ? "-" : printable(seen.name),
            fmt::format("{}", seen.where.id),
            shape,
            number(seen.free()),
            number(seen.out()),
            number(seen.full),
            number(+seen.control().gbl_count),
            seen.state == partition_state::sound ? zrk4::impl::mode_words(seen.control().status) : "-",
            size_text(seen.where.bytes),
            user_text(seen.where.uid),
            printable(remark(seen))};
}

void print_text(const std::vector<partition>& all, bool color)
{
    if (all.empty()) return print("no partitions in this IPC namespace\n");
    table lines({{"NAME"},
                 {"ID", table::right},
                 {"BUFFERS", table::right},
                 {"FREE", table::right},
                 {"OUT", table::right},
                 {"FULL", table::right},
                 {"USERS", table::right},
                 {"MODES"},
                 {"SIZE", table::right},
                 {"OWNER"},
                 {"REMARK"}});
    for (const partition& each : all) lines.row(cells_of(each), complaint(each).empty() ? tone::plain : tone::bad);
    print(lines.text(color));
}

exit_status ls(const common_options& common)
{
    std::vector<partition> all = partitions_of_host();
    std::erase_if(all, [](const partition& each) { return each.state == partition_state::gone; });
    if (common.json) {
        json shown = document("ls");
        shown["partitions"] = json::array();
        for (const partition& each : all) shown["partitions"].push_back(to_json(each));
        print_document(shown);
    } else {
        print_text(all, common.color);
    }
    const bool fine = std::all_of(all.begin(), all.end(), [](const partition& p) { return complaint(p).empty(); });
    return fine ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_ls(command_line& line) { line.add("ls", "every partition of this host", ls); }

} // namespace bm
