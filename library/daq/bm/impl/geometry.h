/// @file
/// Sizes and offsets inside a partition's segment.
#ifndef ZRK4_IMPL_GEOMETRY_H
#define ZRK4_IMPL_GEOMETRY_H

#include <cstdint>
#include <limits>

#include "C_shm_int.h"

namespace zrk4::impl {

/// Bytes from the segment's start to buffer `i`. 64 bits: a descriptor's `boff` has 32, see offsets_fit().
constexpr int64_t buffer_offset(int64_t nbuf, int64_t lbuf, int64_t i)
{
    return static_cast<int64_t>(sizeof(C_shm_global)) + static_cast<int64_t>(sizeof(C_shm_buf)) * nbuf + lbuf * i;
}

constexpr size_t segment_size(int nbuf, int lbuf) { return static_cast<size_t>(buffer_offset(nbuf, lbuf, nbuf)); }

/// Whether every buffer begins where a descriptor's 32-bit offset can say it.
constexpr bool offsets_fit(int64_t nbuf, int64_t lbuf)
{
    if (nbuf < 0 || lbuf < 0) return false;
    return nbuf == 0 || buffer_offset(nbuf, lbuf, nbuf - 1) <= std::numeric_limits<int32_t>::max();
}

static_assert(buffer_offset(3, 100, 0) == 444 && buffer_offset(3, 100, 2) == 644 && segment_size(3, 100) == 744);

} // namespace zrk4::impl

#endif
