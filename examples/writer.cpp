// A writer: samples the load of the host at regular times and hands each sample over as one block.
//   example_writer [--name NAME] [--writers N] [--start EPOCH-SECONDS] [--events N] [--period MILLISECONDS]
//                  [--marked N] [--records 2010|2024]
// Several of them build events together: with different names, the same start, and told how many they are, because an
// event waits for those writers only that are there when it begins. Trigger bit 0 is set in every block, bit 1 in those
// of every N-th tick.
#include <array>
#include <cstdio>
#include <cstdlib>

#include "common.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_NORMAL;
constexpr int BUFFERS = 32, BYTES = 4096;

time_stamp time_of(int64_t tick, milliseconds period)
{
    const int64_t ms = tick * period.count();
    return {static_cast<uint32_t>(ms / 1000), static_cast<uint32_t>(ms % 1000 * 1000)};
}

// A start that has gone by is made up for, as any other tick that was missed.
int64_t first_tick(const options& given, milliseconds period)
{
    const int64_t next = system_clock::now().time_since_epoch() / period + 1;
    const int64_t start = given.number("start", 0) * int64_t{1000} / period.count();
    return start > 0 ? start : next;
}

void wait_for_writers(BM& bm, int count)
{
    for (int there = 0; there < count; pause_ms(1)) bm.cl_subscribed(&there, nullptr);
}

int write_samples(const options& given)
{
    const std::string name = given.text("name", "LOAD");
    const milliseconds period(given.number("period", 100));

    BM bm;
    configure(bm, given);
    if (bm.init()) return 1; // true means failure: is there a master?
    const int partition = bm.add((PARTITIONS + name).c_str(), BUFFERS, BYTES);
    zrk4_client parameters{};
    std::list<std::string> blocks{name};
    if (partition < 1 || bm.subscribe(EVENT, CLI_T_WRITER, &parameters, &blocks) < 1) return 1;

    wait_for_writers(bm, given.number("writers", 1));

    const int64_t first = first_tick(given, period);
    for (int64_t tick = first; tick < first + given.number("events", 10); ++tick) {
        pause_until(system_clock::time_point(period * tick));
        int number = -1;
        // No tick is left out, however late it is: the other writers' blocks of that event wait for this one.
        char* at = wait_for_buffer(bm, BYTES, partition, number);
        std::array<double, 3> load{};
        getloadavg(load.data(), 3);
        const int trigger = tick % given.number("marked", 5) == 0 ? 3 : 1;
        zrk4::sb_write block(at, BYTES, form_of(bm), {name, time_of(tick, period), tick & 0x7FFFFFFF, trigger});
        block.sub_block("LOAD", ZRK4_BLOCK_3CHAN_2010, load.data(), sizeof load);
        block.finish();
        if (bm.ev_update(EVENT, partition, number)) std::puts("refused");
    }
    wait_until_all_are_back(bm, partition, BUFFERS);
    bm.unsubscribe(EVENT, CLI_T_WRITER);
    return 0;
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, write_samples); }
