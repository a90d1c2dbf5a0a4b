/// @file
/// Which numbers of a sequence have arrived.
#ifndef ZRK4_TOOL_ARRIVALS_H
#define ZRK4_TOOL_ARRIVALS_H

#include <algorithm>
#include <cstdint>
#include <set>

namespace bm {

/// Numbers may come in any order; those between the first and the last that never came are lost. What arrives below the
/// first one that was seen is no loss: the sender began before us.
class arrivals {
  public:
    void came(int64_t number)
    {
        if (count_ == 0) next_ = first_ = number;
        if (number < first_) {
            first_ = number;
            ++count_;
            return;
        }
        if (number < next_ || !ahead_.insert(number).second) {
            ++repeated_;
            return;
        }
        ++count_;
        last_ = std::max(last_, number);
        while (ahead_.erase(next_) != 0) ++next_;
    }
    int64_t count() const { return count_; }
    int64_t repeated() const { return repeated_; }
    /// Numbers up to the last one that have not come.
    int64_t lost() const { return count_ == 0 ? 0 : last_ + 1 - next_ - static_cast<int64_t>(ahead_.size()); }

  private:
    int64_t first_ = 0, next_ = 0, last_ = 0, count_ = 0, repeated_ = 0;
    std::set<int64_t> ahead_; // beyond a gap
};

} // namespace bm

#endif
