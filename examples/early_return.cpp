// A reader that works long on little: it copies what it needs out of each block, gives the block back while its handler
// still runs, and then takes its time. The writers have their buffers meanwhile.
//   example_early_return [--early 0|1] [--work MILLISECONDS] [--events N] [--records 2010|2024]
// Only for events that no other reader is given: the entries behind a block that goes back move up.
#include <thread>

#include "common.h"

namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_NORMAL;

class worker : public BM {
  public:
    explicit worker(const options& given)
        : seen(given), early_(given.number("early", 1) != 0), work_(given.number("work", 20))
    {
        configure(*this, given);
    }
    ~worker() override { all_clean_up(); } // ends the reader thread before what it uses

    /// Runs in the reader thread.
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        double sum = 0;
        int partition = 0;
        for (int i = blocks_in(get_evid_64bit_mode(), head); i-- > 0;) { // from behind: nothing that is left moves
            const zrk4_client_sblock_data entry = first[i];
            const zrk4::sb_view block = zrk4::sb_of(*this, entry);
            if (!block) continue;
            partition = entry.shmid;
            for (const zrk4::sb_sub& channel : block) sum += channel.value<double>(0);
            // `block` is nobody's from here on, and with the last one so is the event.
            if (early_ && return_buffer_in_pool_ext(EVENT, entry.bnum, entry.shmid)) std::puts("not returned");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(work_));
        const C_shm_buffer* part = find_by_id(partition);
        std::printf("sum %.2f, %s of %s buffers free\n", sum, part != nullptr ? part->getStat("freebuf").c_str() : "?",
                    part != nullptr ? part->getStat("nbuf").c_str() : "?");
        ++seen;
    }

    event_count seen;

  private:
    const bool early_;
    const int work_;
};

int read_and_work(const options& given)
{
    worker bm(given);
    if (bm.init()) return 1; // true means failure: is there a master?
    zrk4_client parameters{};
    if (bm.subscribe(EVENT, CLI_T_READER, &parameters, nullptr) < 1) return 1;
    return see_events(bm, EVENT, bm.seen);
}

} // namespace

int main(int argc, char** argv) { return run_in_order(argc, argv, read_and_work); }
