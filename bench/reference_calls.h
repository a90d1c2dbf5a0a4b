/// @file
/// The calls into the kernel that the exchange demands for an event of W writers, R readers and B blocks, made for their
/// own sake: 12 B + 3 W + 13 R + 7 of them in the strict manner, 10 B + W + 9 R + 9 in the best one. The books that go
/// with them are the least that tell who is meant.
#ifndef ZRK4_BENCH_REFERENCE_CALLS_H
#define ZRK4_BENCH_REFERENCE_CALLS_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include <sys/types.h>

#include "BM_int.h"
#include "semaphore_set.h"
#include "shared_memory.h"
#include "udp.h"

namespace bench {

using datagram = reader_message_2024;

/// The buffers of one writer and the order in which they are free. Under the gate.
struct free_buffers {
    static constexpr int MOST = 64;
    int32_t next_free = 0;
    int32_t next_place = 0;
    std::array<int32_t, MOST> number{};
};

/// One event. Under the slot's lock, but for its number: under the control lock.
struct event_books {
    static constexpr int MOST_BLOCKS = 64;
    int64_t number = -1;
    int32_t filled = 0;
    int32_t done = 0;
    bool ended = false;
    std::array<int32_t, MOST_BLOCKS> buffer{};
};

/// Where a client can be reached.
struct client_address {
    pid_t pid = 0;
    uint16_t port = 0; ///< of a reader
};

/// What all processes of a reference share.
class reference_host {
  public:
    struct shape {
        int writers, readers, blocks;
    };
    /// @param buffers  of each writer
    reference_host(manner m, const shape& s, int client_slots, int event_slots, int buffers);

    /// Writer `writer` takes a buffer. @return its number.
    int take_buffer(int writer) const;
    /// The filled buffer becomes a block of event `number`, which begins with its first one; with the last one the
    /// readers are told.
    void register_block(int writer, int block, int64_t number, int buffer, const udp_socket& from) const;

    /// The next event that is told. The call in which a reader's program gets it stands between `begin` and `end`.
    static datagram receive(const udp_socket& socket);
    void begin_reading(const datagram& m) const;
    void end_reading(const datagram& m) const;

    const event_books& event(const datagram& m) const { return events_[static_cast<size_t>(m.evslot)]; }
    int writer_of(int block) const { return block / (shape_.blocks / shape_.writers); }
    client_address& writer(int i) const { return clients_[static_cast<size_t>(i)]; }
    client_address& reader(int k) const { return clients_[static_cast<size_t>(shape_.writers + k)]; }
    /// Number of events that are over.
    int64_t over() const { return __atomic_load_n(&over_[0], __ATOMIC_ACQUIRE); }

  private:
    void make_event(int writer, int slot, int64_t number) const;
    void look_at_clients(int writer) const;
    void tell_readers(int slot, const event_books& event, const udp_socket& from) const;
    void end_event(event_books& event) const;
    int slot_of(int64_t number) const { return static_cast<int>(1 + number % event_slots_); }

    shape shape_;
    int event_slots_;
    semaphore_set client_locks_;
    semaphore_set event_locks_;
    std::vector<std::unique_ptr<semaphore_set>> data_locks_; ///< of each writer's partition
    shared_memory<free_buffers> free_;
    shared_memory<event_books> events_;
    shared_memory<client_address> clients_;
    shared_memory<int64_t> over_;
};

} // namespace bench

#endif
