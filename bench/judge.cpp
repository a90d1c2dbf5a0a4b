// One bound: in every round, by the median and by two thirds of the rounds.
#include <algorithm>
#include <sstream>

#include "goals.h"
#include "statistics.h"

namespace bench {
namespace {

std::optional<double> highest(const record& r, int round, const term& t)
{
    std::optional<double> best;
    std::istringstream subjects(t.subject);
    for (std::string subject; std::getline(subjects, subject, '|');) {
        const auto value = r.value(round, t.scenario, subject, t.figure);
        if (value && (!best || *value > *best)) best = value;
    }
    return best;
}

std::optional<double> slope_of(const record& r, int round, const term& t)
{
    std::vector<std::pair<double, double>> points;
    for (const int size : r.sizes(t.scenario)) {
        const auto value = r.value(round, t.scenario + std::to_string(size), t.subject, t.figure);
        if (value) points.emplace_back(size, *value);
    }
    if (points.size() < 2) return std::nullopt;
    return slope(points);
}

std::optional<double> value_of(const record& r, int round, const term& t)
{
    return t.is_slope ? slope_of(r, round, t) : highest(r, round, t);
}

// Rounds in which the first term was taken; what was counted once is one round.
std::vector<int> rounds_of(const record& r, const quotient& q)
{
    const term& t = q.above.front();
    std::string scenario = t.scenario;
    if (t.is_slope) {
        const std::vector<int> sizes = r.sizes(scenario);
        if (sizes.empty()) return {};
        scenario += std::to_string(sizes.back());
    }
    return r.rounds(scenario, t.subject.substr(0, t.subject.find('|')), t.figure);
}

bool within(const bound& b, double value, double limit) { return b.at_most ? value <= limit : value >= limit; }

} // namespace

std::optional<double> quotient::in_round(const record& r, int round) const
{
    double value = factor;
    for (const term& t : above) {
        const auto one = value_of(r, round, t);
        if (!one) return std::nullopt;
        value *= *one;
    }
    for (const term& t : below) {
        const auto one = value_of(r, round, t);
        if (!one || *one == 0) return std::nullopt;
        value /= *one;
    }
    return value;
}

judgement judge(const bound& b, const record& r)
{
    judgement j;
    for (const int round : rounds_of(r, b.value)) {
        const auto value = b.value.in_round(r, round);
        if (!value) return {}; // a counterpart is missing: nothing can be said
        j.values.push_back(*value);
        if (within(b, *value, b.limit)) ++j.kept;
    }
    if (j.values.empty()) return j;
    const double median = spread_of(j.values).median;
    const auto two_thirds = static_cast<int>((2 * j.values.size() + 2) / 3);
    j.met = within(b, median, b.limit) && j.kept >= two_thirds;
    j.stretch_met = b.stretch != 0 && within(b, median, b.stretch);
    return j;
}

bool is_met(const goal& g, const record& r)
{
    return std::all_of(g.bounds.begin(), g.bounds.end(), [&](const bound& b) { return judge(b, r).met; });
}

} // namespace bench
