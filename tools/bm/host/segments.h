/// @file
/// The segments of this IPC namespace that lie at the keys of partitions, as the kernel lists them: also those that may
/// not be attached.
#ifndef ZRK4_TOOL_SEGMENTS_H
#define ZRK4_TOOL_SEGMENTS_H

#include <cstdint>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace bm {

struct segment {
    int key = 0;
    int id = -1;
    unsigned mode = 0;
    uint64_t bytes = 0;
    pid_t creator = 0;   ///< process that made it
    long attached = 0;   ///< attachments of all processes
    uid_t uid = 0;       ///< owner
    int64_t changed = 0; ///< when it was made, seconds since the epoch
};

/// From the kernel's list, in the order of the keys.
/// @throws failure when the list cannot be read
std::vector<segment> segments_of_partitions();

/// The same from a text of the form of /proc/sysvipc/shm. Lines that are none are skipped.
std::vector<segment> parse_segments(std::string_view text);

} // namespace bm

#endif
