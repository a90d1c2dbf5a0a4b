// The texts of /proc, as channels.
#include "samplers.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "proc_words.h"

namespace demo {
namespace {

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
