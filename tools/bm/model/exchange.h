/// @file
/// One look at a whole exchange, and what follows from it.
#ifndef ZRK4_TOOL_EXCHANGE_H
#define ZRK4_TOOL_EXCHANGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/options.h"
#include "host/client_slots.h"
#include "host/event_slots.h"
#include "host/named_partition.h"
#include "host/processes.h"

namespace bm {

/// Both slot partitions with all their slots. Not of one moment: each slot by itself was read without a lock.
struct exchange {
    partition clients_part, events_part;
    client_slots clients; ///< of look_at_exchange(): those that an event has in its list
    event_slots events;
    int64_t now = 0; ///< microseconds since the epoch
};

/// @throws failure where a partition is not there or cannot be read
exchange look_at_exchange(const common_options& options);
/// The client slots alone; `events` stays empty, and its partition may be missing.
exchange look_at_clients(const common_options& options);

/// Blocks that an event still waits for, of one writer.
struct debt {
    const client* writer = nullptr;
    std::vector<std::string> names;
};
/// What the event's writers have listed and not delivered.
std::vector<debt> debts_of(const event& one, const client_slots& clients);
/// Blocks expected beyond the entries and what `debts` name: their writers have lost their slots.
int unaccounted(const event& one, const std::vector<debt>& debts);

/// "R5" or "W3": a client's slot with its role. "?7": the slot is free or holds neither.
std::string client_label(int slot, const client_slots& clients);
/// The same, made once for each client: thousands of events name the same ones again and again.
class client_labels {
  public:
    explicit client_labels(const client_slots& clients);
    void add_to(std::string& text, int slot) const;

  private:
    const client_slots& clients_;
    std::vector<std::string> known_; // by slot
};
/// A client's progress on an event.
const char* progress_word(int32_t status);
/// Name of an event type, or its number.
std::string type_text(int32_t type);

/// What is wrong with an event slot itself; "" for nothing.
std::string flaw_of(const event& one);

/// The monitor looks twice a second by default: a head it saw unchanged for longer is suspicious to it.
inline constexpr double SUSPICIOUS_AFTER_S = 5.5;

} // namespace bm

#endif
