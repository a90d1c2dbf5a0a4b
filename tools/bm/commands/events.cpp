// bm events: the events in the slots, what each still waits for, and who owes it.
#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include "cli/output.h"
#include "commands/commands.h"
#include "host/clock.h"
#include "host/in_parts.h"
#include "model/exchange.h"

namespace bm {
namespace {

struct events_options {
    bool open = false;
    bool incomplete = false;
    double slow = 0; ///< seconds, 0: any
};

struct shown_event {
    const event* what;
    std::vector<debt> debts;
    int lost = 0; ///< blocks whose writers have left
};

bool is_open(const event& one)
{
    return std::any_of(one.clients.begin(), one.clients.end(),
                       [](const zrk4_client_block& block) { return block.status != CLI_S_DONE; });
}

bool is_wanted(const event& one, const events_options& options, int64_t now)
{
    if (options.open && !is_open(one)) return false;
    if (options.incomplete && one.filled_said >= one.expected) return false;
    return options.slow <= 0 || seconds_between(one.start, now) >= options.slow;
}

bool needs_attention(const event& one, int64_t now)
{
    return !flaw_of(one).empty() || (!one.torn && idle_seconds(one, now) >= SUSPICIOUS_AFTER_S);
}

std::string remark(const event& one, int64_t now)
{
    if (one.torn) return "torn";
    std::string flaw = flaw_of(one);
    if (!flaw.empty()) return flaw;
    return needs_attention(one, now) ? fmt::format("hangs: bm why {}", one.slot) : "";
}

/// "done: R5 W2; working: R7"
std::string states_text(const event& one, const client_labels& clients)
{
    constexpr std::array<int32_t, 5> STATES{CLI_S_INVAL, CLI_S_WAIT, CLI_S_NTF, CLI_S_PROC, CLI_S_DONE};
    std::array<std::string, STATES.size()> of_states;
    for (const zrk4_client_block& block : one.clients) {
        const auto state = std::find(STATES.begin() + 1, STATES.end(), static_cast<int32_t>(block.status));
        std::string& of_state = of_states[state == STATES.end() ? 0 : static_cast<size_t>(state - STATES.begin())];
        of_state += ' ';
        clients.add_to(of_state, block.snum);
    }
    std::string all;
    for (size_t i = 0; i < STATES.size(); ++i) {
        if (of_states[i].empty()) continue;
        if (!all.empty()) all += "; ";
        all.append(progress_word(STATES[i])).append(":").append(of_states[i]);
    }
    return all.empty() ? "-" : all;
}

/// "ADC, BPM from 1234 adcd (W3)"
std::string missing_text(const shown_event& one, processes& known)
{
    std::string all;
    for (const debt& each : one.debts) {
        if (!all.empty()) all += "; ";
        for (const std::string& name : each.names)
            all.append(&name == &each.names.front() ? "" : ", ").append(printable(name));
        all.append(" from ").append(known.of(each.writer->pid).text());
        all.append(" (W").append(std::to_string(each.writer->slot)).append(")");
    }
    if (one.lost > 0) all += fmt::format("{}{} of writers that have left", all.empty() ? "" : "; ", one.lost);
    return all.empty() ? "-" : all;
}

json to_json(const shown_event& shown, const exchange& seen, processes& known)
{
    const event& one = *shown.what;
    json all{{"slot", one.slot},
             {"type", one.type},
             {"type_name", type_text(one.type)},
             {"key", {{"s", +one.key.timeup}, {"us", +one.key.timelow}}},
             {"id", one.id},
             {"expected", one.expected},
             {"filled", one.filled_said},
             {"bytes", one.bytes},
             {"mask", static_cast<uint32_t>(one.mask)},
             {"status", one.status},
             {"age_s", seconds_between(one.start, seen.now)},
             {"idle_s", idle_seconds(one, seen.now)},
             {"maker", one.pid},
             {"used", one.used()},
             {"torn", one.torn}};
    all["clients"] = json::array();
    for (const zrk4_client_block& block : one.clients) {
        const client* who = seen.clients.at(block.snum);
        all["clients"].push_back({{"slot", +block.snum},
                                  {"role", who == nullptr ? "gone" : who->role()},
                                  {"pid", who == nullptr ? 0 : who->pid},
                                  {"state", progress_word(static_cast<int32_t>(block.status))}});
    }
    all["missing"] = json::array();
    for (const debt& each : shown.debts) {
        const process& who = known.of(each.writer->pid);
        for (const std::string& name : each.names) {
            all["missing"].push_back({{"name", name},
                                      {"slot", each.writer->slot},
                                      {"pid", who.pid},
                                      {"command", who.command},
                                      {"state", word_of(who.state)}});
        }
    }
    all["missing_of_writers_gone"] = shown.lost;
    all["placeholders"] = json::array();
    for (const event_entry& entry : one.entries) {
        if (entry.hole()) all["placeholders"].push_back(entry.name);
    }
    all["complaint"] = remark(one, seen.now);
    return all;
}

int count_of(const exchange& seen) { return static_cast<int>(seen.events.all().size()); }

/// Of the events from the `first` on: each is told as soon as its debts are known, and nothing is kept but its line.
template <class Tell>
bool for_each_wanted(const exchange& seen, int first, int last, const events_options& options, Tell tell)
{
    bool fine = true;
    for (int i = first; i < last; ++i) {
        const event& one = seen.events.all()[static_cast<size_t>(i)];
        if (!is_wanted(one, options, seen.now)) continue;
        shown_event shown{&one, debts_of(one, seen.clients), 0};
        shown.lost = unaccounted(one, shown.debts);
        tell(shown);
        fine &= !needs_attention(one, seen.now);
    }
    return fine;
}

/// Whom the lines name. Each thread asks for itself.
struct named_ones {
    const client_labels& clients;
    processes known;
};

std::vector<std::string> cells_of(const shown_event& shown, const exchange& seen, named_ones& named)
{
    const event& one = *shown.what;
    return {std::to_string(one.slot),
            type_text(one.type),
            one.key_text(),
            std::to_string(one.id),
            std::to_string(one.filled_said).append("/").append(std::to_string(one.expected)),
            size_text(static_cast<uint64_t>(std::max<int64_t>(one.bytes, 0))),
            span_text(seconds_between(one.start, seen.now)),
            span_text(idle_seconds(one, seen.now)),
            states_text(one, named.clients),
            missing_text(shown, named.known),
            remark(one, seen.now)};
}

struct event_line {
    std::vector<std::string> cells;
    tone how;
};
struct event_lines {
    std::vector<event_line> all;
    bool fine = true;
};

event_lines lines_of(const exchange& seen, int first, int last, const events_options& options, named_ones& named)
{
    event_lines lines;
    lines.fine = for_each_wanted(seen, first, last, options, [&](const shown_event& one) {
        lines.all.push_back(
            {cells_of(one, seen, named), needs_attention(*one.what, seen.now) ? tone::bad : tone::plain});
    });
    return lines;
}

bool print_text(const exchange& seen, const events_options& options, bool color)
{
    table lines({{"SLOT", table::right},
                 {"TYPE"},
                 {"KEY"},
                 {"ID", table::right},
                 {"BLOCKS", table::right},
                 {"SIZE", table::right},
                 {"AGE", table::right},
                 {"IDLE", table::right},
                 {"CLIENTS"},
                 {"MISSING"},
                 {"REMARK"}});
    const client_labels labels(seen.clients);
    named_ones named{labels, processes(seen.clients_part.where.uid)};
    const auto lines_between = [&, named](int first, int last) mutable {
        return lines_of(seen, first, last, options, named);
    };
    bool fine = true;
    for (event_lines& part : in_parts<event_lines>(0, count_of(seen), lines_between)) {
        for (event_line& line : part.all) lines.row(std::move(line.cells), line.how);
        fine &= part.fine;
    }
    print(fmt::format("{}: {} of {} slots in use, records of {}\n", printable(seen.events_part.name),
                      seen.events.all().size(), seen.events.slots(), static_cast<int>(seen.events.form())));
    if (!lines.empty()) print(lines.text(color));
    return fine;
}

bool print_json(const exchange& seen, const events_options& options)
{
    processes known(seen.clients_part.where.uid);
    json shown = document("events");
    shown["partition"] = seen.events_part.name;
    shown["records"] = static_cast<int>(seen.events.form());
    shown["slots"] = seen.events.slots();
    shown["in_use"] = seen.events.all().size();
    shown["events"] = json::array();
    const bool fine = for_each_wanted(seen, 0, count_of(seen), options, [&](const shown_event& one) {
        shown["events"].push_back(to_json(one, seen, known));
    });
    print_document(shown);
    return fine;
}

exit_status events(const common_options& common, const events_options& options)
{
    const exchange seen = look_at_exchange(common);
    const bool fine = common.json ? print_json(seen, options) : print_text(seen, options, common.color);
    return fine ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_events(command_line& line)
{
    line.add<events_options>(
        "events", "events in the slots, what they wait for, and who owes it",
        [](arguments& app, events_options& options) {
            app.flag("--open", options.open, "only events that a client has not done with");
            app.flag("--incomplete", options.incomplete, "only events with blocks missing");
            app.option("--slow", options.slow, "only events older than this many seconds (1)")
                .alone_means("1")
                .check(not_negative());
        },
        events);
}

} // namespace bm
