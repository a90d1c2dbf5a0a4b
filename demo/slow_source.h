/// @file
/// The slow channels of this host: what changes little from second to second.
#ifndef ZRK4_DEMO_SLOW_SOURCE_H
#define ZRK4_DEMO_SLOW_SOURCE_H

#include <memory>
#include <vector>

#include "samplers.h"
#include "slow_texts.h"

namespace demo {

class slow_source {
  public:
    /// Looks for the host's temperature sensors, once.
    slow_source();
    /// All channels, in the same order each time, as far as the host has them.
    slow_values measure();
    /// What is told as it changes, beside the channels: the uptime, which is one of them as well.
    void add_properties(slow_values& to) { add_uptime(uptime_.read(), to); }

  private:
    proc_file load_{"/proc/loadavg"}, memory_{"/proc/meminfo"}, uptime_{"/proc/uptime"}, processors_{"/proc/cpuinfo"};
    std::vector<std::unique_ptr<proc_file>> temperatures_;
};

} // namespace demo

#endif
