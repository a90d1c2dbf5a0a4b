/// @file
/// The last line of a sweep over failing calls, derived from its record.
#ifndef ZRK4_CALL_FAULTS_SUMMARY_H
#define ZRK4_CALL_FAULTS_SUMMARY_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace call_faults {

struct figures {
    uint64_t points = 0;
    uint64_t met = 0;     ///< the failing call was made
    uint64_t crashed = 0; ///< a process ended by a signal
    uint64_t hung = 0;    ///< a process did not end, or the others did not get on
    uint64_t wrong = 0;   ///< an event came twice or changed, a survivor ended, a datagram that was not lost was
    uint64_t leaked = 0;  ///< buffers, slots, segments or sets were lost beyond what the failing call explains
    uint64_t planned = 0;
    bool complete = false;
    std::vector<std::string> bad; ///< each point that is in one of the four, and what could not be looked at
};

figures figures_of(std::istream& record);
/// "points: N, met: N, crashed: N, hung: N, wrong: N, leaked: N"
std::string last_line(const figures& seen);
/// Empty when all was as it has to be.
std::string complaints(const figures& seen);

} // namespace call_faults

#endif
