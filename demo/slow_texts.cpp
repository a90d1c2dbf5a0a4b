#include "slow_texts.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "proc_words.h"

namespace demo {
namespace {

constexpr double KIB_PER_MIB = 1024;

void add(slow_values& to, std::string name, double value)
{
    to.push_back({std::move(name), static_cast<float>(value)});
}

std::string_view behind_colon(std::string_view line)
{
    return line.substr(std::min(line.find(':'), line.size() - 1) + 1);
}

/// One quantity of /proc/meminfo, in MiB.
double mebibytes(std::string_view proc_meminfo, std::string_view name)
{
    double found = 0;
    for_each_line(proc_meminfo, [&](std::string_view line) {
        if (line.substr(0, line.find(':')) == name) found = words(behind_colon(line)).number() / KIB_PER_MIB;
    });
    return found;
}

bool is_number(std::string_view word)
{
    const std::string_view digits = word.substr(word.starts_with('-') ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

// "0.20 0.18 0.12 1/80 11206"
void add_load(std::string_view proc_loadavg, slow_values& to)
{
    words text(proc_loadavg);
    for (const char* name : {"load 1 min", "load 5 min", "load 15 min"}) add(to, name, text.decimal());
    const std::string_view tasks = text.next();
    const size_t slash = std::min(tasks.find('/'), tasks.size());
    add(to, "tasks running", words(tasks.substr(0, slash)).number());
    add(to, "tasks", words(tasks.substr(std::min(slash + 1, tasks.size()))).number());
}

void add_memory(std::string_view proc_meminfo, slow_values& to)
{
    const double available = mebibytes(proc_meminfo, "MemAvailable");
    add(to, "memory available", available);
    add(to, "memory used", mebibytes(proc_meminfo, "MemTotal") - available);
    add(to, "swap used", mebibytes(proc_meminfo, "SwapTotal") - mebibytes(proc_meminfo, "SwapFree"));
}

// Each processor's lines begin with "processor : 0"; "cpu MHz : 2400.012" is among them on some architectures only.
void add_frequencies(std::string_view proc_cpuinfo, slow_values& to)
{
    std::string_view processor;
    for_each_line(proc_cpuinfo, [&](std::string_view line) {
        if (line.starts_with("processor")) processor = words(behind_colon(line)).next();
        if (line.starts_with("cpu MHz"))
            add(to, "frequency " + std::string(processor), words(behind_colon(line)).decimal());
    });
}

void add_temperature(int zone, std::string_view millidegrees, slow_values& to)
{
    const std::string_view word = words(millidegrees.substr(0, millidegrees.find('\n'))).next();
    slow_value one{"temperature " + std::to_string(zone)};
    if (is_number(word)) {
        one.value = static_cast<float>(words(word).decimal() / 1000);
    } else {
        one.status = ENODATA;
    }
    to.push_back(std::move(one));
}

void add_uptime(std::string_view proc_uptime, slow_values& to) { add(to, "uptime", words(proc_uptime).decimal()); }

} // namespace demo
