// The master of a host: makes the slot partitions, looks after them, and removes them when it is told to end.
//   example_master [--records 2010|2024] [--event-slots N]
#include <csignal>
#include <cstdio>

#include "common.h"

int main(int argc, char** argv)
{
    const options given(argc, argv);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // before the first thread, so that sigwait below gets them

    BM bm;
    configure(bm, given);
    bm.set_nev_slots(given.number("event-slots", 0)); // 0: what the event rate asks for
    if (bm.set_master(true) || bm.init()) return 1;   // true means failure
    std::puts("ready");
    std::fflush(stdout);

    int signal = 0;
    sigwait(&ends, &signal);
    bm.all_clean_up();
    return 0;
}
