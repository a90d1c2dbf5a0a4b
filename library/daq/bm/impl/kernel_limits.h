/// @file
/// Why the kernel would not make a slot partition.
#ifndef ZRK4_IMPL_KERNEL_LIMITS_H
#define ZRK4_IMPL_KERNEL_LIMITS_H

#include <cstdint>

namespace zrk4::impl {

/// Says on standard error which limits a partition of `count` buffers of `length` bytes with their locks meets, and
/// which setters make it smaller. Nothing when it meets none that can be told.
void explain_limits(const char* name, int64_t count, int64_t length, const char* setters);

} // namespace zrk4::impl

#endif
