/// @file
/// The exchange that is measured, as its processes set it up.
#ifndef ZRK4_BENCH_EXCHANGE_H
#define ZRK4_BENCH_EXCHANGE_H

#include <cstring>
#include <stdexcept>

#include "BM.h"
#include "sides.h"

namespace bench {

inline void require(bool holds, const char* what)
{
    if (!holds) throw std::runtime_error(what);
}

inline void configure(BM& bm, const limits& room)
{
    bm.set_evid_64bit_mode(true);
    bm.set_time_mask(1000); // microseconds; the events' keys are seconds apart
    bm.set_nclients(room.clients);
    bm.set_ncl_slots(room.client_slots);
    bm.set_nblocks(room.blocks);
    bm.set_nev_slots(room.event_slots);
}

/// @return the head of block number `number` of a writer; every number is an event of its own.
inline zrk4_serv_block_head_2024 head_of(const char* server, int64_t number, int64_t bytes)
{
    zrk4_serv_block_head_2024 head{};
    head.pattern = SB_PATTERN_2024;
    head.ltotal = bytes;
    head.mpulse = number;
    head.time = {static_cast<uint32_t>(number + 1), 0};
    std::strcpy(head.server, server);
    return head;
}

} // namespace bench

#endif
