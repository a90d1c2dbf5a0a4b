/// @file
/// Follows a thread instruction by instruction through what it does with a lock in hand.
#ifndef ZRK4_SWEEP_STEPS_H
#define ZRK4_SWEEP_STEPS_H

#include <cstdint>
#include <vector>

#include "tracer.h"

namespace sweep {

/// Instructions of the library that the thread comes to between a call that takes a lock and the call that gives the last
/// one back: their offsets in the library, in the order of the first time. The thread is let go at the end of the span.
std::vector<long> locked_instructions(traced_thread& victim, const span& in);

/// Lets the thread go on until it stands, with a lock in hand, before the instruction at `offset`, and kills it there.
trace kill_at_instruction(traced_thread& victim, const span& in, long offset);

} // namespace sweep

#endif
