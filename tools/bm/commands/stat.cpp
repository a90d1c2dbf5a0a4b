// bm stat: a line a second.
#include <algorithm>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/stat_lines.h"
#include "host/end_signals.h"
#include "model/sampler.h"

namespace bm {
namespace {

constexpr int LINES_PER_HEADING = 20;
constexpr char HEADING[] = "   EVENTS/S        MB/S    OPEN      OLDEST            OUT   DROPS  RECLAIMS\n";

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
    if (common.json) return print(document_line(to_json(seen)));
    if (number % LINES_PER_HEADING == 0) print(toned(HEADING, tone::strong, common.color));
    print(line_of(seen));
}

} // namespace

std::chrono::microseconds pace::until(clock::time_point when)
{
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(when - clock::now());
    return std::max(left, std::chrono::microseconds(0));
}

void declare_pace(arguments& app, pace& options)
{
    app.option("-i,--interval", options.seconds, "seconds between two looks (1)").check(between(0.05, 3600.0));
    app.option("-n,--count", options.count, "lines, then end; not on a terminal of top (0: until interrupted)")
        .check(not_negative());
}

exit_status print_stat_lines(const common_options& common, const pace& pace)
{
    const end_signals ends;
    sampler samples(common, sampler::detail::sums);
    samples.look(); // rates need a look before
    auto next = pace::clock::now();
    for (int number = 0; pace.count == 0 || number < pace.count; ++number) {
        next += pace.step();
        if (ends.within(pace::until(next)) != 0) break;
        try {
            print_moment(common, samples.look(), number);
        } catch (const failure& gone) {
            if (gone.status() != exit_status::not_found) throw;
            if (!common.json) print("the exchange is gone; waiting for another\n");
        }
        next = std::max(next, pace::clock::now() - pace.step()); // held up: no burst of lines afterwards
    }
    return exit_status::fine;
}

void add_stat(command_line& line)
{
    line.add<pace>("stat", "events, bytes, buffers, drops and reclaims, a line a second", declare_pace,
                   print_stat_lines);
}

} // namespace bm
