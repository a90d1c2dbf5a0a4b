/// @file
/// The calling process's id without a call into the kernel.
#ifndef ZRK4_IMPL_OWN_PID_H
#define ZRK4_IMPL_OWN_PID_H

#include <sys/types.h>

namespace zrk4::impl {

/// Same answer as getpid(), also in a forked child.
pid_t own_pid();

} // namespace zrk4::impl

#endif
