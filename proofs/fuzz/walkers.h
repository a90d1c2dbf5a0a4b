/// @file
/// Every function that reads the blocks of an event without keeping anything.
#ifndef ZRK4_FUZZ_WALKERS_H
#define ZRK4_FUZZ_WALKERS_H

#include "BM.h"
#include "bm_util.h"
#include "input.h"

namespace fuzz {

/// `slot_2010` and `slot_2024` describe the same entries; `entries` may be one more than they say.
struct walked_event {
    BM& bm;
    zrk4_event_slot_head* slot_2010;
    zrk4_event_slot_head_2024* slot_2024;
    zrk4_client_sblock_data* entries;
};

/// Looks for a channel and for parameters in each of the ways there are; what is found must lie in a buffer.
void walk(input& in, const walked_event& event);
/// @return the channel's sub-head, or null, in the way of 2024 readers.
char* find_in_any(const walked_event& event, const std::string& channel);

} // namespace fuzz

#endif
