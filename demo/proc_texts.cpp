// The texts of /proc, as channels.
#include "samplers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

namespace demo {
namespace {

/// Takes a text apart from its front.
class words {
  public:
    explicit words(std::string_view text) : rest_(text) {}

    /// @return the next word, empty at the end.
    std::string_view next()
    {
        const size_t from = std::min(rest_.find_first_not_of(" \t"), rest_.size());
        const size_t to = std::min(rest_.find_first_of(" \t", from), rest_.size());
        const std::string_view word = rest_.substr(from, to - from);
        rest_.remove_prefix(to);
        return word;
    }
    /// @return the next word as a number, 0 when it is none.
    double number()
    {
        const std::string_view word = next();
        uint64_t value = 0;
        std::from_chars(word.data(), word.data() + word.size(), value);
        return static_cast<double>(value);
    }
    void skip(int count)
    {
        for (int i = 0; i < count; ++i) next();
    }

  private:
    std::string_view rest_;
};

template <class Visit> void for_each_line(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        visit(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void processor_line(std::string_view name, words& line, block_writer& block)
{
    std::array<double, 8> spent{}; // user nice system idle iowait irq softirq steal
    for (double& ticks : spent) ticks = line.number();
    block.channel(name, {spent[0] + spent[1], spent[2] + spent[5] + spent[6] + spent[7], spent[4], spent[3]});
}

double pressure_total(std::string_view text, std::string_view kind)
{
    double total = 0;
    for_each_line(text, [&](std::string_view line) {
        const size_t at = line.find("total=");
        if (line.starts_with(kind) && at != std::string_view::npos) total = words(line.substr(at + 6)).number();
    });
    return total;
}

/// Four counters of one device.
struct device {
    std::string_view name;
    std::array<double, 4> counts;
};

// The sum comes first: on a host with more devices than a block has room for it must not be what is left out.
void put_devices(const std::vector<device>& devices, std::string_view not_summed, block_writer& block)
{
    std::array<double, 4> total{};
    for (const device& one : devices) {
        for (size_t i = 0; one.name != not_summed && i < total.size(); ++i) total[i] += one.counts[i];
    }
    block.channel("total", {total[0], total[1], total[2], total[3]});
    for (const auto& [name, n] : devices) block.channel(name, {n[0], n[1], n[2], n[3]});
}

} // namespace

void processor_channels(std::string_view proc_stat, block_writer& block)
{
    for_each_line(proc_stat, [&](std::string_view text) {
        words line(text);
        const std::string_view name = line.next();
        if (name.starts_with("cpu")) processor_line(name, line, block);
        if (name == "ctxt") block.channel("context switches", {line.number()});
        if (name == "processes") block.channel("forks", {line.number()});
        if (name == "procs_running") block.channel("running", {line.number()});
    });
}

void memory_channels(std::string_view proc_meminfo, block_writer& block)
{
    static constexpr std::array<std::string_view, 9> WANTED{"MemTotal",  "MemFree",   "MemAvailable", "Cached", "Dirty",
                                                            "Writeback", "AnonPages", "Shmem",        "Slab"};
    for_each_line(proc_meminfo, [&](std::string_view text) {
        const std::string_view name = text.substr(0, text.find(':'));
        if (std::find(WANTED.begin(), WANTED.end(), name) == WANTED.end()) return;
        words line(text);
        line.skip(1);
        block.channel(name, {line.number()});
    });
}

void pressure_channel(const char* name, std::string_view proc_pressure, int error, block_writer& block)
{
    if (error == 0 && proc_pressure.empty()) error = ENODATA;
    block.channel(name, {pressure_total(proc_pressure, "some "), pressure_total(proc_pressure, "full ")}, error);
}

void network_channels(std::string_view proc_net_dev, block_writer& block)
{
    std::vector<device> devices;
    for_each_line(proc_net_dev, [&](std::string_view text) {
        const size_t colon = text.find(':');
        if (colon == std::string_view::npos) return;
        device one{words(text.substr(0, colon)).next(), {}};
        words line(text.substr(colon + 1));
        one.counts[0] = line.number();
        one.counts[1] = line.number();
        line.skip(6);
        one.counts[2] = line.number();
        one.counts[3] = line.number();
        devices.push_back(one);
    });
    put_devices(devices, "lo", block);
}

void disk_channels(std::string_view proc_diskstats, const std::function<bool(const std::string&)>& whole,
                   block_writer& block)
{
    std::vector<device> devices;
    for_each_line(proc_diskstats, [&](std::string_view text) {
        words line(text);
        line.skip(2);
        device one{line.next(), {}};
        for (double& count : one.counts) { // each is followed by one that is not wanted
            count = line.number();
            line.skip(1);
        }
        if (one.counts != decltype(one.counts){} && whole(std::string(one.name))) devices.push_back(one);
    });
    put_devices(devices, "", block);
}

} // namespace demo
