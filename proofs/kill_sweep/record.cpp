#include "record.h"

#include <algorithm>
#include <vector>

namespace sweep {
namespace {

constexpr outcome OUTCOMES[] = {outcome::monitor, outcome::repair, outcome::undecidable, outcome::not_back,
                                outcome::ended};

std::string column(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::vector<std::string> columns_of(const std::string& line)
{
    std::vector<std::string> columns(1);
    for (const char c : line) {
        if (c == '\t') {
            columns.emplace_back();
        } else {
            columns.back() += c;
        }
    }
    return columns;
}

std::optional<outcome> outcome_named(const std::string& text)
{
    const auto* at =
        std::find_if(std::begin(OUTCOMES), std::end(OUTCOMES), [&](outcome o) { return text == text_of(o); });
    if (at == std::end(OUTCOMES)) return std::nullopt;
    return *at;
}

} // namespace

const char* text_of(outcome o)
{
    switch (o) {
    case outcome::monitor:
        return "monitor";
    case outcome::repair:
        return "repair";
    case outcome::undecidable:
        return "undecidable";
    case outcome::ended:
        return "ended";
    default:
        return "not back";
    }
}

std::string line_of(const result& r)
{
    std::string line = name_of(r.at);
    std::replace(line.begin(), line.end(), ':', '\t');
    for (const std::string& text :
         {r.call, r.status, std::string(text_of(r.what)), r.broken, r.findings, r.lost, r.command})
        line += '\t' + column(text);
    return line;
}

std::optional<result> result_of(const std::string& line)
{
    const std::vector<std::string> columns = columns_of(line);
    if (columns.size() != 13) return std::nullopt;
    std::string name = columns[0];
    for (size_t i = 1; i < 6; ++i) name += ':' + columns[i];
    const auto at = point_named(name);
    const auto what = outcome_named(columns[8]);
    if (!at || !what) return std::nullopt;
    return result{*at, columns[6], columns[7], *what, columns[9], columns[10], columns[11], columns[12]};
}

} // namespace sweep
