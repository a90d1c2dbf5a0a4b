/// @file
/// What the processes of a run note down for the summary, in memory that all of them share.
#ifndef ZRK4_DEMO_RECORD_H
#define ZRK4_DEMO_RECORD_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "plan.h"
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

struct run_head {
    tick_gate gate;
    tick_clock clock; ///< set before the writers are told to go
    writer_record writer[3];
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
