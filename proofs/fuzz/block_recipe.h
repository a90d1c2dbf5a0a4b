/// @file
/// Server blocks out of fuzzer input: sound ones with any part wrong.
#ifndef ZRK4_FUZZ_BLOCK_RECIPE_H
#define ZRK4_FUZZ_BLOCK_RECIPE_H

#include <string>

#include "event.h"
#include "input.h"

namespace fuzz {

/// A type of the run-control blocks, or any.
int32_t sub_block_type(input& in);
/// A sub-block whose length may be anything. @param honest  out: whether it is that of the bytes returned
std::string sub_block(input& in, int32_t type, bool& honest);
/// Bytes of a server block of either form, at most `room`.
std::string server_block(input& in, size_t room);

template <class Record> std::string bytes_of(const Record& record)
{
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

} // namespace fuzz

#endif
