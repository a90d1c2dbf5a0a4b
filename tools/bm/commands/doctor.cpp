// bm doctor: whether this host is fit for an exchange.
#include <algorithm>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/output.h"
#include "commands/commands.h"
#include "commands/load_options.h"
#include "model/doctor.h"

namespace bm {
namespace {

struct doctor_options {
    load_options wanted;
    unsigned long time_mask = 20000;
};

bool given(const load_options& wanted)
{
    return !wanted.preset.empty() || wanted.clients || wanted.blocks || wanted.rate || wanted.reader_s ||
           wanted.stall_s || !wanted.groups.empty();
}

/// What lies there already, as if it were wanted so.
sizing as_made(const std::vector<partition>& all)
{
    sizing plan;
    for (const partition& each : all) {
        if (each.state != partition_state::sound) continue;
        const planned_partition part{each.name, each.buffers(), each.length(), each.has_locks()};
        plan.needs.semaphores_per_set = std::max(plan.needs.semaphores_per_set, part.semaphores());
        plan.needs.semaphores += part.semaphores();
        plan.needs.largest_segment = std::max(plan.needs.largest_segment, part.bytes());
        plan.needs.bytes += part.bytes();
        ++plan.needs.sets;
        ++plan.needs.segments;
    }
    return plan;
}

bool is_there(const std::vector<partition>& all, const std::string& name)
{
    return std::any_of(all.begin(), all.end(),
                       [&](const partition& p) { return p.name == name && p.state == partition_state::sound; });
}

doctor_lines examine(const common_options& common, const doctor_options& options)
{
    const std::vector<partition> all = partitions_of_host();
    const bool made = !given(options.wanted) && is_there(all, common.clients) && is_there(all, common.events);
    const sizing plan = made ? as_made(all) : sized(load_of(options.wanted, common), common.clients, common.events);
    doctor_lines lines = kernel_lines(plan, kernel_settings_now(), made);
    for (doctor_lines& more :
         std::vector<doctor_lines>{partition_lines(all, plan.needs, made),
                                   {localhost_line(), logind_line(geteuid()), clock_line(options.time_mask)},
                                   exchange_lines(all, common)})
        lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

json to_json(const doctor_lines& lines)
{
    json all = document("doctor");
    all["lines"] = json::array();
    for (const doctor_line& each : lines) {
        all["lines"].push_back({{"what", each.what},
                                {"verdict", word_of(each.how)},
                                {"found", each.found},
                                {"needed", each.needed},
                                {"why", each.why},
                                {"mend", each.mend}});
    }
    return all;
}

tone tone_of(fitness how)
{
    if (how == fitness::bad) return tone::bad;
    return how == fitness::good ? tone::good : tone::warning;
}

std::string text_of(const doctor_lines& lines, bool color)
{
    std::string text;
    for (const doctor_line& each : lines) {
        text += toned(fmt::format("{:<8}", word_of(each.how)), tone_of(each.how), color) +
                fmt::format("{}: {}; needed: {}\n", each.what, each.found, each.needed);
        if (each.how == fitness::good) continue;
        text += fmt::format("        why:  {}\n", each.why);
        if (!each.mend.empty()) text += fmt::format("        mend: {}\n", each.mend);
    }
    return text;
}

exit_status doctor(const common_options& common, const doctor_options& options)
{
    const doctor_lines lines = examine(common, options);
    if (common.json) {
        print_document(to_json(lines));
    } else {
        print(text_of(lines, common.color));
    }
    const bool fit = std::none_of(lines.begin(), lines.end(), [](const doctor_line& each) {
        return each.how == fitness::bad || each.how == fitness::warning;
    });
    return fit ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_doctor(command_line& line)
{
    line.add<doctor_options>(
        "doctor", "is this host fit for an exchange, and what mends it",
        [](arguments& app, doctor_options& options) {
            declare_load(app, options.wanted);
            app.option("--time-mask", options.time_mask, "of the clients (20000)").type_name("MICROSECONDS");
        },
        doctor);
}

} // namespace bm
