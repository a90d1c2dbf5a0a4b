/// @file
/// The event slots of an exchange, as values.
#ifndef ZRK4_TOOL_EVENT_SLOTS_H
#define ZRK4_TOOL_EVENT_SLOTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BM_int.h"
#include "cli/options.h"
#include "host/client_slots.h"
#include "host/partition.h"

namespace bm {

/// A server block of an event, or a placeholder for one that nobody will deliver.
struct event_entry {
    std::string name;
    int32_t shmid = 0;
    int32_t bnum = -1;

    bool hole() const { return shmid == 0 || bnum == -1; }
};

struct event {
    int slot = 0;
    bool handed_out = false;    ///< as the slot's buffer says
    int32_t control_status = 0; ///< as the control table says; EVT_C_INVALID when the table has no room for the slot
    time_stamp key{};
    int64_t id = 0;
    int32_t type = 0;
    int32_t mask = 0;
    int32_t status = 0;
    int64_t start = 0;  ///< when the slot was taken; microseconds since the epoch
    int64_t update = 0; ///< last change; 0: none yet
    pid_t pid = 0;      ///< process that took the slot
    int64_t bytes = 0;
    int32_t expected = 0;     ///< blocks
    int32_t filled_said = 0;  ///< what its head says; `entries` are those that the slot has room for
    int32_t clients_said = 0; ///< likewise
    std::vector<zrk4_client_block> clients;
    std::vector<event_entry> entries;
    bool sound = true; ///< its head is one of the generation
    bool torn = false;

    bool used() const { return handed_out && control_status == EVT_C_USED; }
    /// Counts that its slot has no room for, or a head of another generation.
    bool garbled() const
    {
        return !sound || filled_said != static_cast<int32_t>(entries.size()) ||
               clients_said != static_cast<int32_t>(clients.size());
    }
    /// "seconds:microseconds", as the library's own lines have it.
    std::string key_text() const;
};

/// The monitor frees an event after some 5 seconds without a change; one that was this still may be freed by it.
inline constexpr double STILL_S = 4.5;

/// Seconds since anything about the event changed.
double idle_seconds(const event& one, int64_t now);

class event_slots {
  public:
    event_slots() = default;
    /// Reads every slot that is handed out or marked used. Of those that were never taken no page is touched.
    /// @param form  generation; empty: the one that the slots show
    /// @throws failure when the slots hold records of the other generation than `form`
    event_slots(const partition& part, const read_only_segment& mapped, std::optional<records> form,
                depth how = depth::whole);

    const std::vector<event>& all() const { return all_; }
    /// The same, given away.
    std::vector<event> take() && { return std::move(all_); }
    const event* at(int slot) const;
    /// Heads of events that are over, in slots that nobody has taken since; not with depth::whole.
    const std::vector<event>& past() const { return past_; }
    /// Slots that the partition has.
    int slots() const { return slots_; }
    records form() const { return form_; }

  private:
    template <class Form> void read(const partition& part, const read_only_segment& mapped, depth how);

    std::vector<event> all_; // by slot
    std::vector<event> past_;
    int slots_ = 0;
    records form_ = records::of_2010;
};

} // namespace bm

#endif
