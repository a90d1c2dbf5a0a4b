/// @file
/// The texts of /proc and /sys as values of slow channels.
#ifndef ZRK4_DEMO_SLOW_TEXTS_H
#define ZRK4_DEMO_SLOW_TEXTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

/// A slow channel as it was measured.
struct slow_value {
    std::string name;
    float value = 0;
    int32_t status = 0; ///< 0: valid
};
using slow_values = std::vector<slow_value>;

/// "load 1 min", "load 5 min", "load 15 min"; "tasks running" and "tasks".
void add_load(std::string_view proc_loadavg, slow_values& to);
/// "memory available", "memory used" and "swap used", in MiB.
void add_memory(std::string_view proc_meminfo, slow_values& to);
/// "frequency 0" ... of each processor that tells it, in MHz.
void add_frequencies(std::string_view proc_cpuinfo, slow_values& to);
/// "temperature `zone`" in degrees Celsius; not valid when the text is no number.
void add_temperature(int zone, std::string_view millidegrees, slow_values& to);
/// "uptime" in seconds.
void add_uptime(std::string_view proc_uptime, slow_values& to);

} // namespace demo

#endif
