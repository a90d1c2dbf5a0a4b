/// @file
/// The raw record: one line per point, columns separated by tabs.
#ifndef ZRK4_SWEEP_RECORD_H
#define ZRK4_SWEEP_RECORD_H

#include <optional>
#include <string>

#include "point.h"

namespace sweep {

/// What became of a point.
enum class outcome {
    monitor,     ///< after twelve periods of the monitor everything was back
    repair,      ///< after the repair everything was back
    undecidable, ///< what is not back is listed, with its owner, as not to be decided
    not_back,    ///< something is lost
    ended        ///< nobody was killed: the role ended before it came to the point
};

struct result {
    point at;
    std::string call;   ///< its name; empty for an instruction
    std::string status; ///< wait status of the victim, KILLED or LIVES; anything else is a fault
    outcome what = outcome::not_back;
    std::string broken;   ///< claims that did not hold, separated by " | "; empty: all held
    std::string findings; ///< what was missing before the repair and what the checker said, likewise
    std::string lost;     ///< keys of the events that a surviving reader never got, separated by blanks
    std::string command;  ///< exit statuses of bm check, bm repair and bm check again; empty: the library checked
};

inline constexpr const char* KILLED = "signal 9";
inline constexpr const char* LIVES = "lives"; ///< its role ended before the point was reached

const char* text_of(outcome o);
/// Without the closing newline; tabs and newlines inside a column become blanks.
std::string line_of(const result& r);
/// @return nothing for a line that is none of a record.
std::optional<result> result_of(const std::string& line);

} // namespace sweep

#endif
