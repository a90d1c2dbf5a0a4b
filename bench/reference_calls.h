/// @file
/// The calls into the kernel that the exchange demands for one event of one writer, one block and one reader: 32
/// semaphore operations, one look whether the other process lives, one datagram sent and one received.
///
/// Strict: every lock is given back after each step, also where the next step takes it again at once, and a busy lock is
/// slept on after the one try that does not wait.
#ifndef ZRK4_BENCH_REFERENCE_CALLS_H
#define ZRK4_BENCH_REFERENCE_CALLS_H

#include <cstdint>

#include <sys/types.h>

#include "BM_int.h"

namespace bench {

/// The semaphore set of a partition: gate, count of free buffers, two that no event needs, one lock per buffer.
class semaphore_set {
  public:
    /// @param locks  whether every buffer has one @throws std::system_error
    semaphore_set(int buffers, bool locks);
    ~semaphore_set();
    semaphore_set(const semaphore_set&) = delete;
    semaphore_set& operator=(const semaphore_set&) = delete;

    void take_gate() const { lock(GATE, -1); }
    void give_gate() const { lock(GATE, 1); }
    void take(int buffer) const { lock(FIRST_LOCK + buffer, -1); }
    void give(int buffer) const { lock(FIRST_LOCK + buffer, 1); }
    /// Waits until a buffer is free, and counts it as taken.
    void wait_for_free() const { change(FREE, -1, 0); }
    /// The same where one is free for certain.
    void count_taken() const;
    void count_free() const { change(FREE, 1, 0); }

  private:
    static constexpr int GATE = 0, FREE = 1, FIRST_LOCK = 4;
    void lock(int number, short by) const;
    void change(int number, short by, short flags) const;
    bool try_change(int number, short by, short flags) const;

    int id_;
};

struct exchange_sets {
    const semaphore_set& data;
    const semaphore_set& clients;
    const semaphore_set& events;
};

using datagram = reader_message_2024;

/// Client slots of the two, and the control record that stands in front of the slots.
inline constexpr int CONTROL = 0, WRITERS_SLOT = 1, READERS_SLOT = 2;

/// A buffer is taken from its partition.
void take_buffer(const exchange_sets& sets);
/// The filled buffer becomes the one block of a new event in slot `m.evslot`, and the reader is told.
void register_block(const exchange_sets& sets, int socket, uint16_t port, const datagram& m);
/// The next event that is told. The call in which a reader's program gets it stands between `begin` and `end`.
datagram receive(int socket);
void begin_reading(const exchange_sets& sets, const datagram& m);
void end_reading(const exchange_sets& sets, const datagram& m);

} // namespace bench

#endif
