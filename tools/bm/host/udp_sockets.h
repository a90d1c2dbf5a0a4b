/// @file
/// The kernel's table of UDP sockets: what waits in a reader's queue, and what it has lost.
#ifndef ZRK4_TOOL_UDP_SOCKETS_H
#define ZRK4_TOOL_UDP_SOCKETS_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace bm {

struct udp_socket {
    uint64_t queued = 0; ///< bytes of the receive queue, with the kernel's own
    uint64_t drops = 0;  ///< datagrams lost since it was made
};

/// By local port. Only sockets of this network namespace.
using udp_sockets = std::unordered_map<int, udp_socket>;

/// Empty when the table cannot be read.
std::optional<udp_sockets> udp_sockets_now();
/// From a text of the form of /proc/net/udp. Lines that are none are skipped.
udp_sockets parse_udp_sockets(std::string_view text);

} // namespace bm

#endif
