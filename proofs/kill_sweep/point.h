/// @file
/// One point of the sweep: who is killed, in which setting, and where.
#ifndef ZRK4_SWEEP_POINT_H
#define ZRK4_SWEEP_POINT_H

#include <optional>
#include <string>

namespace sweep {

/// What all processes of a host agree on, and how many readers there are.
struct setting {
    bool wide = false;  ///< 2024 records
    bool by_id = false; ///< events are told by their ids, not by their times
    int readers = 1;

    bool operator==(const setting&) const = default;
};

/// Where the kill falls: before the call is made, after it was made, or at an instruction.
enum class moment { before, after, at };

struct point {
    std::string role;
    setting in;
    moment when = moment::before;
    long number = 0; ///< of the call, from 1; of an instruction its offset in the library; 0: nobody is killed

    bool operator==(const point&) const = default;
};

/// "writer:2010:time:2:before:17"
std::string name_of(const point& p);
/// The same without moment and number.
std::string variant_of(const point& p);
/// @return nothing for a text that names no point.
std::optional<point> point_named(const std::string& name);

const char* text_of(moment m);

} // namespace sweep

#endif
