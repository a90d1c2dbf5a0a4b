/// @file
/// Slot partitions that an earlier master has left, and the lines of the next one.
#ifndef ZRK4_TEST_BM_OLD_HOST_H
#define ZRK4_TEST_BM_OLD_HOST_H

#include <cstring>
#include <string>

#include "bm_host.h"

namespace zrk4::test {

/// What a master of a small host says first, and what it says by force.
inline constexpr char LINE_CLIENTS[] = "DATE CL_SLOTS NAME:ZRK4_CLIENT_SLOTS SLOTS:257 SIZE:816\n";
inline constexpr char LINE_EVENTS[] = "DATE EV_SLOTS NAME:ZRK4_EVENT_SLOTS SLOTS:33 SIZE:884\n";
inline constexpr char FORCING[] = "DATE Forcing mode: removing it !!!\n";

struct old_size {
    int clients = CLIENT_BUFFERS, client_length = CLIENT_LENGTH;
    int events = EVENT_BUFFERS, event_length = EVENT_LENGTH;
};

/// The slot partitions of an earlier master, which another program holds.
struct old_host {
    C_shm_buffer clients, events;

    explicit old_host(const old_size& size = {})
        : clients(CLIENTS, size.clients, size.client_length, true), events(EVENTS, size.events, size.event_length, true)
    {
        clients.get_buffer(BM_NO_WAIT, true); // the control records
        events.get_buffer(BM_NO_WAIT, true);
    }
    /// Leaves bytes in every buffer.
    static void soil(const C_shm_buffer& part) { std::memset(part.buffer_addr(0), 0x5A, all_of(part)); }
    static size_t all_of(const C_shm_buffer& part)
    {
        return static_cast<size_t>(part.getBufferCount()) * static_cast<size_t>(part.getBufferLength());
    }
    static bool all_bytes_are(const C_shm_buffer& part, char value)
    {
        const std::string bytes(part.buffer_addr(0), all_of(part));
        return bytes.find_first_not_of(value) == std::string::npos;
    }
};

/// Status of the client control block.
inline int control_status(const C_shm_buffer& clients)
{
    int32_t status = 0;
    std::memcpy(&status, clients.buffer_addr(0), sizeof status);
    return status;
}
inline void put_control_status(const C_shm_buffer& clients, int32_t status)
{
    std::memcpy(clients.buffer_addr(0), &status, sizeof status);
}

} // namespace zrk4::test

#endif
