#include "suite.h"

#include <map>
#include <span>
#include <sstream>
#include <stdexcept>

#include "statistics.h"

namespace bench {
namespace {

std::vector<std::pair<const char*, double>> figures_of(const plan& p, const reading& r)
{
    if (p.one_at_a_time) return {{"p50_us", r.p50}, {"p99_us", r.p99}};
    return {{"events_per_second", r.events_per_second}, {"processor_us", r.processor_time}};
}

// One that failed says which it was.
reading measured(const measurement& m)
{
    try {
        return m.measure(m.p);
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(m.subject + " in " + m.scenario + ": " + e.what());
    }
}

using group = std::span<const measurement>;

// Who is measured as the `i`th of `members` in a turn. Every other turn goes the other way round: what one leaves behind,
// in caches and in the host's idea of how long to wait for a processor, does not always meet the same one.
size_t place_in_turn(size_t i, size_t turn, size_t members)
{
    const bool forward = turn % 2 == 1;
    return (turn + (forward ? i : members - i)) % members;
}

void measure_group(group members, int round, int turns, const std::function<void(const figure_line&)>& line)
{
    std::vector<std::map<std::string, std::vector<double>>> taken(members.size());
    for (int turn = 0; turn < turns; ++turn) {
        for (size_t i = 0; i < members.size(); ++i) {
            const size_t who = place_in_turn(i, static_cast<size_t>(round + turn), members.size());
            for (const auto& [figure, value] : figures_of(members[who].p, measured(members[who])))
                taken[who][figure].push_back(value);
        }
    }
    for (size_t who = 0; who < members.size(); ++who) {
        for (const auto& [figure, values] : taken[who])
            line({round, members[who].scenario, members[who].subject, figure, spread_of(values).median});
    }
}

} // namespace

void run_rounds(const std::vector<measurement>& all, int first_round, int last_round, int turns,
                const std::function<void(const figure_line&)>& line)
{
    for (int round = first_round; round <= last_round; ++round) {
        for (size_t first = 0, end = 0; first < all.size(); first = end) {
            while (end < all.size() && all[end].group == all[first].group) ++end;
            measure_group(group(all).subspan(first, end - first), round, turns, line);
        }
    }
}

std::vector<measurement> chosen(const std::vector<measurement>& all, const std::string& prefixes)
{
    if (prefixes.empty()) return all;
    std::vector<measurement> some;
    for (const measurement& m : all) {
        std::istringstream list(prefixes);
        for (std::string prefix; std::getline(list, prefix, ',');) {
            if (m.scenario.rfind(prefix, 0) != 0) continue;
            some.push_back(m);
            break;
        }
    }
    return some;
}

} // namespace bench
