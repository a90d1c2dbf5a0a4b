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
    constexpr size_t NAME = 256, PIECE = 32;
    std::string name;
    std::array<char, PIECE> piece{};
    while (name.size() < NAME && mapped.copy(offset + name.size(), piece.data(), PIECE)) {
        const size_t length = strnlen(piece.data(), PIECE);
        name.append(piece.data(), length);
        if (length < PIECE) break;
    }
    return name;
}

} // namespace bm

#endif
