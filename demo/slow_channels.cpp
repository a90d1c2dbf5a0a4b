#include "slow_channels.h"

#include <algorithm>
#include <cerrno>

namespace demo {
namespace {

// A channel's index is a number of its own, which says nothing of its place.
constexpr int32_t FIRST_INDEX = 1000;

} // namespace

slow_channels::slow_channels(const slow_values& first, size_t most)
{
    for (const slow_value& one : first) {
        if (one.status == 0 && names_.size() < most) names_.push_back(one.name);
    }
}

void slow_channels::put_dictionary(zrk4::sb_write& block) const
{
    block.dictionary("SLOW.CHANNELS");
    int32_t index = FIRST_INDEX;
    for (const std::string& name : names_) block.dictionary_entry(name, index++);
}

void slow_channels::put_environment(zrk4::sb_write& block, const slow_values& now, time_stamp taken) const
{
    block.environment("SLOW.VALUES");
    int32_t index = FIRST_INDEX;
    for (const std::string& name : names_) {
        const auto at = std::find_if(now.begin(), now.end(), [&](const slow_value& one) { return one.name == name; });
        const bool measured = at != now.end();
        block.environment_value(index++, taken, measured ? at->value : 0, measured ? at->status : ENODATA);
    }
}

void put_update(zrk4::sb_write& block, const slow_values& properties, time_stamp taken)
{
    block.update("RUN.PROPERTIES");
    for (const slow_value& one : properties) block.update_value(one.name, taken, one.value, one.status);
}

} // namespace demo
