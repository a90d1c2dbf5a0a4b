/// @file
/// The last line of a run, derived from its record.
#ifndef ZRK4_SOAK_SUMMARY_H
#define ZRK4_SOAK_SUMMARY_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>

namespace soak {

struct figures {
    uint64_t kills = 0;  ///< wait statuses that are the kill
    uint64_t blocks = 0; ///< that readers found sound
    uint64_t wrong = 0;
    uint64_t lost_before = 0;             ///< buffers that did not come back by themselves
    uint64_t lost = 0;                    ///< nor by the repair
    bool repaired = false;                ///< there was a repair
    bool complete = false;                ///< the run came to its end
    std::map<std::string, uint64_t> what; ///< how often each wrong thing
};

figures figures_of(std::istream& record);
/// "kills: N, blocks: N, wrong: N, lost: N"
std::string last_line(const figures& seen);
/// Why the run was not as it has to be, a line for each reason; empty when it was. A kill costs a buffer at most, as
/// nobody holds two; after a repair not even that.
std::string complaints(const figures& seen);

} // namespace soak

#endif
