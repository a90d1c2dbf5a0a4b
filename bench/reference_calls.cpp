#include "reference_calls.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include <unistd.h>

namespace bench {
namespace {

constexpr int CONTROL = 0; // the lock of a slot partition's control record

// A lock that a strict reference gives back between two steps, and the best one keeps.
void between_steps(const semaphore_set& locks, int number)
{
    if (locks.keeps_locks()) return;
    locks.give(number);
    locks.take(number);
}

} // namespace

reference_host::reference_host(manner m, const shape& s, int client_slots, int event_slots, int buffers)
    : shape_(s),
      event_slots_(event_slots),
      client_locks_(client_slots + 1, /*locks=*/true, m),
      event_locks_(event_slots + 1, /*locks=*/true, m),
      free_(static_cast<size_t>(s.writers)),
      events_(static_cast<size_t>(event_slots) + 1),
      clients_(static_cast<size_t>(s.writers + s.readers)),
      over_(1)
{
    if (s.writers + s.readers > client_slots || s.blocks > event_books::MOST_BLOCKS || buffers > free_buffers::MOST)
        throw std::runtime_error("the reference has not room for so many");
    for (int i = 0; i < s.writers; ++i) {
        data_locks_.push_back(std::make_unique<semaphore_set>(buffers, /*locks=*/false, m));
        free_buffers& all = free_[static_cast<size_t>(i)];
        for (int n = 0; n < buffers; ++n) all.number[static_cast<size_t>(n)] = n;
        all.next_place = buffers;
    }
}

int reference_host::take_buffer(int writer) const
{
    const semaphore_set& data = *data_locks_[static_cast<size_t>(writer)];
    free_buffers& all = free_[static_cast<size_t>(writer)];
    data.wait_for_free();
    data.take_gate();
    const int taken = all.number[static_cast<size_t>(all.next_free++ % free_buffers::MOST)];
    data.give_gate();
    return taken;
}

// The writer that makes the event lives; all other clients are asked for.
void reference_host::look_at_clients(int writer) const
{
    client_locks_.take(CONTROL);
    for (int c = 0; c < shape_.writers + shape_.readers; ++c) {
        if (c > 0) between_steps(client_locks_, CONTROL);
        if (c != writer && kill(clients_[static_cast<size_t>(c)].pid, 0) != 0)
            throw std::system_error(errno, std::generic_category(), "kill");
    }
    client_locks_.give(CONTROL);
}

void reference_host::make_event(int writer, int slot, int64_t number) const
{
    event_books& event = events_[static_cast<size_t>(slot)];
    if (event.number != -1) throw std::runtime_error("the reference has no slot left");
    event_locks_.count_taken();
    event_locks_.take_gate();
    event_locks_.give_gate();
    look_at_clients(writer);
    event.filled = event.done = 0;
    event.ended = false;
    event.number = number;
}

void reference_host::tell_readers(int slot, const event_books& event, const udp_socket& from) const
{
    datagram m{};
    m.evslot = slot;
    m.event = static_cast<uint64_t>(event.number);
    for (int k = 0; k < shape_.readers; ++k) {
        m.mtype = reader(k).pid;
        m.cln = shape_.writers + k;
        m.clslot = m.cln + 1;
        from.send_to(reader(k).port, &m, sizeof m);
    }
}

void reference_host::register_block(int writer, int block, int64_t number, int buffer, const udp_socket& from) const
{
    const int slot = slot_of(number);
    event_books& event = events_[static_cast<size_t>(slot)];
    event_locks_.take(CONTROL);
    if (event.number != number) make_event(writer, slot, number);
    event_locks_.give(CONTROL);

    event_locks_.take(slot);
    event.buffer[static_cast<size_t>(block)] = buffer;
    const bool complete = ++event.filled == shape_.blocks;
    between_steps(event_locks_, slot);
    if (complete) tell_readers(slot, event, from);
    event_locks_.give(slot);
}

datagram reference_host::receive(const udp_socket& socket)
{
    datagram m{};
    socket.receive(&m, sizeof m);
    return m;
}

// The reader is at work from here on.
void reference_host::begin_reading(const datagram& m) const
{
    event_locks_.take(m.evslot);
    event_locks_.give(m.evslot);
}

// It is done, in the event and in its own slot, and looks whether the others are.
void reference_host::end_reading(const datagram& m) const
{
    event_books& event = events_[static_cast<size_t>(m.evslot)];
    const bool at_once = event_locks_.keeps_locks();
    bool last = false;
    const auto look = [&] {
        last = event.done == shape_.readers && !event.ended;
        if (last) event.ended = true;
    };
    event_locks_.take(m.evslot);
    ++event.done;
    if (at_once) look();
    event_locks_.give(m.evslot);
    client_locks_.take(m.clslot);
    client_locks_.give(m.clslot);
    if (!at_once) {
        event_locks_.take(m.evslot);
        look();
        event_locks_.give(m.evslot);
    }
    if (last) end_event(event);
}

void reference_host::end_event(event_books& event) const
{
    event_locks_.take(CONTROL);
    for (int b = 0; b < shape_.blocks; ++b) {
        const auto writer = static_cast<size_t>(writer_of(b));
        const semaphore_set& data = *data_locks_[writer];
        free_buffers& all = free_[writer];
        data.take_gate();
        all.number[static_cast<size_t>(all.next_place++ % free_buffers::MOST)] = event.buffer[static_cast<size_t>(b)];
        data.give_gate();
        data.count_free();
    }
    event.number = -1;
    event_locks_.take_gate();
    event_locks_.give_gate();
    event_locks_.count_free();
    event_locks_.give(CONTROL);
    __atomic_add_fetch(&over_[0], 1, __ATOMIC_RELEASE);
}

} // namespace bench
