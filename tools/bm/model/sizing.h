/// @file
/// From what an exchange is to carry to the partitions that it needs.
#ifndef ZRK4_TOOL_SIZING_H
#define ZRK4_TOOL_SIZING_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/options.h"

namespace bm {

/// Server blocks of one size.
struct block_group {
    int64_t bytes = 0;
    int64_t per_event = 1;
};

/// What is asked of an exchange.
struct load {
    int64_t clients = 64; ///< processes that take part
    int64_t blocks = 32;  ///< server blocks of one event, and names that a client may give
    double rate = 20;     ///< events per second
    double reader_s = 1;  ///< from an event's first block until its last reader is done
    double stall_s = 6;   ///< for how long more what a dead reader holds is not back
    records form = records::of_2010;
    std::vector<block_group> groups; ///< none: `blocks` blocks of 64 kB
};

/// One partition.
struct planned_partition {
    std::string name;
    int64_t buffers = 0; ///< those of slots include the control record
    int64_t length = 0;  ///< bytes of each
    bool locks = false;

    int64_t bytes() const;
    int64_t semaphores() const;
};

/// What the kernel must grant, other programs' share apart.
struct kernel_needs {
    int64_t semaphores_per_set = 0;
    int64_t semaphores = 0;
    int64_t sets = 0;
    int64_t segments = 0; ///< also the number of free keys
    int64_t largest_segment = 0;
    int64_t bytes = 0;          ///< of all segments
    int64_t receive_buffer = 0; ///< bytes of a reader's socket for its share of the events in flight
};

/// What cannot be had, with its reason, and what could be had.
struct impossibility {
    std::string what, seen, needed, instead;
};

struct sizing {
    load wanted;
    planned_partition clients, events;
    std::vector<planned_partition> data;
    int64_t set_rate = 0;         ///< argument of the setter; the load's own rate where that fits
    int64_t set_client_slots = 0; ///< 0: as the number of clients has it
    double event_span_s = 0;      ///< for so long events may be open before a writer finds no slot
    kernel_needs needs;
    std::vector<impossibility> impossible; ///< empty: it can be made
    std::vector<std::string> remarks;

    bool possible() const { return impossible.empty(); }
    std::vector<planned_partition> all() const;
};

/// @param names  of the slot partitions
sizing sized(const load& wanted, const std::string& client_slots, const std::string& event_slots);

/// Loads by name: bench, beamline, hall, large.
std::vector<std::string> preset_names();
/// REQUIRES: one of these names.
load preset(const std::string& name);

} // namespace bm

#endif
