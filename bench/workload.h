/// @file
/// What is done with every event, in the library's processes and in the reference's alike: the payload, the pace and the
/// clock.
#ifndef ZRK4_BENCH_WORKLOAD_H
#define ZRK4_BENCH_WORKLOAD_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <sched.h>

#include "machine.h"

namespace bench {

/// One measurement.
struct plan {
    size_t payload = 1024;      ///< bytes of a block, without its head
    bool touched = true;        ///< the writer fills the payload, the reader looks at every page of it
    bool one_at_a_time = false; ///< an event begins when the one before it is over; else as soon as a buffer is free
    int64_t warm_up = 200;      ///< events before the first that counts
    double seconds = 0.4;       ///< for so long events are counted,
    int64_t events = 200'000;   ///< but no more than so many
    int writer_processor = 0;
    int reader_processor = 0;
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
    int64_t number;
    int64_t registered_ns;
    phase now;
};

/// Fills the payload of event `number`, behind its stamp, with bytes that tell it from its neighbours.
void fill(char* payload, size_t bytes, int64_t number);
/// @return whether the payload is that of event `number`, going by one byte of every page and the last one.
bool has_bytes_of(const char* payload, size_t bytes, int64_t number);
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

/// A reader's notes.
class event_log {
  public:
    explicit event_log(const plan& p);
    /// @param called_ns  when the callback began @return whether this was the last event.
    bool note(const char* payload, int64_t called_ns);
    /// @param writer_used_ns  processor time of the writer
    /// @throws std::runtime_error  an event came out of order or with wrong bytes
    reading result(int64_t writer_used_ns) const;

  private:
    const plan& plan_;
    int64_t expected_ = 0;
    int64_t wrong_ = 0;
    int64_t first_ns_ = 0;
    int64_t last_ns_ = 0;
    int64_t used_before_ns_ = 0;
    int64_t used_ns_ = 0;
    std::vector<double> microseconds_;
};

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

/// The writer's part. `Writer` has:
///   char* take(int64_t number)        a free buffer, ready but for its payload; @return where that goes
///   void hand_over(int64_t number)    registers it
///   bool is_over(int64_t number)      whether the reader is done with it and its buffer is back
/// @return processor time used for the counted events.
template <class Writer> int64_t write_events(Writer& writer, const plan& p)
{
    event_count count(p);
    for (int64_t number = 0;; ++number) {
        char* payload = writer.take(number);
        const phase now = count.of(number);
        if (p.touched) fill(payload, p.payload, number);
        put_stamp(payload, {number, now_ns(), now});
        writer.hand_over(number);
        if (p.one_at_a_time) wait_until_over(writer, number);
        if (now == phase::last) return count.used_ns();
    }
}

} // namespace bench

#endif
