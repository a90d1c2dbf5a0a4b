/// @file
/// Server blocks with a stamp that no other block has.
#ifndef ZRK4_SWEEP_BLOCKS_H
#define ZRK4_SWEEP_BLOCKS_H

#include <cstdint>
#include <string>

#include "event.h"
#include "point.h"

namespace sweep {

inline constexpr int BLOCK_LENGTH = 401;
inline constexpr int WRITERS_MAX = 3;
inline constexpr ZRK4_EVTYPE TYPE = ZRK4_EV_NORMAL;

struct stamp {
    int event;
    int writer; ///< 0 to 2
    int block;  ///< of the writer
};

std::string name_of_block(int writer, int block);
/// First second of a point's events: no two points share keys, so a datagram that goes astray is nobody's.
uint32_t first_second(const point& p);
void write_block(char* at, const setting& in, uint32_t first, const stamp& s);
/// Whether the block is the one that was written for that event under that name.
bool holds_block(const char* at, const setting& in, uint32_t first, int event, const std::string& name);
bool holds_block(const char* at, const setting& in, uint32_t first, const stamp& s);

} // namespace sweep

#endif
