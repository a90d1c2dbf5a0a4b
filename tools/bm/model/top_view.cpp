#include "model/top_view.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace bm {
namespace {

struct row {
    std::vector<std::string> cells;
    tone how = tone::plain;
};

/// Rows under their columns.
struct content {
    std::vector<table::column> columns;
    std::vector<row> rows;
};

content clients_of(const moment& seen)
{
    content all{{{"SLOT", table::right},
                 {"PID", table::right},
                 {"COMMAND"},
                 {"STATE"},
                 {"ROLE"},
                 {"TYPE"},
                 {"EV/S", table::right},
                 {"EVENTS", table::right},
                 {"QUEUE B", table::right},
                 {"DROPS", table::right}},
                {}};
    for (const moving_client& one : seen.clients) {
        const bool fine = one.who.state == life::alive && one.new_drops == 0;
        all.rows.push_back(
            {{fmt::format("{}", one.what.slot), fmt::format("{}", one.what.pid), printable(one.who.command),
              word_of(one.who.state), one.what.role(), type_text(one.what.evtype), fmt::format("{:.1f}", one.rate),
              fmt::format("{}", static_cast<uint32_t>(one.what.events)),
              one.socket ? fmt::format("{}", one.socket->queued) : "-",
              one.socket ? fmt::format("{}", one.socket->drops) : "-"},
             fine ? tone::plain : tone::bad});
    }
    return all;
}

content events_of(const moment& seen)
{
    content all{{{"SLOT", table::right},
                 {"TYPE"},
                 {"KEY"},
                 {"ID", table::right},
                 {"FILLED", table::right},
                 {"OF", table::right},
                 {"AGE S", table::right},
                 {"IDLE S", table::right},
                 {"OPEN", table::right},
                 {"CLIENTS", table::right}},
                {}};
    for (const event& one : seen.events) {
        const auto open = std::count_if(one.clients.begin(), one.clients.end(), [](const zrk4_client_block& block) {
            return static_cast<int32_t>(block.status) != CLI_S_DONE;
        });
        const double idle = idle_seconds(one, seen.now);
        const double age = static_cast<double>(seen.now - one.start) / 1e6;
        all.rows.push_back(
            {{fmt::format("{}", one.slot), type_text(one.type), one.key_text(), fmt::format("{}", one.id),
              fmt::format("{}", one.filled_said), fmt::format("{}", one.expected), fmt::format("{:.1f}", age),
              fmt::format("{:.1f}", idle), fmt::format("{}", open), fmt::format("{}", one.clients.size())},
             idle >= SUSPICIOUS_AFTER_S ? tone::bad : tone::plain});
    }
    return all;
}

content partitions_of(const moment& seen)
{
    content all{{{"NAME"},
                 {"ID", table::right},
                 {"BUFFERS", table::right},
                 {"BYTES", table::right},
                 {"FREE", table::right},
                 {"OUT", table::right},
                 {"USERS", table::right}},
                {}};
    for (const partition& one : seen.data) {
        all.rows.push_back({{printable(one.name), fmt::format("{}", one.where.id), fmt::format("{}", one.buffers()),
                             fmt::format("{}", one.length()), fmt::format("{}", one.free()),
                             fmt::format("{}", one.out()), fmt::format("{}", +one.control().gbl_count)},
                            one.free() == 0 ? tone::bad : tone::plain});
    }
    return all;
}

// Numbers by their value, anything else by its letters.
bool comes_before(const std::string& a, const std::string& b)
{
    const auto number = [](const std::string& text, double& into) {
        const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), into);
        return error == std::errc() && next == text.data() + text.size();
    };
    double x = 0, y = 0;
    if (number(a, x) && number(b, y)) return x < y;
    return a < b;
}

bool holds(const row& one, const std::string& text)
{
    return std::any_of(one.cells.begin(), one.cells.end(),
                       [&](const std::string& cell) { return cell.find(text) != std::string::npos; });
}

std::string summary(const moment& seen)
{
    return fmt::format("{:.1f} events/s  {:.3f} MB/s  open {}/{}  oldest {}  out {}/{}  drops {}  reclaims {}",
                       seen.events_per_s, seen.bytes_per_s / 1e6, seen.open, seen.slots,
                       seen.open == 0 ? "-" : span_text(seen.oldest_s), seen.out, seen.buffers, seen.drops,
                       seen.reclaims);
}

} // namespace

bool top_view::take(int key)
{
    if (asking) {
        type(key);
        return true;
    }
    switch (key) {
    case 'q':
        return false;
    case screen::TAB:
        shown = static_cast<what>((shown + 1) % views);
        sorted_by = 0;
        break;
    case 's':
        ++sorted_by; // folded when shown: views have different columns
        break;
    case 'r':
        descending = !descending;
        break;
    case ' ':
        frozen = !frozen;
        break;
    case '/':
        asking = true;
        filter.clear();
        break;
    default:
        break;
    }
    return true;
}

void top_view::type(int key)
{
    if (key == screen::ENTER || key == screen::ESCAPE) {
        asking = false;
        if (key == screen::ESCAPE) filter.clear();
    } else if (key == screen::ERASE) {
        if (!filter.empty()) filter.pop_back();
    } else if (key >= ' ' && key < screen::ERASE) {
        filter += static_cast<char>(key);
    }
}

std::vector<screen_line> top_view::lines(const moment& seen, int rows) const
{
    content all = shown == clients ? clients_of(seen) : shown == events ? events_of(seen) : partitions_of(seen);
    const size_t by = sorted_by % all.columns.size();
    std::erase_if(all.rows, [&](const row& one) { return !filter.empty() && !holds(one, filter); });
    std::stable_sort(all.rows.begin(), all.rows.end(), [&](const row& a, const row& b) {
        return descending ? comes_before(b.cells[by], a.cells[by]) : comes_before(a.cells[by], b.cells[by]);
    });
    constexpr const char* TITLES[]{"clients", "events", "partitions"};
    std::vector<screen_line> screen;
    screen.push_back({summary(seen), tone::strong});
    screen.push_back(
        {fmt::format("{} by {}{}{}{}   [tab] view [s]ort [r]everse [/]filter [space]freeze [q]uit", TITLES[shown],
                     all.columns[by].heading, descending ? ", descending" : "",
                     filter.empty() && !asking ? "" : fmt::format(", with \"{}{}\"", filter, asking ? "_" : ""),
                     frozen ? ", frozen" : ""),
         tone::faint});
    // All rows are laid out before they are cut: columns do not jump when one scrolls by.
    table laid_out(all.columns);
    for (const row& one : all.rows) laid_out.row(one.cells);
    const std::string text = laid_out.text(false);
    size_t at = 0;
    for (size_t n = 0; at < text.size() && static_cast<int>(screen.size()) < rows; ++n) {
        const size_t end = text.find('\n', at);
        screen.push_back({text.substr(at, end - at), n == 0 ? tone::strong : all.rows[n - 1].how});
        at = end + 1;
    }
    return screen;
}

} // namespace bm
