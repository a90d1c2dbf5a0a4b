/// @file
/// Time keys that count as the same.
#ifndef ZRK4_IMPL_EVENT_KEY_H
#define ZRK4_IMPL_EVENT_KEY_H

#include <cmath>
#include <cstdint>

#include "event.h"

namespace zrk4::impl {

inline double in_microseconds(const time_stamp& t) { return t.timeup * 1e6 + t.timelow; }

/// The keys of one event: all that are no further than the time mask from the one that is looked for.
class key_range {
  public:
    key_range(const time_stamp& key, uint64_t mask) : at_(in_microseconds(key)), mask_(static_cast<double>(mask)) {}
    bool contains(const time_stamp& key) const { return !(mask_ < std::abs(at_ - in_microseconds(key))); }

  private:
    double at_;
    double mask_;
};

} // namespace zrk4::impl

#endif
