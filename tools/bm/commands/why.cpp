// bm why: the autopsy of one event.
#include <algorithm>
#include <charconv>
#include <optional>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "model/autopsy.h"

namespace bm {
namespace {

struct why_options {
    std::string which;
};

std::optional<int64_t> number_of(std::string_view text)
{
    int64_t value = 0;
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || next != text.data() + text.size()) return {};
    return value;
}

template <class Matches> const event* first_that(const event_slots& slots, Matches matches)
{
    const auto at = std::find_if(slots.all().begin(), slots.all().end(), matches);
    return at == slots.all().end() ? nullptr : &*at;
}

/// A slot's number; "seconds:microseconds" or the seconds alone of a key; an event id.
const event* find_event(const event_slots& slots, const std::string& which)
{
    const size_t colon = which.find(':');
    const std::optional<int64_t> first = number_of(std::string_view(which).substr(0, colon));
    if (!first) return nullptr;
    if (colon != std::string::npos) {
        const std::optional<int64_t> second = number_of(std::string_view(which).substr(colon + 1));
        return first_that(
            slots, [&](const event& one) { return second && one.key.timeup == *first && one.key.timelow == *second; });
    }
    if (*first >= 1 && *first <= slots.slots()) return slots.at(static_cast<int>(*first));
    if (const event* by_id = first_that(slots, [&](const event& one) { return one.id == *first; })) return by_id;
    return first_that(slots, [&](const event& one) { return one.key.timeup == *first; });
}

failure no_such_event(const exchange& seen, const std::string& which)
{
    failure problem(exit_status::not_found, fmt::format("no event is in a slot as \"{}\"", printable(which)));
    problem.seen(fmt::format("{} events in {} slots", seen.events.all().size(), seen.events.slots()))
        .needed("a slot's number, a key (seconds:microseconds) or an event id")
        .help("bm events");
    return problem;
}

exit_status why(const common_options& common, const why_options& options)
{
    const exchange seen = look_at_exchange(common);
    const event* one = find_event(seen.events, options.which);
    if (one == nullptr) throw no_such_event(seen, options.which);
    processes known(seen.clients_part.where.uid);
    const autopsy found = autopsy_of(*one, seen, known, udp_sockets_now());
    if (common.json) {
        json shown = document("why");
        shown["slot"] = one->slot;
        shown["outlook"] = word_of(found.outlook);
        shown["in_s"] = found.in_s;
        shown["hangs"] = found.hangs;
        shown["sentences"] = found.sentences;
        print_document(shown);
    } else {
        for (const std::string& sentence : found.sentences) print(sentence + "\n");
    }
    return found.hangs ? exit_status::attention : exit_status::fine;
}

} // namespace

void add_why(command_line& line)
{
    line.add<why_options>(
        "why", "why an event is still there, in sentences",
        [](arguments& app, why_options& options) {
            app.option("EVENT", options.which, "a slot's number, a key (seconds:microseconds) or an event id")
                .type_name("SLOT|KEY")
                .required();
        },
        why);
}

} // namespace bm
