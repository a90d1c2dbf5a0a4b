#include "slow_display.h"

namespace demo {

std::vector<slow_quantity> host_slow_quantities()
{
    return {{"load 1 min", ""},     {"tasks", ""},          {"memory used", "MiB"},
            {"temperature 0", "C"}, {"frequency 0", "MHz"}, {"uptime", "s"}};
}

slow_display::slow_display(std::vector<slow_quantity> quantities)
    : quantities_(std::move(quantities)), values_(quantities_.size())
{
}

void slow_display::set(std::string_view channel, float value)
{
    for (size_t i = 0; i < quantities_.size(); ++i) {
        if (channel != quantities_[i].channel) continue;
        const std::lock_guard<std::mutex> hold(mutex_);
        values_[i] = value;
    }
}

std::vector<slow_display::row> slow_display::rows() const
{
    const std::lock_guard<std::mutex> hold(mutex_);
    std::vector<row> come;
    for (size_t i = 0; i < quantities_.size(); ++i) {
        if (values_[i]) come.push_back({quantities_[i], *values_[i]});
    }
    return come;
}

} // namespace demo
