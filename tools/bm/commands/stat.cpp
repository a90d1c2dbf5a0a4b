// bm stat: a line a second.
#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/stat_lines.h"
#include "model/sampler.h"

namespace bm {
namespace {

constexpr int LINES_PER_HEADING = 20;
constexpr char HEADING[] = "   EVENTS/S        MB/S    OPEN      OLDEST            OUT   DROPS  RECLAIMS\n";

struct stat_options {
    double seconds = 1;
    int count = 0;
};

json to_json(const moment& seen)
{
    json shown = document("stat");
    shown["time_us"] = seen.now;
    shown["span_s"] = seen.span_s;
    shown["events_per_s"] = seen.events_per_s;
    shown["bytes_per_s"] = seen.bytes_per_s;
    shown["open"] = seen.open;
    shown["slots"] = seen.slots;
    shown["oldest_s"] = seen.oldest_s;
    shown["out"] = seen.out;
    shown["buffers"] = seen.buffers;
    shown["drops"] = seen.drops;
    shown["reclaims"] = seen.reclaims;
    shown["types"] = json::object();
    for (const auto& [type, rate] : seen.rate_of_type) shown["types"][type_text(type)] = rate;
    return shown;
}

std::string line_of(const moment& seen)
{
    return fmt::format("{:>11.1f} {:>11.3f} {:>7} {:>11} {:>14} {:>7} {:>9}\n", seen.events_per_s,
                       seen.bytes_per_s / 1e6, seen.open, seen.open == 0 ? "-" : span_text(seen.oldest_s),
                       fmt::format("{}/{}", seen.out, seen.buffers), seen.drops, seen.reclaims);
}

void print_moment(const common_options& common, const moment& seen, int number)
{
    if (common.json) return print_document_line(to_json(seen));
    if (number % LINES_PER_HEADING == 0) print(toned(HEADING, tone::strong, common.color));
    print(line_of(seen));
}

exit_status stat(const common_options& common, const stat_options& options)
{
    return print_stat_lines(common, options.seconds, options.count);
}

} // namespace

exit_status print_stat_lines(const common_options& common, double seconds, int count)
{
    const interrupt_watch watch;
    sampler samples(common);
    samples.look(); // rates need a look before
    double next = interrupt_watch::steady_now();
    for (int number = 0; count == 0 || number < count; ++number) {
        if (!interrupt_watch::sleep_until(next += seconds)) break;
        try {
            print_moment(common, samples.look(), number);
        } catch (const failure& gone) {
            if (gone.status() != exit_status::not_found) throw;
            if (!common.json) print("the exchange is gone; waiting for another\n");
        }
        next = std::max(next, interrupt_watch::steady_now() - seconds); // held up: no burst of lines afterwards
    }
    return exit_status::fine;
}

void add_stat(command_line& line)
{
    line.add<stat_options>(
        "stat", "events, bytes, buffers, drops and reclaims, a line a second",
        [](CLI::App& app, stat_options& options) {
            app.add_option("-i,--interval", options.seconds, "seconds between two lines (1)")
                ->check(CLI::Range(0.05, 3600.0));
            app.add_option("-n,--count", options.count, "lines, then end (0: until interrupted)")
                ->check(CLI::NonNegativeNumber);
        },
        stat);
}

} // namespace bm
