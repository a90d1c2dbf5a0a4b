// The master: makes the partitions, or takes them over from the one that was killed.
#include "run.h"

#include <unistd.h>

#include "block.h"

namespace soak {

int be_master(const context& run)
{
    BM bm;
    configure(bm, run.how);
    bm.set_monitoring_period(PERIOD_US);
    if (bm.set_master(true) || bm.init()) return 2;
    for (int w = 0; w < WRITERS; ++w) {
        if (bm.add(data_name(w).c_str(), BUFFERS, BUFFER_BYTES) < 0) return 3;
    }
    run.all.made = true;
    while (!run.all.master_leaves) {
        run.all.member[MASTER].beat_ns = monotonic_ns();
        usleep(10'000);
    }
    bm.all_clean_up();
    return 0;
}

} // namespace soak
