// bm clients: who is subscribed, and how they fare.
#include <algorithm>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/output.h"
#include "commands/commands.h"
#include "host/clock.h"
#include "host/udp_sockets.h"
#include "model/exchange.h"

namespace bm {
namespace {

struct clients_options {
    double seconds = 0;
};

/// One client as it is shown.
struct shown_client {
    client what;
    process who;
    std::optional<udp_socket> socket;
    std::optional<double> rate; ///< events per second over the time that was asked for
};

std::string complaint(const shown_client& one)
{
    if (one.what.torn) return "torn";
    if (one.what.pid == 0) return "taken, but nobody has written its head";
    if (!one.what.reads() && !one.what.writes()) return fmt::format("client type {}", one.what.type);
    if (one.what.names_said != static_cast<int32_t>(one.what.names.size())) {
        return fmt::format("says {} blocks, there is room for {}", one.what.names_said, one.what.names.size());
    }
    if (one.who.state != life::alive) return word_of(one.who.state);
    if (one.what.reads() && !one.socket) return "no socket on its port in this network namespace";
    return "";
}

// A slot may have become another client's in between: counted only for the same owner.
std::optional<double> rate_of(const client& now, const exchange& before, double seconds)
{
    const client* then = before.clients.at(now.slot);
    if (seconds <= 0 || then == nullptr || then->pid != now.pid || then->evtype != now.evtype) return {};
    return static_cast<double>(static_cast<uint32_t>(now.events) - static_cast<uint32_t>(then->events)) / seconds;
}

std::vector<shown_client> gather(const common_options& common, const clients_options& options, exchange& seen)
{
    exchange before;
    if (options.seconds > 0) {
        before = look_at_clients(common);
        usleep(static_cast<useconds_t>(options.seconds * 1e6));
    }
    seen = look_at_clients(common);
    const double span = seconds_between(before.now, seen.now);
    const std::optional<udp_sockets> sockets = udp_sockets_now();
    processes known(seen.clients_part.where.uid);
    std::vector<shown_client> all;
    for (const client& one : seen.clients.all()) {
        shown_client shown{one, known.owner_of(one.pid, one.access), {}, rate_of(one, before, span)};
        if (one.reads() && sockets) {
            if (const auto at = sockets->find(one.port & 0xffff); at != sockets->end()) shown.socket = at->second;
        }
        all.push_back(std::move(shown));
    }
    return all;
}

json to_json(const shown_client& one)
{
    json shown{{"slot", one.what.slot},
               {"pid", one.what.pid},
               {"command", one.who.command},
               {"state", word_of(one.who.state)},
               {"role", one.what.role()},
               {"type", one.what.evtype},
               {"type_name", type_text(one.what.evtype)},
               {"mask", static_cast<uint32_t>(one.what.mask)},
               {"ratio_us", one.what.ratio},
               {"priority", one.what.priority},
               {"blocks", one.what.names},
               {"events", one.what.events},
               {"access_us", one.what.access}};
    if (one.what.reads()) shown["port"] = one.what.port;
    if (one.socket) {
        shown["queued"] = one.socket->queued;
        shown["drops"] = one.socket->drops;
    }
    if (one.rate) shown["rate"] = *one.rate;
    shown["torn"] = one.what.torn;
    shown["complaint"] = complaint(one);
    return shown;
}

std::vector<std::string> cells_of(const shown_client& one, int64_t now)
{
    const client& c = one.what;
    const std::string none = "-";
    const bool reads = c.reads();
    const std::string blocks = !c.names.empty() ? fmt::format("{}", c.names.size()) : reads ? "all" : "0";
    return {fmt::format("{}", c.slot),
            fmt::format("{}", c.pid),
            one.who.command.empty() ? none : printable(one.who.command),
            word_of(one.who.state),
            c.role(),
            type_text(c.evtype),
            reads ? fmt::format("{:#x}", static_cast<uint32_t>(c.mask)) : none,
            !reads         ? none
            : c.ratio == 0 ? "every"
                           : span_text(static_cast<double>(c.ratio) / 1e6),
            reads ? fmt::format("{}", c.port) : none,
            one.socket ? size_text(one.socket->queued) : none,
            one.socket ? fmt::format("{}", one.socket->drops) : none,
            blocks,
            fmt::format("{}", static_cast<uint32_t>(c.events)),
            one.rate ? fmt::format("{:.1f}", *one.rate) : none,
            c.access == 0 ? none : span_text(seconds_between(c.access, now)),
            complaint(one)};
}

void print_text(const std::vector<shown_client>& all, const exchange& seen, bool color)
{
    const zrk4_client_ctrl_block& control = seen.clients.control();
    print(fmt::format("{}: {} clients, {} readers, {} writers; {} slots, {} free\n", printable(seen.clients_part.name),
                      +control.clitotal, +control.clireader, +control.cliwriter, seen.clients_part.buffers() - 1,
                      seen.clients_part.free()));
    if (all.empty()) return;
    table lines({{"SLOT", table::right},
                 {"PID", table::right},
                 {"COMMAND"},
                 {"STATE"},
                 {"ROLE"},
                 {"TYPE"},
                 {"MASK", table::right},
                 {"RATIO", table::right},
                 {"PORT", table::right},
                 {"QUEUE", table::right},
                 {"DROPS", table::right},
                 {"BLOCKS", table::right},
                 {"EVENTS", table::right},
                 {"EV/S", table::right},
                 {"LAST", table::right},
                 {"REMARK"}});
    for (const shown_client& one : all)
        lines.row(cells_of(one, seen.now), complaint(one).empty() ? tone::plain : tone::bad);
    print(lines.text(color));
}

exit_status clients(const common_options& common, const clients_options& options)
{
    exchange seen;
    const std::vector<shown_client> all = gather(common, options, seen);
    if (common.json) {
        json shown = document("clients");
        shown["partition"] = seen.clients_part.name;
        shown["slots"] = seen.clients_part.buffers() - 1;
        shown["free"] = seen.clients_part.free();
        shown["clients"] = json::array();
        for (const shown_client& one : all) shown["clients"].push_back(to_json(one));
        print_document(shown);
    } else {
        print_text(all, seen, common.color);
    }
    const bool fine =
        std::all_of(all.begin(), all.end(), [](const shown_client& one) { return complaint(one).empty(); });
    return fine ? exit_status::fine : exit_status::attention;
}

} // namespace

void add_clients(command_line& line)
{
    line.add<clients_options>(
        "clients", "who is subscribed, alive or not, and how many events they get",
        [](arguments& app, clients_options& options) {
            app.option("-i,--interval", options.seconds, "count events for this many seconds and show their rate")
                .check(between(0.05, 3600.0));
        },
        clients);
}

} // namespace bm
