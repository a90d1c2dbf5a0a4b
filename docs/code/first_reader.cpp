// A reader that is the host's master as well.
#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "BM.h"
#include "sb_view.h"

// [handler]
class reader : public BM {
  public:
    ~reader() override { all_clean_up(); } // before what the handler uses goes

    // Runs in a thread of its own, once per event. Everything it is shown lies in shared memory until it returns.
    void event_handler(void* slot, zrk4_client_sblock_data* blocks) override
    {
        const auto* event = static_cast<zrk4_event_slot_head*>(slot);
        for (int i = 0; i < event->sbfilled; ++i) {
            const zrk4::sb_view block = zrk4::sb_of(*this, blocks[i]); // empty where a writer brought nothing
            for (const zrk4::sb_sub& channel : block) {
                std::printf("ADC: pulse %d\n", static_cast<int>(channel.value<double>(0)));
            }
        }
        if (--left_ == 0) kill(getpid(), SIGTERM); // ten are enough here
    }

  private:
    int left_ = 10;
};
// [handler]

// [main]
int main()
{
    sigset_t ends; // to be waited for: what a signal ends on the spot leaves its partitions behind
    sigemptyset(&ends);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&ends, signal);
    sigprocmask(SIG_BLOCK, &ends, nullptr); // before the first thread

    reader bm;
    bm.set_nclients(64); // the defaults ask for more than a stock kernel grants
    bm.set_nblocks(32);
    if (bm.set_master(true) || bm.init()) return 1; // true means failure

    zrk4_client every_event{};
    if (bm.subscribe(ZRK4_EV_NORMAL, CLI_T_READER, &every_event, /*blocks: all*/ nullptr) < 1) return 1;
    std::puts("ready");
    std::fflush(stdout);

    int signal = 0;
    sigwait(&ends, &signal);
    for (int writers = 1; writers > 0; usleep(10000)) bm.cl_subscribed(&writers, nullptr);
    return 0; // the master leaves last, and removes the partitions
}
// [main]
