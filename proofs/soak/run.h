/// @file
/// What a run is made of, and the roles of its processes.
#ifndef ZRK4_SOAK_RUN_H
#define ZRK4_SOAK_RUN_H

#include <atomic>
#include <cstdint>
#include <limits>
#include <string>

#include "BM.h"
#include "plan.h"
#include "record.h"

namespace soak {

using proof::monotonic_ns;
using proof::record;

/// A fault that is planted to see that it is reported.
enum class canary { none, corrupt, leak, deaf };

struct settings {
    uint64_t seed = 1;
    int seconds = 1800;
    bool wide = true;
    int mode = BM_SYNCH_EVID;
    canary planted = canary::none;
    int last_kill = std::numeric_limits<int>::max(); ///< the run ends behind this one
    std::string folder = ".";                        ///< of the record and of what the processes say
};

inline constexpr ZRK4_EVTYPE EVENT_TYPE = ZRK4_EV_NORMAL;
inline constexpr int64_t TICK_US = 2000;
/// A used event slot holds a data buffer at least: with more slots than buffers, buffers alone hold the writers back.
inline constexpr int BUFFERS = 150, RATE = 20;
static_assert(WRITERS * BUFFERS < RATE * 32);
inline constexpr int PERIOD_US = 50'000; ///< of the monitor

std::string data_name(int writer);
std::string block_name(int writer);

/// In memory that all processes of a run share; it outlives the killed.
struct common {
    struct of_member {
        std::atomic<int64_t> beat_ns; ///< when it last got something done
        std::atomic<uint64_t> blocks; ///< that a reader found sound
    };
    std::atomic<int64_t> last_tick{std::numeric_limits<int64_t>::max()}; ///< the writers write none behind it
    std::atomic<bool> clients_leave{false}, master_leaves{false};
    std::atomic<bool> made{false}; ///< the partitions
    std::atomic<int64_t> delivered_ns{0};
    std::atomic<uint64_t> serial[WRITERS]{};
    of_member member[MEMBERS]{};
};

int64_t tick_now();

/// What every role is given.
struct context {
    const settings& how;
    const record& log;
    common& all;
};

/// Before `init`: alike in all processes.
void configure(BM& bm, const settings& how);

/// Each returns its exit status when the run is over.
int be_master(const context& run);
int be_writer(const context& run, int number);
int be_reader(const context& run, int number);

} // namespace soak

#endif
