/// @file
/// The server blocks of an event, as a reader program's two pointers give them.
#ifndef ZRK4_IMPL_EVENT_BLOCKS_H
#define ZRK4_IMPL_EVENT_BLOCKS_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "BM.h"
#include "block_form.h"
#include "bm_core.h"
#include "pool_block.h"

namespace zrk4::impl {

/// What is read from a slot's head; taken once, as others may change it.
struct event_blocks {
    int32_t evtype;
    std::span<const zrk4_client_sblock_data> entries;
};

/// Another process may leave any count in the head of a slot: no entry is read that has no room in the slot's buffer.
/// Of a head or entries that a program keeps elsewhere nothing is known; there the count stands.
inline int64_t entries_that_fit(const BM* bm, const void* slot, const zrk4_client_sblock_data* entries)
{
    const auto end = bm == nullptr ? 0 : reinterpret_cast<intptr_t>(bm_core::end_of_slot(*bm, slot));
    const auto first = reinterpret_cast<intptr_t>(entries);
    if (first < reinterpret_cast<intptr_t>(slot) || first > end) return std::numeric_limits<int32_t>::max();
    return (end - first) / static_cast<intptr_t>(sizeof *entries);
}

template <class Head> event_blocks blocks_of(const Head* slot, const zrk4_client_sblock_data* entries, const BM* bm)
{
    if (slot == nullptr) return {ZRK4_EV_EVMAX, {}};
    const int64_t filled = entries == nullptr ? 0 : slot->sbfilled;
    const int64_t read = filled < 1 ? 0 : std::min(filled, entries_that_fit(bm, slot, entries));
    return {slot->evtype, {entries, static_cast<size_t>(read)}};
}

/// The same for a slot of either form.
inline event_blocks blocks_of_either(const zrk4_event_slot_head_2024* slot, const zrk4_client_sblock_data* entries,
                                     const BM* bm)
{
    if (slot == nullptr || slot->pattern == EV_SLOT_PATTERN_2024) return blocks_of(slot, entries, bm);
    return blocks_of(reinterpret_cast<const zrk4_event_slot_head*>(slot), entries, bm);
}

/// Begin and end of run, environment and update: events without data channels.
inline bool is_run_control(int32_t evtype) { return evtype >= ZRK4_EV_BOR && evtype <= ZRK4_EV_UPD; }

/// How the blocks of an event are read: each by its own form.
struct own_form {
    static bool is_wide(const char* block) { return is_2024(block); }
};
/// Or all of them in the 2010 form, as readers of that generation do.
struct all_2010 {
    static bool is_wide(const char*) { return false; }
};

/// A block whose head lies inside its buffer.
struct found_block {
    block_place place;
    block_view head{};
    bool wide = false;

    explicit operator bool() const { return place.at != nullptr; }
};

/// Empty when the block cannot be had or its buffer is too short for a head.
// Always inlined: of the head, only what the caller looks at is then read.
template <class Reading>
__attribute__((always_inline)) inline found_block find_block(BM* bm, const zrk4_client_sblock_data& entry)
{
    const block_place place = bm == nullptr ? block_place{} : place_of(*bm, entry.bnum, entry.shmid);
    if (place.room() < static_cast<int64_t>(sizeof(block_2010::head))) return {};
    if (!Reading::is_wide(place.at)) return {place, view_block_as<block_2010>(place.at), false};
    if (place.room() < static_cast<int64_t>(sizeof(block_2024::head))) return {};
    return {place, view_block_as<block_2024>(place.at), true};
}

/// Where a caller wants a block's address: in the output of the block's form; the other one becomes null.
struct head_outputs {
    zrk4_serv_block_head_2010** h10;
    zrk4_serv_block_head_2024** h24;

    void store(const found_block& block) const
    {
        char* const at = block.place.at;
        if (h10 != nullptr) *h10 = block.wide ? nullptr : reinterpret_cast<zrk4_serv_block_head_2010*>(at);
        if (h24 != nullptr) *h24 = block.wide ? reinterpret_cast<zrk4_serv_block_head_2024*>(at) : nullptr;
    }
};

} // namespace zrk4::impl

#endif
