/// @file
/// Clearing of slots.
#ifndef ZRK4_IMPL_ZERO_FILL_H
#define ZRK4_IMPL_ZERO_FILL_H

#include <cstddef>

namespace zrk4::impl {

/// Zeroes `bytes` of a segment. Whole pages of a long range are given back to the kernel, which is quicker than
/// writing them and leaves a slot that is never filled without memory.
void zero_fill(char* at, size_t bytes);

/// Whether `bytes` at `at` are all zero.
bool all_zero(const char* at, size_t bytes);

} // namespace zrk4::impl

#endif
