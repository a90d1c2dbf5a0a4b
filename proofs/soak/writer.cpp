// A writer: one block for every tick, as long as it has a buffer.
#include "run.h"

#include <algorithm>
#include <ctime>

#include "block.h"

namespace soak {
namespace {

class writer {
  public:
    writer(const context& run, int number) : run_(run), number_(number) {}

    int live()
    {
        configure(bm_, run_.how);
        if (bm_.init()) return 2;
        if (bm_.add(data_name(number_).c_str())) return 3;
        data_ = std::stoi(bm_.find_by_name(data_name(number_).c_str())->getStat("shmid"));
        zrk4_client parameters{};
        std::list<std::string> blocks{block_name(number_)};
        if (bm_.subscribe(EVENT_TYPE, CLI_T_WRITER, &parameters, &blocks) < 1) return 4;
        if (run_.how.planted == canary::leak) keep_some();
        int64_t tick = tick_now();
        while ((tick = next_tick_after(tick)) <= run_.all.last_tick) send(tick);
        while (!run_.all.clients_leave) next_tick_after(tick_now());
        bm_.all_clean_up();
        return 0;
    }

  private:
    // Ticks that passed while it stood still are left out.
    int64_t next_tick_after(int64_t tick)
    {
        const int64_t next = std::max(tick, tick_now()) + 1;
        const int64_t us = next * TICK_US;
        const timespec at{us / 1'000'000, us % 1'000'000 * 1000};
        while (clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr) != 0) {}
        run_.all.member[FIRST_WRITER + number_].beat_ns = monotonic_ns();
        return next;
    }

    void send(int64_t tick)
    {
        int number = -1;
        char* at = bm_.get_buffer_from_pool(BM_NO_WAIT, BUFFER_BYTES, &data_, &number);
        if (at == nullptr) return;
        const int64_t us = tick * TICK_US;
        const time_stamp time{static_cast<uint32_t>(us / 1'000'000), static_cast<uint32_t>(us % 1'000'000)};
        const uint64_t serial = ++run_.all.serial[number_];
        write_block(at, run_.how.wide, {block_name(number_), time, tick & 0x7FFFFFFF, number_, serial});
        if (run_.how.planted == canary::corrupt && number_ == 1 && serial % 500 == 0)
            at[payload_offset(run_.how.wide)] ^= 1;
        // Nobody else takes buffers of this partition: a block that was refused and given back is still in the queue,
        // and giving it back again is refused.
        if (bm_.ev_update(EVENT_TYPE, data_, number)) bm_.return_buffer_in_pool(number, data_);
    }

    void keep_some()
    {
        int number = -1;
        for (int i = 0; i < BUFFERS / 3; ++i) bm_.get_buffer_from_pool(BM_NO_WAIT, BUFFER_BYTES, &data_, &number);
    }

    const context& run_;
    int number_;
    BM bm_;
    int data_ = -1;
};

} // namespace

int be_writer(const context& run, int number) { return writer(run, number).live(); }

} // namespace soak
