/// @file
/// Texts from formats, where they are not printed at once.
#ifndef ZRK4_IMPL_WORDED_H
#define ZRK4_IMPL_WORDED_H

#include <string>

namespace zrk4::impl {

/// A text from a format, cut at 511 characters.
__attribute__((format(printf, 1, 2))) std::string worded(const char* format, ...);

} // namespace zrk4::impl

#endif
