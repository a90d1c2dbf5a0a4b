/// @file
/// Why an event is still there, in sentences.
#ifndef ZRK4_TOOL_AUTOPSY_H
#define ZRK4_TOOL_AUTOPSY_H

#include <optional>
#include <string>
#include <vector>

#include "host/udp_sockets.h"
#include "model/exchange.h"

namespace bm {

/// What the master's monitor will do about an event that does not change any more.
enum class fate {
    moves,   ///< everything is in and everybody is done: it is being ended, or its last client died at that
    freed,   ///< the monitor frees it, within `in_s`
    kept,    ///< a live reader works on it: as long as it lives the monitor leaves the event alone
    overdue, ///< it should have been freed long ago: nobody monitors
    broken   ///< its slot contradicts itself: a matter for bm check
};
const char* word_of(fate f);

struct autopsy {
    std::vector<std::string> sentences; ///< in the order in which they are read
    fate outlook = fate::freed;
    double in_s = 0; ///< until the monitor acts, 0 when it is due
    bool hangs = false;
};

autopsy autopsy_of(const event& one, const exchange& seen, processes& known, const std::optional<udp_sockets>& sockets);

} // namespace bm

#endif
