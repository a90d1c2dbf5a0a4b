#include "run.h"

#include <ctime>

namespace soak {

std::string data_name(int writer) { return "SOAK_DATA_" + std::to_string(writer); }
std::string block_name(int writer) { return "SOAK.WRITER." + std::to_string(writer); }

int64_t tick_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return (now.tv_sec * int64_t{1'000'000} + now.tv_nsec / 1000) / TICK_US;
}

void configure(BM& bm, const settings& how)
{
    bm.set_evid_64bit_mode(how.wide);
    bm.set_smode(how.mode);
    bm.set_time_mask(TICK_US / 5);
    bm.set_nclients(16);
    bm.set_ncl_slots(64);
    bm.set_nblocks(16);
    bm.set_rate(RATE);
}

} // namespace soak
