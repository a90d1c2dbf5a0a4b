/// @file
/// What look-ups are measured beside: loops that add lengths and compare names, and test nothing.
#ifndef ZRK4_BENCH_LOOPS_H
#define ZRK4_BENCH_LOOPS_H

#include <cstddef>

#include "BM.h"
#include "event.h"

namespace bench {

/// @param first  the first sub-head @return the sub-block of that name; null among `count` that have others.
char* plain_loop(char* first, int count, const char* name);

/// The same by a program that is handed an event: the address of the block of its first entry comes from the pool.
char* plain_loop_2010(const zrk4_client_sblock_data* entries, BM& bm, const char* name);
/// Each block by its own form.
char* plain_loop_2024(const zrk4_client_sblock_data* entries, BM& bm, const char* name);

/// @return how many of `count` names, one every `step` bytes, are equal to `name` over 256 characters.
int compare_names(const char* first, size_t step, int count, const char* name);

} // namespace bench

#endif
