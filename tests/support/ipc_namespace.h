/// @file
/// An IPC namespace of the test program's own, and what is in it.
#ifndef ZRK4_TEST_IPC_NAMESPACE_H
#define ZRK4_TEST_IPC_NAMESPACE_H

namespace zrk4::test {

/// Moves the process into a fresh IPC namespace (support's main does it before the first test). The kernel's first ids
/// there are 0, which an event slot takes for "no buffer": one segment and one set are made and removed, so ids start
/// at 1. @return false when the system does not allow it.
bool enter_ipc_namespace();

/// Segments / semaphore sets that exist in the namespace, whoever made them; a segment counts until its last detach.
int segments_in_namespace();
int semaphore_sets_in_namespace();

/// Removes every segment and semaphore set of the namespace.
void clear_ipc_namespace();

} // namespace zrk4::test

#endif
