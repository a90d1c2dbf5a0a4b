/// @file
/// What is done with every event, in the programs of all subjects alike: the payload, the pace and the clock.
#ifndef ZRK4_BENCH_WORKLOAD_H
#define ZRK4_BENCH_WORKLOAD_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <sched.h>

#include "machine.h"

namespace bench {

/// One measurement.
struct plan {
    size_t payload = 1024;      ///< bytes of a block, without its head
    bool touched = true;        ///< the writer fills the payload, the reader looks at every page of it
    bool one_at_a_time = false; ///< an event begins when the one before it is over; else as soon as a buffer is free
    int writers = 1;
    int readers = 1;         ///< all of them take every event
    int blocks_each = 1;     ///< that a writer gives to an event
    int on_the_way = 32;     ///< events that a writer may be ahead: the library's buffers, a peer's messages
    int64_t warm_up = 200;   ///< events before the first that counts
    double seconds = 0.4;    ///< for so long events are counted; of several writers not asked: they have to agree
    int64_t events = 200000; ///< but no more than so many
    int writer_processor = 0;
    int reader_processor = 0;

    int blocks() const { return writers * blocks_each; }
    /// Several writers, or readers, stand on the two processors in turn.
    int processor_of_writer(int i) const { return i % 2 == 0 ? writer_processor : reader_processor; }
    int processor_of_reader(int k) const { return k % 2 == 0 ? reader_processor : writer_processor; }
};

/// What came of it.
struct reading {
    double events_per_second = 0;
    double processor_time = 0; ///< microseconds per event, of all processes that take part
    double p50 = 0;            ///< microseconds from registration to callback
    double p99 = 0;
};

enum class phase : int32_t { warm_up, counted, last };

/// At the begin of every payload.
struct stamp {
    int64_t number; ///< of the event
    int64_t registered_ns;
    int32_t block; ///< of the event's blocks
    phase now;
};

/// Fills the payload, behind its stamp, with bytes that tell it from its neighbours.
void fill(char* payload, size_t bytes, int64_t number, int block = 0);
/// @return whether the payload is that of this block, going by one byte of every page and the last one.
bool has_bytes_of(const char* payload, size_t bytes, int64_t number, int block = 0);
void put_stamp(char* payload, const stamp& s);
stamp stamp_of(const char* payload);

/// Tells a writer the phase of the event that it is about to register.
class event_count {
  public:
    explicit event_count(const plan& p) : plan_(p) {}
    phase of(int64_t number);
    /// Processor time since the first counted event.
    int64_t used_ns() const { return processor_time_ns() - used_before_ns_; }

  private:
    const plan& plan_;
    int64_t end_ns_ = 0;
    int64_t used_before_ns_ = 0;
};

/// What one reader saw of the counted events.
struct reader_report {
    int64_t wrong = 0;     ///< events out of order, twice, incomplete, or with wrong bytes
    int64_t seen = 0;      ///< events, those of the warm-up as well
    int64_t intervals = 0; ///< from counted event to counted event
    int64_t took_ns = 0;
    int64_t used_ns = 0; ///< of its processor
    double p50 = 0;
    double p99 = 0;
};

/// A reader's notes.
class event_log {
  public:
    explicit event_log(const plan& p);
    /// @param payloads   of all blocks of an event, in any order
    /// @param called_ns  when the callback began @return whether this was the last event.
    bool note(std::span<const char* const> payloads, int64_t called_ns);
    reader_report report() const;

  private:
    bool is_whole(std::span<const char* const> payloads, const stamp& first);
    bool is_expected(int64_t number);

    const plan& plan_;
    int64_t seen_ = 0;
    int64_t wrong_ = 0;
    int64_t counted_ = 0;
    int64_t first_ns_ = 0;
    int64_t last_ns_ = 0;
    int64_t used_before_ns_ = 0;
    int64_t used_ns_ = 0;
    std::vector<bool> had_;    ///< events of several writers, which may come out of order
    std::vector<bool> blocks_; ///< of the event that is looked at
    std::vector<double> microseconds_;
};

/// The slowest reader tells how many events passed; the first one how long an event took.
/// @param others_used_ns  processor time of everybody else together
/// @throws std::runtime_error  one of them saw wrong events
reading combined(std::span<const reader_report> readers, int64_t others_used_ns);

/// Waits until event `number` is over for both processes. The reader says so shortly before it waits for its next
/// datagram; it gets the time to arrive there. Yielding, so that it also gets the processor.
template <class Writer> void wait_until_over(const Writer& writer, int64_t number)
{
    constexpr int64_t WAY_BACK_NS = 50'000;
    while (!writer.is_over(number)) sched_yield();
    const int64_t until = now_ns() + WAY_BACK_NS;
    do {
        sched_yield();
    } while (now_ns() < until);
}

/// The part of writer `index`. `Writer` has:
///   char* take(int64_t number, int block)      a free buffer, ready but for its payload; @return where that goes
///   void hand_over(int64_t number, int block)  registers it
///   bool is_over(int64_t number)               whether the readers are done with the event and its buffers are back
/// @return processor time used for the counted events.
template <class Writer> int64_t write_events(Writer& writer, const plan& p, int index = 0)
{
    event_count count(p);
    for (int64_t number = 0;; ++number) {
        phase now = phase::warm_up;
        for (int j = 0; j < p.blocks_each; ++j) {
            const int block = index * p.blocks_each + j;
            char* payload = writer.take(number, block);
            if (j == 0) now = count.of(number);
            if (p.touched) fill(payload, p.payload, number, block);
            put_stamp(payload, {number, now_ns(), block, now});
            writer.hand_over(number, block);
        }
        if (p.one_at_a_time) wait_until_over(writer, number);
        if (now == phase::last) return count.used_ns();
    }
}

} // namespace bench

#endif
