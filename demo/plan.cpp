#include "plan.h"

#include <stdexcept>

#include "run_plan.h"

namespace demo {
namespace {

// How far a writer may be ahead of the last event that is over.
constexpr int TICKS_AHEAD = 120;
static_assert(5 * TICKS_AHEAD + RUN_BUFFERS < EVENT_SLOTS, "five blocks per event: an event slot for every buffer");

} // namespace

const std::array<writer_plan, 3>& writers()
{
    static const std::array<writer_plan, 3> plan{{
        {"processors", "PROCESSORS", TICKS_AHEAD, {PROCESSORS}},
        {"memory", "MEMORY", 2 * TICKS_AHEAD, {MEMORY, PRESSURE}},
        {"transfer", "TRANSFER", 2 * TICKS_AHEAD, {NETWORK, DISKS}},
    }};
    return plan;
}

const std::array<reader_plan, READERS>& readers()
{
    static const std::array<reader_plan, READERS> plan{{
        {"A", "every block", {}, -1, 0},
        {"B", "two named blocks", {PROCESSORS, PRESSURE}, -1, 0},
        {"C", "trigger, or 200 ms passed", {}, HALF_SECOND, 200'000},
    }};
    return plan;
}

int blocks_per_event()
{
    size_t count = 0;
    for (const writer_plan& writer : writers()) count += writer.blocks.size();
    return static_cast<int>(count);
}

void configure(BM& bm, const settings& how)
{
    bm.set_nclients(CLIENTS);
    bm.set_ncl_slots(CLIENT_SLOTS);
    bm.set_nblocks(BLOCKS);
    bm.set_rate(RATE);
    bm.set_time_mask(TIME_MASK_US);
    bm.set_evid_64bit_mode(how.records_2024);
    if (bm.set_smode(how.mode)) throw std::logic_error("no such mode");
}

} // namespace demo
