/// @file
/// What the writers and the readers of the local copies share.
#ifndef ZRK4_IMPL_LOCAL_COPIES_H
#define ZRK4_IMPL_LOCAL_COPIES_H

#include <mutex>

namespace zrk4::impl {

/// Guards the five local copies, pointers and contents. Held for one sub-block or one query at a time, never while a
/// text is written.
extern std::mutex mx_lcp;

} // namespace zrk4::impl

#endif
