/// @file
/// What the processes of a run note down for the summary, in memory that all of them share.
#ifndef ZRK4_DEMO_RECORD_H
#define ZRK4_DEMO_RECORD_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "plan.h"
#include "run_plan.h"
#include "tick.h"

namespace demo {

/// One event as one reader got it. Written by that reader alone, read when it has ended.
struct delivery {
    int32_t times;      ///< callbacks for this event: 1 when all is well
    int32_t blocks;     ///< sound blocks that the reader found in it
    int64_t latency_ns; ///< from the registration of the last block that the reader waits for to its callback
    int64_t begun_us;   ///< wall clock: when the event's slot was taken
    int64_t done_us;    ///< wall clock: when the callback ended
};

struct tick_record {
    std::atomic<int32_t> registered; ///< blocks entered by the writers
    delivery to[READERS];
};

struct reader_record {
    std::atomic<uint64_t> bytes_in_place;
    std::atomic<uint64_t> bytes_copied;
    std::atomic<uint64_t> strangers; ///< events whose stamp is no tick of this run, or whose id is not that tick's
    std::atomic<uint64_t> damaged;   ///< blocks without address, with another stamp, or whose bytes are not as written
};

struct writer_record {
    std::atomic<uint64_t> waits;   ///< times that no buffer was free
    std::atomic<uint64_t> late;    ///< samples taken later than their tick's period
    std::atomic<uint64_t> refused; ///< blocks that the buffer manager did not enter
};

/// What the run control sent, and what the first reader made of it. Arrays are by kind of event.
struct run_control_record {
    writer_record writer;
    std::atomic<uint64_t> sent[RUN_EVENTS.size()];
    std::atomic<uint64_t> received[RUN_EVENTS.size()];
    std::atomic<uint64_t> strangers;  ///< received when none of its kind was due
    std::atomic<uint64_t> channels;   ///< in the dictionary as it was sent
    std::atomic<uint64_t> by_name;    ///< channels of the dictionary that came with a value and were read by name
    std::atomic<uint64_t> values;     ///< values and properties that were asked for by name
    std::atomic<uint64_t> mistaken;   ///< of these, answered otherwise than they were sent
    std::atomic<uint64_t> not_copied; ///< events and blocks that the local copies did not take
};

struct run_head {
    tick_gate gate;
    tick_clock clock; ///< set before the writers are told to go
    writer_record writer[3];
    run_control_record control;
    reader_record reader[READERS];
};

/// The shared memory of one run: a head and one record per tick. Children forked after it was made share it.
class run_record {
  public:
    /// @throws std::system_error no memory
    explicit run_record(int64_t ticks);
    ~run_record();
    run_record(const run_record&) = delete;
    run_record& operator=(const run_record&) = delete;

    run_head& head() const { return *static_cast<run_head*>(memory_); }
    std::span<tick_record> ticks() const { return ticks_; }

  private:
    size_t bytes_;
    void* memory_;
    std::span<tick_record> ticks_;
};

} // namespace demo

#endif
