/// @file
/// A reader's socket without a reader: what was sent to it, byte by byte.
#ifndef ZRK4_TEST_UDP_INBOX_H
#define ZRK4_TEST_UDP_INBOX_H

#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zrk4::test {

/// Bound to a free port of the loopback interface. A datagram that was sent is here when the send returns.
class udp_inbox {
  public:
    udp_inbox() : fd_(socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const at = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd_, at, sizeof address) != 0 || getsockname(fd_, at, &length) != 0)
            throw std::runtime_error("udp_inbox: no port");
        port_ = ntohs(address.sin_port);
    }
    ~udp_inbox() { close(fd_); }
    udp_inbox(const udp_inbox&) = delete;
    udp_inbox& operator=(const udp_inbox&) = delete;

    int port() const { return port_; }
    /// Takes nothing any more, also not what is still sent to somebody who had this port before.
    void hear_nobody() const
    {
        sockaddr_in itself{};
        itself.sin_family = AF_INET;
        itself.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        itself.sin_port = htons(static_cast<uint16_t>(port_));
        if (connect(fd_, reinterpret_cast<const sockaddr*>(&itself), sizeof itself) != 0)
            throw std::runtime_error("udp_inbox: not to be silenced");
    }
    bool empty() const
    {
        pollfd waiting{fd_, POLLIN, 0};
        return poll(&waiting, 1, 0) == 0;
    }
    /// The oldest datagram; when there is none in `patience_ms`, a text that is none.
    std::string next(int patience_ms = 5000) const
    {
        pollfd waiting{fd_, POLLIN, 0};
        if (poll(&waiting, 1, patience_ms) != 1) return "nothing came";
        char bytes[256];
        const ssize_t n = recv(fd_, bytes, sizeof bytes, 0);
        return n < 0 ? "recv failed" : std::string(bytes, static_cast<size_t>(n));
    }

  private:
    int fd_;
    int port_ = -1;
};

} // namespace zrk4::test

#endif
