// The master of a host: makes the slot partitions, looks after them, and removes them when it is told to end.
//   example_master [--records 2010|2024] [--event-slots N]
#include <cstdio>

#include <sys/shm.h>

#include "common.h"

namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

/// The master leaves last: without the slot partitions the others could not give back what they use. They may have been
/// told to end together with it. A second signal ends the patience.
void wait_for_the_others(BM& bm)
{
    const auto until = steady_clock::now() + 5s;
    for (int writers = 1, readers = 0; writers + readers > 0 && steady_clock::now() < until;) {
        if (end_signal_within(10ms) != 0) return;
        bm.cl_subscribed(&writers, &readers);
    }
}

/// A writer's partition goes with its last user. One that was killed counts as a user for ever.
void remove_data_partitions()
{
    for (int key = SHM_KEY_FIRST; key <= SHM_KEY_LAST; ++key) {
        const int id = shmget(key, 0, 0);
        if (id < 0) continue;
        const std::string name = C_shm_buffer(id).getStat("name");
        if (name.rfind(PARTITIONS, 0) == 0) C_shm_kill gone(name.c_str());
    }
}

int look_after_the_host(const options& given)
{
    BM bm;
    configure(bm, given);
    bm.set_nev_slots(given.number("event-slots", 0)); // 0: what the event rate asks for
    if (bm.set_master(true) || bm.init()) return 1;   // true means failure
    say_ready();

    while (end_signal_within(1h) == 0) {}
    wait_for_the_others(bm);
    bm.all_clean_up();
    remove_data_partitions();
    return 0;
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, look_after_the_host); }
