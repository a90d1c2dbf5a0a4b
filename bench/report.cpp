#include "report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "suite.h"

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

std::string machine_line(const circumstances& how)
{
    const machine& m = how.where;
    std::string used;
    for (const int p : how.processors) used += (used.empty() ? "" : " and ") + std::to_string(p);
    return formatted("%s, %d processors%s, used: %s; %lld MiB; %s; load %.1f before, %.1f after\n", m.processor.c_str(),
                     m.processors, m.virtual_machine ? " (virtual machine)" : "", used.c_str(),
                     static_cast<long long>(m.memory_mib), m.kernel.c_str(), how.load_before, how.load_after);
}

std::string row(const comparison& c)
{
    const spread subject = spread_of(c.subject_values);
    const spread base = spread_of(c.base_values);
    const spread ratio = spread_of(c.ratios());
    const int digits = subject.median < 1000 ? 2 : 0;
    return formatted("  %-22s %-30s %10.*f   %-25s %10.*f   ratio %5.2f  (%.2f to %.2f)\n", c.setting.c_str(),
                     c.subject.c_str(), digits, subject.median, c.base.c_str(), digits, base.median, ratio.median,
                     ratio.lowest, ratio.highest);
}

// One heading for the rows of a figure, in the order in which figures first appear.
std::string table(const std::vector<comparison>& all)
{
    std::vector<std::string> figures;
    std::string text;
    for (const comparison& first : all) {
        if (std::find(figures.begin(), figures.end(), first.figure) != figures.end()) continue;
        figures.push_back(first.figure);
        text += "\n" + first.figure + " [" + first.unit + "]\n";
        for (const comparison& c : all) {
            if (c.figure == first.figure) text += row(c);
        }
    }
    return text;
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

std::string number(double value) { return formatted("%.6g", value); }

template <class Value, class Format> std::string list(const std::vector<Value>& values, Format format)
{
    std::string out;
    for (const Value& v : values) out += (out.empty() ? "" : ", ") + format(v);
    return "[" + out + "]";
}

std::string json_of(const comparison& c)
{
    const spread ratio = spread_of(c.ratios());
    return "{\"figure\": " + quoted(c.figure) + ", \"unit\": " + quoted(c.unit) +
           ", \"setting\": " + quoted(c.setting) + ",\n     \"subject\": " + quoted(c.subject) +
           ", \"subject_values\": " + list(c.subject_values, number) + ",\n     \"base\": " + quoted(c.base) +
           ", \"base_values\": " + list(c.base_values, number) + ",\n     \"ratios\": " + list(c.ratios(), number) +
           ", \"ratio_median\": " + number(ratio.median) + ", \"ratio_lowest\": " + number(ratio.lowest) +
           ", \"ratio_highest\": " + number(ratio.highest) + "}";
}

std::string json_of(const circumstances& how)
{
    const machine& m = how.where;
    return "{\"processor\": " + quoted(m.processor) + ", \"processors\": " + std::to_string(m.processors) +
           ", \"virtual_machine\": " + (m.virtual_machine ? "true" : "false") +
           ", \"memory_mib\": " + std::to_string(m.memory_mib) + ", \"kernel\": " + quoted(m.kernel) +
           ",\n    \"processors_used\": " + list(how.processors, [](int p) { return std::to_string(p); }) +
           ", \"load_before\": " + number(how.load_before) + ", \"load_after\": " + number(how.load_after) + "}";
}

} // namespace

bool goal_met(const std::vector<comparison>& all)
{
    return std::all_of(all.begin(), all.end(), [](const comparison& c) {
        return c.figure != EVENTS_PER_SECOND || spread_of(c.ratios()).median >= GOAL;
    });
}

std::string text_report(const circumstances& how, const std::vector<comparison>& all)
{
    return machine_line(how) +
           formatted("%d rounds, %g s each; medians; ratios are formed inside each round: median (lowest to highest)\n",
                     how.rounds, how.seconds) +
           table(all) +
           formatted("\ngoal, at least %.1f of the reference's events per second in every row: %s\n", GOAL,
                     goal_met(all) ? "met" : "missed");
}

std::string json_report(const circumstances& how, const std::vector<comparison>& all)
{
    std::string comparisons;
    for (const comparison& c : all) comparisons += (comparisons.empty() ? "\n    " : ",\n    ") + json_of(c);
    return "{\n  \"machine\": " + json_of(how) + ",\n  \"rounds\": " + std::to_string(how.rounds) +
           ", \"seconds\": " + number(how.seconds) + ", \"goal\": " + number(GOAL) +
           ", \"goal_met\": " + (goal_met(all) ? "true" : "false") + ",\n  \"comparisons\": [" + comparisons +
           "\n  ]\n}\n";
}

} // namespace bench
