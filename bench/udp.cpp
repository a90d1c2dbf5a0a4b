#include "udp.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

[[noreturn]] void fail(const char* call) { throw std::system_error(errno, std::generic_category(), call); }

} // namespace

udp_socket::udp_socket() : fd_(socket(AF_INET, SOCK_DGRAM, 0))
{
    if (fd_ < 0) fail("socket");
}

udp_socket::~udp_socket() { close(fd_); }

uint16_t udp_socket::listen_somewhere() const
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t length = sizeof address;
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        fail("bind");
    return ntohs(address.sin_port);
}

void udp_socket::send_to(uint16_t port, const void* from, size_t bytes) const
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (sendto(fd_, from, bytes, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) fail("sendto");
}

void udp_socket::receive(void* to, size_t bytes) const
{
    const ssize_t length = recv(fd_, to, bytes, MSG_WAITALL);
    if (length < 0) fail("recv");
    if (length != static_cast<ssize_t>(bytes)) throw std::runtime_error("a foreign datagram");
}

} // namespace bench
