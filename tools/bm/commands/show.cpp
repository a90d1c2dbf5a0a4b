// bm show: one partition, and who holds each of its buffers.
#include <algorithm>
#include <map>
#include <sstream>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "host/clock.h"
#include "model/exchange.h"
#include "partition_report.h"

namespace bm {
namespace {

struct show_options {
    std::string name;
    bool held = false;
};

/// Where an event slot lists a buffer.
struct listing {
    const event* what = nullptr;
    std::string name;
};
using listings = std::map<int, listing>;

/// A buffer that is out.
struct held_buffer {
    int number = 0;
    process taker; ///< process that took it from the free queue
    listing in;    ///< the event that it belongs to, if any
    std::string holder;
    std::string since;
    bool lost = false; ///< in no event, and its taker is gone
};

// Without event slots nobody can list a buffer: then nothing is known of events.
listings listed_in(const event_slots& slots, int shmid)
{
    listings all;
    for (const event& one : slots.all()) {
        for (const event_entry& entry : one.entries) {
            if (!entry.hole() && entry.shmid == shmid) all[entry.bnum] = {&one, entry.name};
        }
    }
    return all;
}

event_slots events_if_any(const common_options& common)
{
    try {
        const named_partition part = find_partition(common.events);
        return {part.seen, *part.mapped, common.form};
    } catch (const failure& problem) {
        if (problem.status() == exit_status::not_found) return {};
        throw;
    }
}

held_buffer data_buffer(int i, process taker, const listings& listed, int64_t now)
{
    held_buffer one{i, std::move(taker), {}, "", "", false};
    if (const auto at = listed.find(i); at != listed.end()) {
        one.in = at->second;
        const event& what = *one.in.what;
        one.holder = fmt::format("event slot {}, {} {}, as {}", what.slot, type_text(what.type), what.key_text(),
                                 printable(one.in.name));
        one.since = span_text(seconds_between(what.start, now)) + " (the event)";
        return one;
    }
    one.lost = one.taker.gone();
    one.holder = one.lost ? "nobody: its taker is dead (bm repair)" : "its taker: filling, reading, or lost";
    one.since = one.taker.began == 0 ? "-" : "at most " + span_text(seconds_between(one.taker.began, now));
    return one;
}

held_buffer slot_buffer(int i, process taker, const char* kind)
{
    held_buffer one{i, std::move(taker), {}, "", "-", false};
    one.holder = i == 0 ? "control record" : fmt::format("{} slot {}", kind, i);
    return one;
}

std::vector<held_buffer> held_in(const common_options& common, const partition& part, const listings& listed)
{
    const bool clients = part.name == common.clients, events = part.name == common.events;
    processes known(part.where.uid);
    const int64_t now = micros_now();
    std::vector<held_buffer> all;
    for (int i = 0; i < part.buffers(); ++i) {
        const C_shm_buf buf = part.descriptor(i);
        if (buf.queued()) continue;
        const process& taker = known.of(buf.owner_pid);
        all.push_back(clients || events ? slot_buffer(i, taker, clients ? "client" : "event")
                                        : data_buffer(i, taker, listed, now));
    }
    return all;
}

void print_text(const partition& part, const std::vector<held_buffer>& held, bool dump, bool color)
{
    if (dump) {
        std::ostringstream text;
        zrk4::impl::dump_partition(text, part.records());
        std::string line;
        for (std::istringstream lines(text.str()); std::getline(lines, line);) print(printable(line) + "\n");
        print("\n");
    }
    if (part.torn) print("torn: it moved during every look\n");
    if (held.empty()) return print("no buffer is out\n");
    table lines({{"BUFFER", table::right}, {"TAKEN BY"}, {"HELD BY"}, {"SINCE"}});
    for (const held_buffer& one : held) {
        lines.row({fmt::format("{}", one.number), one.taker.text(), one.holder, one.since},
                  one.lost ? tone::bad : tone::plain);
    }
    print(lines.text(color));
}

json to_json(const partition& part, const std::vector<held_buffer>& held)
{
    json shown = document("show");
    const C_shm_global control = part.control();
    shown["name"] = part.name;
    shown["id"] = part.where.id;
    shown["layout"] = +control.version;
    shown["modes"] = zrk4::impl::mode_words(control.status);
    shown["users"] = +control.gbl_count;
    shown["semaphore_set"] = +control.gbl_semid;
    shown["buffers"] = part.buffers();
    shown["length"] = part.length();
    shown["free"] = part.free();
    shown["out"] = part.out();
    shown["full"] = part.full;
    shown["torn"] = part.torn;
    shown["queue_flaws"] = part.flaws;
    shown["held"] = json::array();
    for (const held_buffer& one : held) {
        json each{{"buffer", one.number},
                  {"pid", one.taker.pid},
                  {"command", one.taker.command},
                  {"state", word_of(one.taker.state)},
                  {"holder", one.holder},
                  {"since", one.since},
                  {"lost", one.lost}};
        if (one.in.what != nullptr) {
            each["event_slot"] = one.in.what->slot;
            each["block"] = one.in.name;
        }
        shown["held"].push_back(each);
    }
    return shown;
}

exit_status show(const common_options& common, const show_options& options)
{
    const named_partition part = find_partition(options.name);
    const event_slots slots = events_if_any(common);
    const listings listed = listed_in(slots, part.seen.where.id);
    const std::vector<held_buffer> held = held_in(common, part.seen, listed);
    if (common.json) {
        print_document(to_json(part.seen, held));
    } else {
        print_text(part.seen, held, !options.held, common.color);
    }
    const bool lost = std::any_of(held.begin(), held.end(), [](const held_buffer& one) { return one.lost; });
    return lost || (!part.seen.flaws.empty() && !part.seen.torn) ? exit_status::attention : exit_status::fine;
}

} // namespace

void add_show(command_line& line)
{
    line.add<show_options>(
        "show", "a partition's control block and buffers, and who holds each",
        [](arguments& app, show_options& options) {
            app.option("NAME", options.name, "name of the partition").required();
            app.flag("--held", options.held, "only the buffers that are out");
        },
        show);
}

} // namespace bm
