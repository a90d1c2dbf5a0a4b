/// @file
/// The dictionary of a run, and the records that the run control writes by it.
#ifndef ZRK4_DEMO_SLOW_CHANNELS_H
#define ZRK4_DEMO_SLOW_CHANNELS_H

#include <string>
#include <vector>

#include "sb_write.h"
#include "slow_texts.h"

namespace demo {

/// The names of a run's slow channels. They stay as they are until its end: readers keep the first dictionary.
class slow_channels {
  public:
    /// @param first  what was measured at the begin of the run; a channel that is not valid then is none of the run's
    /// @param most   channels that the dictionary has room for
    slow_channels(const slow_values& first, size_t most);

    size_t size() const { return names_.size(); }
    void put_dictionary(zrk4::sb_write& block) const;
    /// A value for every channel of the dictionary; one that is missing in `now` is not valid.
    void put_environment(zrk4::sb_write& block, const slow_values& now, time_stamp taken) const;

  private:
    std::vector<std::string> names_;
};

/// An update block of all the values.
void put_update(zrk4::sb_write& block, const slow_values& properties, time_stamp taken);

} // namespace demo

#endif
