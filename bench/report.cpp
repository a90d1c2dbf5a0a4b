#include "report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <map>

#include "statistics.h"

namespace bench {
namespace {

__attribute__((format(printf, 1, 2))) std::string formatted(const char* fmt, ...)
{
    char line[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    return line;
}

// All rounds of one figure of one subject, in the order in which the record has them.
struct series {
    std::string scenario, subject, figure;
    std::vector<double> values;
};

std::vector<series> all_series(const record& r)
{
    std::vector<series> all;
    std::map<std::string, size_t> known;
    for (const figure_line& line : r.lines()) {
        const std::string name = line.scenario + '\t' + line.subject + '\t' + line.figure;
        const auto [at, is_new] = known.emplace(name, all.size());
        if (is_new) all.push_back({line.scenario, line.subject, line.figure, {}});
        all[at->second].values.push_back(line.value);
    }
    return all;
}

std::string figure_row(const series& s)
{
    const spread values = spread_of(s.values);
    const int digits = values.median < 1000 ? 2 : 0;
    return formatted("  %-28s %-16s %-18s %12.*f  (%.*f to %.*f), %zu rounds\n", s.scenario.c_str(), s.subject.c_str(),
                     s.figure.c_str(), digits, values.median, digits, values.lowest, digits, values.highest,
                     s.values.size());
}

std::string bound_row(const bound& b, const judgement& j)
{
    if (j.values.empty()) return formatted("    %-38s not measured: missed\n", b.what.c_str());
    const spread values = spread_of(j.values);
    return formatted("    %-38s %7.3f  (%.3f to %.3f)  %s %.2f in %d of %zu: %s%s\n", b.what.c_str(), values.median,
                     values.lowest, values.highest, b.at_most ? "<=" : ">=", b.limit, j.kept, j.values.size(),
                     j.met ? "met" : "missed", j.stretch_met ? ", stretch" : "");
}

std::string quoted(const std::string& text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
    return out + '"';
}

template <class Value, class Format>
std::string list(const std::vector<Value>& values, Format format, const char* between = ", ")
{
    std::string text;
    for (const Value& v : values) text += (text.empty() ? "" : between) + format(v);
    return '[' + text + ']';
}

std::string numbers(const std::vector<double>& values)
{
    return list(values, [](double v) { return formatted("%.6g", v); });
}

std::string json_bound(const bound& b, const record& r)
{
    const judgement j = judge(b, r);
    return "{\"what\": " + quoted(b.what) + ", \"values\": " + numbers(j.values) +
           formatted(", \"%s\": %.6g, \"met\": %s}", b.at_most ? "at_most" : "at_least", b.limit,
                     j.met ? "true" : "false");
}

int met(const record& r, const std::vector<goal>& goals)
{
    return static_cast<int>(std::count_if(goals.begin(), goals.end(), [&](const goal& g) { return is_met(g, r); }));
}

} // namespace

std::string text_report(const record& r, const std::vector<goal>& goals)
{
    std::string text;
    for (const std::string& machine : r.machines()) text += machine + '\n';
    text += "\nmedian (lowest to highest)\n";
    for (const series& s : all_series(r)) text += figure_row(s);
    text += "\ngoals\n";
    for (const goal& g : goals) {
        text += formatted("  %2d %s: %s\n", g.number, g.title.c_str(), is_met(g, r) ? "met" : "missed");
        for (const bound& b : g.bounds) text += bound_row(b, judge(b, r));
    }
    return text;
}

std::string last_line(const record& r, const std::vector<goal>& goals)
{
    return formatted("goals met: %d of %zu\n", met(r, goals), goals.size());
}

std::string json_report(const record& r, const std::vector<goal>& goals)
{
    const auto figure = [](const series& s) {
        return "{\"scenario\": " + quoted(s.scenario) + ", \"subject\": " + quoted(s.subject) +
               ", \"figure\": " + quoted(s.figure) + ", \"values\": " + numbers(s.values) + '}';
    };
    const auto verdict = [&](const goal& g) {
        return formatted("{\"number\": %d, \"title\": ", g.number) + quoted(g.title) +
               ", \"met\": " + (is_met(g, r) ? "true" : "false") +
               ", \"bounds\": " + list(g.bounds, [&](const bound& b) { return json_bound(b, r); }) + '}';
    };
    return "{\"machines\": " + list(r.machines(), quoted) + ",\n\"figures\": " + list(all_series(r), figure, ",\n") +
           ",\n\"goals\": " + list(goals, verdict, ",\n") + formatted(",\n\"goals_met\": %d}\n", met(r, goals));
}

} // namespace bench
