#include "cli/output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>

#include <fmt/format.h>
#include <pwd.h>

namespace bm {
namespace {

std::string dumped(const json& document, int indent)
{
    return document.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
}

const char* code_of(tone how)
{
    switch (how) {
    case tone::strong:
        return "\x1b[1m";
    case tone::good:
        return "\x1b[32m";
    case tone::warning:
        return "\x1b[33m";
    case tone::bad:
        return "\x1b[31m";
    case tone::faint:
        return "\x1b[2m";
    default:
        return "";
    }
}

} // namespace

json document(const char* command) { return {{"schema", fmt::format("bm.{}", command)}, {"version", SCHEMA_VERSION}}; }

void print_document(const json& document) { print(dumped(document, 2)); }

std::string document_line(const json& document) { return dumped(document, -1); }

void print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

std::string printable(std::string_view text)
{
    const auto is_plain = [](char c) { return c >= 0x20 && c < 0x7f; };
    if (std::all_of(text.begin(), text.end(), is_plain)) return std::string(text);
    std::string safe;
    for (const char c : text) {
        if (is_plain(c)) {
            safe += c;
        } else {
            safe += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    return safe;
}

std::string size_text(uint64_t bytes)
{
    constexpr std::array units{"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 999.5 && unit + 1 < units.size()) {
        value /= 1000;
        ++unit;
    }
    if (unit == 0) return fmt::format("{} B", bytes);
    return fmt::format("{:.{}f} {}", value, value < 9.995 ? 2 : value < 99.95 ? 1 : 0, units[unit]);
}

std::string span_text(double seconds)
{
    if (seconds < 0) return fmt::format("-{}", span_text(-seconds));
    if (seconds < 1) return fmt::format("{:.0f} ms", seconds * 1000);
    if (seconds < 100) return fmt::format("{:.1f} s", seconds);
    const auto whole = static_cast<int64_t>(seconds);
    if (whole < 3600) return fmt::format("{} min {} s", whole / 60, whole % 60);
    if (whole < 86400) return fmt::format("{} h {} min", whole / 3600, whole % 3600 / 60);
    return fmt::format("{} d {} h", whole / 86400, whole % 86400 / 3600);
}

std::string user_text(unsigned uid)
{
    std::array<char, 4096> room{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(uid, &entry, room.data(), room.size(), &found) == 0 && found != nullptr) return entry.pw_name;
    return fmt::format("{}", uid);
}

std::string toned(std::string_view text, tone how, bool color)
{
    if (!color || how == tone::plain) return std::string(text);
    return fmt::format("{}{}\x1b[0m", code_of(how), text);
}

void table::row(std::vector<std::string> cells, tone how)
{
    cells.resize(columns_.size());
    rows_.push_back({std::move(cells), how});
}

std::vector<size_t> table::widths() const
{
    std::vector<size_t> all;
    for (size_t c = 0; c < columns_.size(); ++c) {
        size_t width = columns_[c].heading.size();
        for (const line& each : rows_) width = std::max(width, each.cells[c].size());
        all.push_back(width);
    }
    return all;
}

std::string table::text(bool color) const
{
    const std::vector<size_t> wide = widths();
    std::string all;
    all.reserve((rows_.size() + 1) * (std::accumulate(wide.begin(), wide.end(), wide.size() * 2) + 16));
    // By hand: thousands of rows are formatted as fast as they are read.
    std::string one;
    const auto put = [&](const auto& cell_of, tone how) {
        one.clear();
        for (size_t c = 0; c < columns_.size(); ++c) {
            const std::string& cell = cell_of(c);
            if (c != 0) one += "  ";
            if (columns_[c].how == right) one.append(wide[c] - cell.size(), ' ');
            one += cell;
            if (columns_[c].how == left) one.append(wide[c] - cell.size(), ' ');
        }
        one.erase(one.find_last_not_of(' ') + 1);
        all += how == tone::plain ? one : toned(one, how, color);
        all += '\n';
    };
    put([&](size_t c) -> const std::string& { return columns_[c].heading; }, tone::strong);
    for (const line& each : rows_) put([&](size_t c) -> const std::string& { return each.cells[c]; }, each.how);
    return all;
}

} // namespace bm
