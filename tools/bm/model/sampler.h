/// @file
/// The exchange from one moment to the next: what `bm stat` and `bm top` show.
#ifndef ZRK4_TOOL_SAMPLER_H
#define ZRK4_TOOL_SAMPLER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/udp_sockets.h"
#include "model/exchange.h"

namespace bm {

/// A client with what changed since the look before.
struct moving_client {
    client what;
    process who;
    double rate = 0; ///< events per second
    std::optional<udp_socket> socket;
    uint64_t new_drops = 0;
};

/// One look, and what changed since the one before. Rates of the first look are 0.
struct moment {
    int64_t now = 0;
    double span_s = 0; ///< since the look before
    double events_per_s = 0;
    double bytes_per_s = 0;
    int open = 0; ///< events in slots
    int slots = 0;
    double oldest_s = 0;
    int out = 0; ///< buffers of all data partitions
    int buffers = 0;
    uint64_t drops = 0; ///< datagrams lost by readers' sockets in the span
    int reclaims = 0;   ///< events and client slots that the monitor took back in the span, as far as two looks show
    std::map<int32_t, double> rate_of_type;
    std::vector<moving_client> clients;
    std::vector<event> events;
    std::vector<partition> data; ///< all sound partitions beside the two of the slots
};

/// Keeps the two slot partitions mapped between its looks. Takes no lock and asks for no semaphore.
class sampler {
  public:
    enum class detail {
        sums, ///< of clients only whether they live, of events only what the sums are made of
        rows
    };
    sampler(common_options options, detail how) : options_(std::move(options)), how_(how) {}

    /// Valid until the next look.
    /// @throws failure while there is no exchange; the next call looks for one again
    const moment& look();

  private:
    void find();
    void count_events(moment& into, event_slots slots) const;
    void count_clients(moment& into, const client_slots& slots);
    void count_reclaims(moment& into, const client_slots& clients) const;
    void count_buffers(moment& into) const;

    common_options options_;
    detail how_;
    std::optional<named_partition> clients_, events_;
    std::optional<moment> before_;
    moment now_;
};

} // namespace bm

#endif
