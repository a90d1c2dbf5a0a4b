#include "verdict.h"

#include <algorithm>
#include <cstdio>
#include <istream>

#include "fields.h"

namespace bench {
namespace {

constexpr char LOOK_UP[] = "look-up";
constexpr double LOOKUP_GOAL = 1.3;
constexpr double QUERY_GOAL = 0.25; ///< far from comparing all names
constexpr double MERGE_GOAL = 1;    ///< the query with all that comes before it

struct duel_of_line {
    judged empty; ///< without values
    double subject;
    double base;
};

double nanoseconds(const proof::record_line& line, const char* key)
{
    return static_cast<double>(line.number(key)) / 1000;
}

std::vector<duel_of_line> duels_of(const proof::record_line& line)
{
    const std::string channels = line.text("channels") + " channels";
    if (line.kind() == "lookup") {
        const std::string setting = channels + " of " + line.text("data") + " bytes";
        const std::string reader = "reader of " + line.text("reader");
        const double call = nanoseconds(line, "call_ps");
        const auto beside = [&](const char* base, const char* key) {
            return duel_of_line{{{LOOK_UP, "ns per sub-block", setting, reader, base, {}, {}}, LOOKUP_GOAL},
                                call,
                                nanoseconds(line, key)};
        };
        return {beside("plain loop, address from the pool", "program_ps"), beside("plain loop alone", "loop_ps")};
    }
    const bool merged = line.text("event") == "merged";
    return {{{{"query", "ns", channels, merged ? "query behind a merge" : "query", "comparing all names", {}, {}},
              merged ? MERGE_GOAL : QUERY_GOAL},
             nanoseconds(line, "query_ps"),
             nanoseconds(line, "names_ps")}};
}

bool same_row(const comparison& a, const comparison& b)
{
    return a.figure == b.figure && a.setting == b.setting && a.subject == b.subject && a.base == b.base;
}

judged& row_of(std::vector<judged>& rows, const judged& wanted)
{
    const auto at =
        std::find_if(rows.begin(), rows.end(), [&](const judged& r) { return same_row(r.duel, wanted.duel); });
    return at != rows.end() ? *at : rows.emplace_back(wanted);
}

std::string row_name(const comparison& c) { return c.figure + ", " + c.setting + ", " + c.subject + ", " + c.base; }

std::string faults_of(const judged& row, uint64_t rounds)
{
    const auto is_none = [](double value) { return value <= 0; };
    const comparison& c = row.duel;
    if (c.subject_values.size() != rounds) return row_name(c) + ": not one value per round\n";
    if (std::any_of(c.subject_values.begin(), c.subject_values.end(), is_none) ||
        std::any_of(c.base_values.begin(), c.base_values.end(), is_none))
        return row_name(c) + ": a time that cannot be\n";
    return "";
}

} // namespace

bool judged::met() const { return !duel.ratios().empty() && spread_of(duel.ratios()).median <= at_most; }

lookup_record read_lookups(std::istream& record)
{
    lookup_record seen;
    uint64_t rounds = 0;
    uint64_t planned = 0;
    uint64_t measured = 0;
    proof::for_each_line(record, [&](const proof::record_line& line) {
        if (line.kind() == "plan") {
            rounds = line.number("rounds");
            planned = line.number("cases") * rounds;
        }
        if (line.kind() != "lookup" && line.kind() != "query") return;
        ++measured;
        for (const duel_of_line& d : duels_of(line)) {
            judged& row = row_of(seen.rows, d.empty);
            row.duel.subject_values.push_back(d.subject);
            row.duel.base_values.push_back(d.base);
        }
    });
    if (planned == 0 || measured != planned)
        seen.wrong += std::to_string(measured) + " of " + std::to_string(planned) + " measurements\n";
    for (const judged& row : seen.rows) seen.wrong += faults_of(row, rounds);
    return seen;
}

std::string last_line(const lookup_record& seen)
{
    const auto met = std::count_if(seen.rows.begin(), seen.rows.end(), [](const judged& r) { return r.met(); });
    return "goals met: " + std::to_string(met) + " of " + std::to_string(seen.rows.size());
}

std::string lookup_report(const lookup_record& seen)
{
    std::string text;
    for (const judged& row : seen.rows) {
        const comparison& c = row.duel;
        const spread ratio = spread_of(c.ratios());
        char line[256];
        std::snprintf(line, sizeof line, "%-28s %-21s %10.2f   %-34s %10.2f  %-16s  ratio %5.2f (%.2f to %.2f) %s\n",
                      c.setting.c_str(), c.subject.c_str(), spread_of(c.subject_values).median, c.base.c_str(),
                      spread_of(c.base_values).median, c.unit.c_str(), ratio.median, ratio.lowest, ratio.highest,
                      row.met() ? "met" : "missed");
        text += line;
    }
    return text + seen.wrong + last_line(seen) + "\n";
}

bool canary_seen(const lookup_record& seen)
{
    const auto missed = [](const judged& r) { return r.duel.figure != LOOK_UP || !r.met(); };
    return !seen.rows.empty() && seen.wrong.empty() && std::all_of(seen.rows.begin(), seen.rows.end(), missed);
}

} // namespace bench
