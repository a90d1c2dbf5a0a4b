#include "slow_source.h"

#include <string>

namespace demo {

// Sensors are numbered from 0 without gaps.
slow_source::slow_source()
{
    for (int zone = 0;; ++zone) {
        const std::string path = "/sys/class/thermal/thermal_zone" + std::to_string(zone) + "/temp";
        auto sensor = std::make_unique<proc_file>(path.c_str());
        if (sensor->error() != 0) return;
        temperatures_.push_back(std::move(sensor));
    }
}

slow_values slow_source::measure()
{
    slow_values all;
    add_load(load_.read(), all);
    add_memory(memory_.read(), all);
    add_uptime(uptime_.read(), all);
    for (size_t zone = 0; zone < temperatures_.size(); ++zone)
        add_temperature(static_cast<int>(zone), temperatures_[zone]->read(), all);
    add_frequencies(processors_.read(), all);
    return all;
}

} // namespace demo
