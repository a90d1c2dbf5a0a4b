#include "reference_calls.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/sem.h>
#include <sys/socket.h>

#include "C_shm_int.h"

namespace bench {
namespace {

[[noreturn]] void fail(const char* call) { throw std::system_error(errno, std::generic_category(), call); }

} // namespace

semaphore_set::semaphore_set(int buffers, bool locks)
    : id_(semget(IPC_PRIVATE, gbl_nsems + (locks ? buffers : 0), IPC_CREAT | 0600))
{
    static_assert(GATE == gbl_gate && FREE == gbl_empty && FIRST_LOCK == gbl_nsems);
    if (id_ < 0) fail("semget");
    std::vector<unsigned short> values(static_cast<size_t>(gbl_nsems + (locks ? buffers : 0)), 1);
    values[gbl_empty] = static_cast<unsigned short>(buffers);
    values[gbl_full] = values[gbl_synch] = 0;
    semun argument{};
    argument.array = values.data();
    if (semctl(id_, 0, SETALL, argument) != 0) fail("semctl");
}

semaphore_set::~semaphore_set() { semctl(id_, 0, IPC_RMID); }

bool semaphore_set::try_change(int number, short by, short flags) const
{
    sembuf operation{static_cast<unsigned short>(number), by, flags};
    return semop(id_, &operation, 1) == 0;
}

void semaphore_set::change(int number, short by, short flags) const
{
    if (!try_change(number, by, flags)) fail("semop");
}

// Undone when the process dies: a lock is never lost. Without waiting first: a busy lock is counted.
void semaphore_set::lock(int number, short by) const
{
    if (try_change(number, by, SEM_UNDO | IPC_NOWAIT)) return;
    if (errno != EAGAIN) fail("semop");
    change(number, by, SEM_UNDO);
}

// Not undone: a dead process's buffer is still out.
void semaphore_set::count_taken() const { change(FREE, -1, IPC_NOWAIT); }

void take_buffer(const exchange_sets& sets)
{
    sets.data.wait_for_free();
    sets.data.take_gate();
    sets.data.give_gate();
}

namespace {

void make_event(const exchange_sets& sets, pid_t reader)
{
    sets.events.take(CONTROL);
    sets.events.count_taken();
    sets.events.take_gate();
    sets.events.give_gate();
    // Two clients take part: the writer itself, and the reader, if it lives.
    sets.clients.take(CONTROL);
    sets.clients.give(CONTROL);
    sets.clients.take(CONTROL);
    if (kill(reader, 0) != 0) fail("kill");
    sets.clients.give(CONTROL);
    sets.events.give(CONTROL);
}

void free_event(const exchange_sets& sets)
{
    sets.events.take(CONTROL);
    sets.data.take_gate();
    sets.data.give_gate();
    sets.data.count_free();
    sets.events.take_gate();
    sets.events.give_gate();
    sets.events.count_free();
    sets.events.give(CONTROL);
}

} // namespace

void register_block(const exchange_sets& sets, int socket, uint16_t port, const datagram& m)
{
    make_event(sets, static_cast<pid_t>(m.mtype));
    // The block is entered.
    sets.events.take(m.evslot);
    sets.events.give(m.evslot);
    // Everybody who waits for it is told.
    sets.events.take(m.evslot);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (sendto(socket, &m, sizeof m, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) fail("sendto");
    sets.events.give(m.evslot);
}

datagram receive(int socket)
{
    datagram m{};
    const ssize_t length = recv(socket, &m, sizeof m, MSG_WAITALL);
    if (length < 0) fail("recv");
    if (length != static_cast<ssize_t>(sizeof m)) throw std::runtime_error("a foreign datagram");
    return m;
}

// The reader is at work from here on.
void begin_reading(const exchange_sets& sets, const datagram& m)
{
    sets.events.take(m.evslot);
    sets.events.give(m.evslot);
}

void end_reading(const exchange_sets& sets, const datagram& m)
{
    // It is done, in the event and in its own slot.
    sets.events.take(m.evslot);
    sets.events.give(m.evslot);
    sets.clients.take(m.clslot);
    sets.clients.give(m.clslot);
    // A look at the others: nobody is left.
    sets.events.take(m.evslot);
    sets.events.give(m.evslot);
    free_event(sets);
}

} // namespace bench
