/// @file
/// The client slots of an exchange, as values.
#ifndef ZRK4_TOOL_CLIENT_SLOTS_H
#define ZRK4_TOOL_CLIENT_SLOTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "BM_int.h"
#include "host/partition.h"

namespace bm {

struct client {
    int slot = 0;
    pid_t pid = 0;    ///< 0: the slot is taken and its owner has not written its head
    int32_t type = 0; ///< BUF_MNG_CLI_TYPE, or anything
    int32_t evtype = 0;
    int32_t events = 0;
    int64_t access = 0; ///< subscribed, or last admitted to or done with an event; microseconds since the epoch
    int64_t ratio = 0;  ///< a reader's time ratio, a writer's time-out, microseconds
    int32_t priority = 0;
    int32_t mask = 0;
    int port = -1;          ///< of a reader
    int32_t names_said = 0; ///< what its record says; `names` are those that the slot has room for
    std::vector<std::string> names;
    bool torn = false;

    bool reads() const { return type == CLI_T_READER; }
    bool writes() const { return type == CLI_T_WRITER; }
    const char* role() const { return reads() ? "reader" : writes() ? "writer" : "unknown"; }
};

/// How much of a slot is read.
enum class depth {
    heads, ///< no names, no entries, of events that change no clients either: for commands that look again and again
    rows,  ///< no names, no entries
    whole
};

class client_slots {
  public:
    client_slots() = default;
    /// Reads every slot that is handed out.
    client_slots(const partition& part, const read_only_segment& mapped, depth how = depth::whole);
    /// Those of these numbers alone: every page of the others costs more than all that is read of it.
    client_slots(const partition& part, const read_only_segment& mapped, const std::vector<bool>& wanted);

    const std::vector<client>& all() const { return all_; }
    /// Null when the slot is free or does not exist.
    const client* at(int slot) const;
    const zrk4_client_ctrl_block& control() const { return control_; }

  private:
    template <class Wanted>
    void read(const partition& part, const read_only_segment& mapped, depth how, Wanted is_wanted);

    zrk4_client_ctrl_block control_{};
    std::vector<client> all_;     // by slot
    std::vector<int32_t> number_; // of each slot's client in all_, -1 for a free one
};

} // namespace bm

#endif
