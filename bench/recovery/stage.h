/// @file
/// The processes among which something is killed, and a host with all slots in use.
#ifndef ZRK4_BENCH_STAGE_H
#define ZRK4_BENCH_STAGE_H

#include <unistd.h>

#include "exchange.h"
#include "machine.h"
#include "process.h"

namespace bench {

inline constexpr const char* CLIENT_PARTITION = "ZRK4_CLIENT_SLOTS";
inline constexpr const char* EVENT_PARTITION = "ZRK4_EVENT_SLOTS";

/// Slots of the full host, all of them in use.
inline constexpr int FULL_EVENTS = 640;
inline constexpr int FULL_CLIENTS = 4096;

/// A master and its partitions, for the life of the object.
class stage {
  public:
    stage(int processor, int period_us);
    ~stage();
    stage(const stage&) = delete;
    stage& operator=(const stage&) = delete;

  private:
    process master_;
};

/// Nods when its partitions are there, and waits for its end.
void be_master(line_end& line, int period_us);
/// Subscribes, says the number of its slot and waits for its end.
void be_idle_reader(line_end& line);
/// Nods when it has subscribed, and again from inside its handler, where it stays for ever.
[[noreturn]] void be_stuck_reader(line_end& line);
/// Registers one event and waits for its end.
void write_one_event(line_end& line);
/// Registers one of two blocks of an event, nods and waits for its end.
void owe_a_block(line_end& line);

/// @throws std::runtime_error  the buffer is not back within half a minute
void wait_until_free(const C_shm_buffer& part, int number);

/// A monitor's cycle over the full host: every client is asked for, every event's head compared.
/// @return how long the monitor says one takes, the median of several, in milliseconds.
double full_monitor_cycle_ms();
/// Check and repair of the full host, without observation, in milliseconds.
double full_check_ms();

} // namespace bench

#endif
