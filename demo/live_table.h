/// @file
/// What the first reader shows while it runs: a table with sparklines on a terminal, a line now and then elsewhere.
#ifndef ZRK4_DEMO_LIVE_TABLE_H
#define ZRK4_DEMO_LIVE_TABLE_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "blocks.h"
#include "slow_display.h"

namespace demo {

/// One quantity of the table: where its value lies in an event, and how it is shown.
struct quantity {
    const char* label;
    const char* unit;
    const char* block;
    const char* channel;
    int value;    ///< which number of the channel
    double scale; ///< from the counter's unit to the one shown
    bool counter; ///< a counter that only grows: its rate per second is shown
};
std::vector<quantity> host_quantities();

/// The reader thread hands in events, the main thread takes out texts.
class live_table {
  public:
    live_table(std::vector<quantity> quantities, std::vector<slow_quantity> slow_quantities);

    // ---- reader thread: the channels of an event, then the event ----
    void channel(std::string_view block, const zrk4::sb_sub& channel);
    void event(int64_t tick, int64_t latency_ns);
    void slow(std::string_view channel, float value) { slow_.set(channel, value); }

    // ---- main thread: what came since the last call ----
    /// The table, drawn over its own last picture.
    std::string picture();
    /// One line.
    std::string log_line();

    /// @return the last values of `history` as a row of bars, the highest of them full height.
    static std::string sparkline(const std::deque<double>& history, bool from_zero);

  private:
    struct snapshot {
        int64_t tick = -1; ///< of the newest event
        int64_t events = 0;
        int64_t latency_ns = 0; ///< of all events together
        std::vector<double> values;
    };
    void advance();
    double shown(size_t i, double seconds) const;
    std::string headline() const;

    const std::vector<quantity> quantities_;
    std::vector<double> arriving_; ///< reader thread only
    std::mutex mutex_;
    snapshot newest_; ///< under the mutex
    snapshot now_, before_;
    std::vector<std::deque<double>> history_;
    slow_display slow_;
    size_t drawn_ = 0; ///< lines of the last picture
};

} // namespace demo

#endif
