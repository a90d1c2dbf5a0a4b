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
/// Appends a sub-block whose length may be anything. @param honest  out: whether it is that of the bytes appended
void sub_block(input& in, int32_t type, bool& honest, std::string& to);
/// Bytes of a server block of either form, at most `room`; the next call overwrites them.
const std::string& server_block(input& in, size_t room);

template <class Record> void append(std::string& to, const Record& record)
{
    to.append(reinterpret_cast<const char*>(&record), sizeof record);
}

template <class Record> std::string bytes_of(const Record& record)
{
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

} // namespace fuzz

#endif
