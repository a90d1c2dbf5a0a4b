/// @file
/// Each of these adds its peers to a list.
#ifndef ZRK4_BENCH_ADDERS_H
#define ZRK4_BENCH_ADDERS_H

#include <vector>

#include "peers.h"

namespace bench {

inline bool takes_everything(const plan& /*p*/) { return true; }
/// Bare wake-ups: one writer, one reader, a message that a datagram holds.
inline bool takes_one_at_a_time(const plan& p) { return p.one_at_a_time && p.writers == 1 && p.readers == 1; }

void add_stream(std::vector<peer>& all);
void add_wake_ups(std::vector<peer>& all);
void add_zeromq(std::vector<peer>& all);
void add_boost(std::vector<peer>& all);
void add_iceoryx(std::vector<peer>& all);

} // namespace bench

#endif
