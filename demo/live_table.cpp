#include "live_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

#include "plan.h"

namespace demo {
namespace {

constexpr size_t BARS = 40;
constexpr double KIB = 1024;

template <class... Values> std::string formatted(const char* format, Values... values)
{
    char text[256];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

double percent_per_tick_of_user_hz()
{
    const double hz = static_cast<double>(std::max(sysconf(_SC_CLK_TCK), 1L));
    return 100.0 / (hz * static_cast<double>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L)));
}

} // namespace

std::vector<quantity> host_quantities()
{
    const double share = percent_per_tick_of_user_hz();
    const double stall = 100.0 / 1e6; // microseconds per second, as percent
    const double sector = 512;
    return {
        {"processors: programs", "%", PROCESSORS, "cpu", 0, share, true},
        {"processors: kernel", "%", PROCESSORS, "cpu", 1, share, true},
        {"context switches", "/s", PROCESSORS, "context switches", 0, 1, true},
        {"memory available", "MiB", MEMORY, "MemAvailable", 0, 1 / KIB, false},
        {"memory to be written", "MiB", MEMORY, "Dirty", 0, 1 / KIB, false},
        {"stalled for processors", "%", PRESSURE, "processors", 0, stall, true},
        {"stalled for memory", "%", PRESSURE, "memory", 0, stall, true},
        {"stalled for disks", "%", PRESSURE, "disks", 0, stall, true},
        {"network in", "KiB/s", NETWORK, "total", 0, 1 / KIB, true},
        {"network out", "KiB/s", NETWORK, "total", 2, 1 / KIB, true},
        {"disks read", "KiB/s", DISKS, "total", 1, sector / KIB, true},
        {"disks written", "KiB/s", DISKS, "total", 3, sector / KIB, true},
    };
}

live_table::live_table(std::vector<quantity> quantities, std::vector<slow_quantity> slow_quantities)
    : quantities_(std::move(quantities)),
      arriving_(quantities_.size()),
      history_(quantities_.size()),
      slow_(std::move(slow_quantities))
{
    newest_.values = now_.values = before_.values = arriving_;
}

void live_table::channel(std::string_view block, const zrk4::sb_sub& channel)
{
    for (size_t i = 0; i < quantities_.size(); ++i) {
        const quantity& one = quantities_[i];
        if (channel.name() != one.channel || block != one.block) continue;
        arriving_[i] = channel.value<double>(static_cast<size_t>(one.value));
    }
}

void live_table::event(int64_t tick, int64_t latency_ns)
{
    const std::lock_guard<std::mutex> hold(mutex_);
    newest_.tick = tick;
    ++newest_.events;
    newest_.latency_ns += latency_ns;
    newest_.values = arriving_;
}

void live_table::advance()
{
    before_ = now_;
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        now_ = newest_;
    }
    // A rate needs two events; in the first picture there is none.
    const double seconds = static_cast<double>((now_.tick - before_.tick) * PERIOD_US) / 1e6;
    if (before_.events == 0 || seconds <= 0) return;
    for (size_t i = 0; i < quantities_.size(); ++i) {
        history_[i].push_back(shown(i, seconds));
        if (history_[i].size() > BARS) history_[i].pop_front();
    }
}

double live_table::shown(size_t i, double seconds) const
{
    const quantity& one = quantities_[i];
    const double amount = one.counter ? (now_.values[i] - before_.values[i]) / seconds : now_.values[i];
    return amount * one.scale;
}

std::string live_table::sparkline(const std::deque<double>& history, bool from_zero)
{
    static constexpr const char* BAR[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    if (history.empty()) return {};
    const auto [least, most] = std::minmax_element(history.begin(), history.end());
    const double low = from_zero ? std::min(0.0, *least) : *least;
    const double span = *most - low;
    std::string line;
    for (const double value : history) line += BAR[span > 0 ? std::lround((value - low) / span * 7) : 0];
    return line;
}

std::string live_table::headline() const
{
    const int64_t events = now_.events - before_.events;
    const double latency = static_cast<double>(now_.latency_ns - before_.latency_ns) / 1000;
    return formatted("%6.1f s  %7lld events  last block to callback %6.0f us",
                     static_cast<double>((now_.tick + 1) * PERIOD_US) / 1e6, static_cast<long long>(now_.events),
                     events > 0 ? latency / static_cast<double>(events) : 0.0);
}

std::string live_table::picture()
{
    advance();
    const std::vector<slow_display::row> slow = slow_.rows();
    std::string text = drawn_ > 0 ? formatted("\033[%zuA", drawn_) : "";
    drawn_ = 1 + quantities_.size() + slow.size();
    text += "\033[2K" + headline() + "\n";
    for (size_t i = 0; i < quantities_.size(); ++i) {
        const quantity& one = quantities_[i];
        const double value = history_[i].empty() ? 0 : history_[i].back();
        text += formatted("\033[2K  %-24s %12.1f %-6s ", one.label, value, one.unit);
        text += sparkline(history_[i], one.counter) + "\n";
    }
    for (const auto& [what, value] : slow)
        text += formatted("\033[2K  %-24s %12.1f %s\n", what.channel, static_cast<double>(value), what.unit);
    return text;
}

std::string live_table::log_line()
{
    advance();
    std::string text = headline();
    for (size_t i = 0; i < quantities_.size(); ++i) {
        if (!history_[i].empty() && history_[i].back() >= 0.05)
            text += formatted("  %s %.1f %s", quantities_[i].label, history_[i].back(), quantities_[i].unit);
    }
    for (const auto& [what, value] : slow_.rows())
        text += formatted("  %s %.1f%s%s", what.channel, static_cast<double>(value), *what.unit ? " " : "", what.unit);
    return text + "\n";
}

} // namespace demo
