/// @file
/// How a program that measures begins and ends.
#ifndef ZRK4_BENCH_APART_H
#define ZRK4_BENCH_APART_H

#include <cstdio>
#include <exception>

#include "machine.h"

namespace bench {

enum exit_status { DONE = 0, FAILED = 1, BAD_USAGE = 2, NO_NAMESPACE = 125 };

/// Does the work in an IPC namespace of the program's own. @return the program's exit status.
template <class Work> int apart(const char* program, Work work)
{
    if (!enter_ipc_namespace()) {
        std::fprintf(stderr, "%s: no IPC namespace of its own can be had\n", program);
        return NO_NAMESPACE;
    }
    try {
        work();
        return DONE;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", program, e.what());
        return FAILED;
    }
}

} // namespace bench

#endif
