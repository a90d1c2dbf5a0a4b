/// @file
/// The slow channels that the first reader shows, with their newest values.
#ifndef ZRK4_DEMO_SLOW_DISPLAY_H
#define ZRK4_DEMO_SLOW_DISPLAY_H

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

struct slow_quantity {
    const char* channel;
    const char* unit;
};
std::vector<slow_quantity> host_slow_quantities();

/// The reader thread hands in values, the main thread takes out those that have come.
class slow_display {
  public:
    explicit slow_display(std::vector<slow_quantity> quantities);
    void set(std::string_view channel, float value);

    struct row {
        slow_quantity what;
        float value;
    };
    std::vector<row> rows() const;

  private:
    const std::vector<slow_quantity> quantities_;
    mutable std::mutex mutex_;
    std::vector<std::optional<float>> values_; ///< under the mutex
};

} // namespace demo

#endif
