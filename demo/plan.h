/// @file
/// What the demonstration is made of: its pace, its blocks, who writes and who reads them, and the sizes that follow.
#ifndef ZRK4_DEMO_PLAN_H
#define ZRK4_DEMO_PLAN_H

#include <array>
#include <cstdint>
#include <list>
#include <string>

#include "BM.h"

namespace demo {

/// One event per tick. Neighbouring ticks are told apart as long as the time mask stays well below half a tick.
inline constexpr int64_t PERIOD_US = 10'000;
inline constexpr unsigned long TIME_MASK_US = 1'000;
static_assert(static_cast<int64_t>(TIME_MASK_US) * 5 <= PERIOD_US / 2);
inline constexpr int TICKS_PER_SECOND = static_cast<int>(1'000'000 / PERIOD_US);

inline constexpr ZRK4_EVTYPE EVENT_TYPE = ZRK4_EV_NORMAL;

inline constexpr const char* PROCESSORS = "HOST.PROCESSORS";
inline constexpr const char* MEMORY = "HOST.MEMORY";
inline constexpr const char* PRESSURE = "HOST.PRESSURE";
inline constexpr const char* NETWORK = "HOST.NETWORK";
inline constexpr const char* DISKS = "HOST.DISKS";

/// A writer process, the blocks that it contributes to every event, and the partition that it takes their buffers from.
/// A partition of its own each: a writer that is ahead can never use up the buffers of one that is late, whose blocks
/// the events in flight are waiting for.
struct writer_plan {
    const char* name;
    const char* partition;
    int buffers;
    std::list<std::string> blocks;
};
const std::array<writer_plan, 3>& writers();
inline constexpr int BUFFER_BYTES = 32 * 1024;
int blocks_per_event();

/// Bits of a block's trigger mask. Every block of an event carries the same mask: whichever block comes first decides
/// who takes part.
inline constexpr int EVERY_TICK = 1;
inline constexpr int HALF_SECOND = 2;
inline constexpr int64_t TICKS_PER_TRIGGER = TICKS_PER_SECOND / 2;
constexpr int trigger_mask(int64_t tick)
{
    return tick % TICKS_PER_TRIGGER == 0 ? EVERY_TICK | HALF_SECOND : EVERY_TICK;
}

/// A reader process: the blocks that it waits for (none named: all of an event), and the events that it takes.
struct reader_plan {
    const char* name;
    const char* wants; ///< for people
    std::list<std::string> blocks;
    int trigger_mask;
    int64_t time_ratio_us; ///< 0: takes every event
};
inline constexpr int READERS = 3;
enum reader_number { EVERY_BLOCK, TWO_BLOCKS, PRESCALED };
const std::array<reader_plan, READERS>& readers();

/// Sizes of the slot partitions. A used event slot holds at least one data buffer, so with more event slots than data
/// buffers the slots never run out: waiting for buffers is all the flow control that the writers need.
inline constexpr int CLIENTS = 16;
inline constexpr int CLIENT_SLOTS = 64;
inline constexpr int BLOCKS = 16;
inline constexpr int RATE = 20;
inline constexpr int EVENT_SLOTS = RATE * 32;

/// What the command line chooses.
struct settings {
    bool records_2024 = true;
    int mode = BM_SYNCH_TIME;
    int seconds = 10;
    bool host_ipc = false; ///< stay in the host's IPC namespace, where ipcs and the operator's tools see the partitions
};

/// Sets a buffer manager up as every process of the demonstration must, before its `init`.
void configure(BM& bm, const settings& how);

} // namespace demo

#endif
