/// @file
/// What a fuzz target is to the harness, and what it may ask of it.
#ifndef ZRK4_FUZZ_TARGET_H
#define ZRK4_FUZZ_TARGET_H

#include "input.h"

namespace fuzz {

/// Once, before the first input, in an IPC namespace of the process's own.
void prepare();
/// One input. Leaves everything as it was before.
void run(input& in);

/// Ends the program, and the input is kept, when `holds` is false.
void expect(bool holds, const char* what);

} // namespace fuzz

#endif
