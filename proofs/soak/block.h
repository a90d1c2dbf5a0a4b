/// @file
/// Server blocks that tell whose they are and whether a byte of them has changed.
#ifndef ZRK4_SOAK_BLOCK_H
#define ZRK4_SOAK_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "event.h"

namespace soak {

inline constexpr size_t BUFFER_BYTES = 4096;

/// What a block says about itself.
struct label {
    std::string server;
    time_stamp time{};
    int64_t id = 0;
    int32_t writer = 0;
    uint64_t serial = 0; ///< never used twice by the lives of one writer
};

struct block_seen {
    bool sound = false; ///< the sum in the block is that of its bytes
    label says;
};

/// Fills a buffer of BUFFER_BYTES with a block whose length and payload follow from the label.
void write_block(char* at, bool wide, const label& what);
/// Reads nothing outside the buffer, whatever stands in it.
block_seen read_block(const char* at);
/// Where the payload of a block begins: what a planted fault changes.
size_t payload_offset(bool wide);

} // namespace soak

#endif
