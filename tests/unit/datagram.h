/// @file
/// Notifications by their bytes, and sockets that send what no library would.
#ifndef ZRK4_TEST_DATAGRAM_H
#define ZRK4_TEST_DATAGRAM_H

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "BM.h"
#include "slot_bytes.h"

namespace zrk4::test {

/// A notification as a sender writes it; one of 2010 has no room for the microseconds.
struct datagram {
    int64_t mtype = 1;
    int evslot = 0, clslot = 0, cln = 0;
    uint32_t timeup = 0, timelow = 0;
    int64_t event = 0;
};

inline std::string datagram_bytes(const datagram& d, generation g)
{
    std::string bytes(g == generation::of_2010 ? 32 : 40, '\0');
    char* at = bytes.data();
    store(at, d.mtype);
    store<int32_t>(at + 8, d.evslot);
    store<int32_t>(at + 12, d.clslot);
    store<int32_t>(at + 16, d.cln);
    store<uint32_t>(at + 20, d.timeup);
    if (g == generation::of_2010) {
        store<int32_t>(at + 24, static_cast<int32_t>(d.event));
    } else {
        store<uint32_t>(at + 24, d.timelow);
        store<int64_t>(at + 32, d.event);
    }
    return bytes;
}

/// Sends `bytes` to a port of this host, as any local process may.
inline void send_to(int port, const std::string& bytes)
{
    static const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto n = sendto(sender, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    EXPECT_EQ(n, static_cast<ssize_t>(bytes.size())) << strerror(errno);
}

/// Datagrams that this process's readers have rejected.
inline int rejected() { return __atomic_load_n(&bm_bad_format_events, __ATOMIC_RELAXED); }

} // namespace zrk4::test

#endif
