/// @file
/// Names of 256 bytes in a segment.
#ifndef ZRK4_TOOL_NAMES_H
#define ZRK4_TOOL_NAMES_H

#include <array>
#include <cstring>
#include <string>

#include "host/read_only_segment.h"

namespace bm {

/// The name at `offset`. Most are short: no more is read than it takes to meet the end.
inline std::string name_at(const read_only_segment& mapped, uint64_t offset)
{
    constexpr size_t PIECE = 32;
    std::array<char, 256> name;
    size_t length = 0, read = 0;
    while (length == read && read < name.size() && mapped.copy(offset + read, name.data() + read, PIECE)) {
        length += strnlen(name.data() + read, PIECE);
        read += PIECE;
    }
    return {name.data(), length};
}

} // namespace bm

#endif
