// bm size: what partitions a load needs, and what the kernel must grant for them.
#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/load_options.h"
#include "commands/size_emit.h"
#include "model/kernel_plan.h"

namespace bm {
namespace {

struct size_options {
    load_options wanted;
    std::string emit;
};

json to_json(const planned_partition& part)
{
    return {{"name", part.name},   {"buffers", part.buffers}, {"length", part.length},
            {"locks", part.locks}, {"bytes", part.bytes()},   {"semaphores", part.semaphores()}};
}

json to_json(const load& wanted)
{
    json one{{"clients", wanted.clients},   {"blocks", wanted.blocks},   {"rate", wanted.rate},
             {"reader_s", wanted.reader_s}, {"stall_s", wanted.stall_s}, {"records", static_cast<int>(wanted.form)},
             {"groups", json::array()}};
    for (const block_group& group : wanted.groups)
        one["groups"].push_back({{"bytes", group.bytes}, {"per_event", group.per_event}});
    return one;
}

json to_json(const kernel_demand& each)
{
    return {{"name", each.name}, {"needed", each.needed}, {"found", each.found ? json(*each.found) : json(nullptr)},
            {"met", each.met()}, {"why", each.why},       {"line", each.line}};
}

json to_json(const sizing& plan, const std::vector<kernel_demand>& kernel)
{
    json all = document("size");
    all["possible"] = plan.possible();
    all["load"] = to_json(plan.wanted);
    all["partitions"] = json::array();
    for (const planned_partition& part : plan.all()) all["partitions"].push_back(to_json(part));
    all["setters"] = {{"set_nclients", plan.wanted.clients},
                      {"set_ncl_slots", plan.set_client_slots},
                      {"set_nblocks", plan.wanted.blocks},
                      {"set_rate", plan.set_rate}};
    all["event_span_s"] = plan.event_span_s;
    all["bytes"] = plan.needs.bytes;
    all["semaphores"] = plan.needs.semaphores;
    all["kernel"] = json::array();
    for (const kernel_demand& each : kernel) all["kernel"].push_back(to_json(each));
    all["impossible"] = json::array();
    for (const impossibility& each : plan.impossible) {
        all["impossible"].push_back(
            {{"what", each.what}, {"seen", each.seen}, {"needed", each.needed}, {"instead", each.instead}});
    }
    all["remarks"] = plan.remarks;
    return all;
}

std::string partitions_text(const sizing& plan, bool color)
{
    table parts({{"PARTITION"}, {"BUFFERS", table::right}, {"SIZE", table::right}, {"SEMAPHORES", table::right}});
    for (const planned_partition& part : plan.all()) {
        parts.row({printable(part.name), fmt::format("{} x {}", part.buffers, part.length),
                   size_text(static_cast<uint64_t>(part.bytes())), fmt::format("{}", part.semaphores())});
    }
    return parts.text(color);
}

std::string kernel_text(const std::vector<kernel_demand>& kernel, bool color)
{
    table settings({{"SETTING"}, {"NEEDED", table::right}, {"HERE", table::right}, {"REMARK"}});
    for (const kernel_demand& each : kernel) {
        settings.row({each.name, fmt::format("{}", each.needed), each.found ? fmt::format("{}", *each.found) : "?",
                      each.met() ? "" : "raise it: bm size --emit sysctl"},
                     each.met() ? tone::plain : tone::warning);
    }
    return settings.text(color);
}

std::string text_of(const sizing& plan, const std::vector<kernel_demand>& kernel, bool color)
{
    const load& wanted = plan.wanted;
    std::string text =
        fmt::format("{} clients, {} blocks per event, {:g} events/s, readers take {}, dead ones {} more\n\n",
                    wanted.clients, wanted.blocks, wanted.rate, span_text(wanted.reader_s), span_text(wanted.stall_s));
    text += partitions_text(plan, color);
    text += fmt::format("\nmemory {}, {} semaphores; slots for {} of open events\n",
                        size_text(static_cast<uint64_t>(plan.needs.bytes)), plan.needs.semaphores,
                        span_text(plan.event_span_s));
    text += fmt::format("master: set_nclients({}), set_nblocks({}), set_rate({}){}\n\n", wanted.clients, wanted.blocks,
                        plan.set_rate,
                        plan.set_client_slots == 0 ? "" : fmt::format(", set_ncl_slots({})", plan.set_client_slots));
    text += kernel_text(kernel, color);
    for (const std::string& remark : plan.remarks) text += remark + "\n";
    for (const impossibility& each : plan.impossible) {
        text += toned(fmt::format("impossible: {}\n  seen:   {}\n  needed: {}\n  instead: {}\n", each.what, each.seen,
                                  each.needed, each.instead),
                      tone::bad, color);
    }
    return text;
}

void emit(const std::string& form, const sizing& plan, const std::vector<kernel_demand>& kernel)
{
    if (!plan.possible()) {
        const impossibility& first = plan.impossible.front();
        throw failure(exit_status::failed, "impossible: " + first.what)
            .seen(first.seen)
            .needed(first.needed)
            .help(first.instead);
    }
    print(form == "c++" ? program_of(plan) : sysctl_of(kernel));
}

exit_status size(const common_options& common, const size_options& options)
{
    const sizing plan = sized(load_of(options.wanted, common), common.clients, common.events);
    const std::vector<kernel_demand> kernel = demands(plan.needs, kernel_settings_now());
    if (common.json || options.emit == "json") {
        print_document(to_json(plan, kernel));
    } else if (!options.emit.empty()) {
        emit(options.emit, plan, kernel);
    } else {
        print(text_of(plan, kernel, common.color));
    }
    return plan.possible() ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_size(command_line& line)
{
    line.add<size_options>(
        "size", "what partitions and kernel settings a load needs",
        [](arguments& app, size_options& options) {
            declare_load(app, options.wanted);
            app.option("--emit", options.emit, "print a program that makes them, a file for /etc/sysctl.d, or JSON")
                .one_of({"c++", "sysctl", "json"});
        },
        size);
}

} // namespace bm
