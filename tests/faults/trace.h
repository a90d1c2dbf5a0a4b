/// @file
/// A line for every call, and for every one that was met, in files that the environment names.
#ifndef ZRK4_TEST_TRACE_H
#define ZRK4_TEST_TRACE_H

namespace zrk4::test {

/// ZRK4_FAULT_TRACE: "call=shmget n=17 result=-1 errno=2", for every call; errno stays as it is.
void trace_call(const char* call, long n, long result);
/// ZRK4_FAULT_LOG: "met call=shmget n=17 by=2", for one that a plan or a loss met.
void log_met(const char* call, long n, long by);

} // namespace zrk4::test

#endif
