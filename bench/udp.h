/// @file
/// A datagram socket on the loopback interface.
#ifndef ZRK4_BENCH_UDP_H
#define ZRK4_BENCH_UDP_H

#include <cstddef>
#include <cstdint>

namespace bench {

class udp_socket {
  public:
    /// @throws std::system_error
    udp_socket();
    ~udp_socket();
    udp_socket(const udp_socket&) = delete;
    udp_socket& operator=(const udp_socket&) = delete;

    /// @return the port that it listens on from now on.
    uint16_t listen_somewhere() const;
    void send_to(uint16_t port, const void* from, size_t bytes) const;
    /// @throws std::runtime_error  a datagram of another length
    void receive(void* to, size_t bytes) const;

  private:
    int fd_;
};

} // namespace bench

#endif
