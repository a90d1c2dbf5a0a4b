/// @file
/// Calls into the kernel, as the tracer sees them.
#ifndef ZRK4_SWEEP_CALLS_H
#define ZRK4_SWEEP_CALLS_H

#include <cstdint>
#include <string>
#include <vector>

namespace sweep {

struct call {
    long nr = 0;
    int64_t answer = 0; ///< negative: the errno
};

std::string name_of_call(long nr);

/// Which calls of a role are swept, from 1. A search walks all keys, up to 1,024 calls that change nothing and get the
/// same answer: of a run of more than four such calls in a row the first, one in the middle and the last stand for all.
std::vector<int> swept_calls(const std::vector<call>& calls);

} // namespace sweep

#endif
