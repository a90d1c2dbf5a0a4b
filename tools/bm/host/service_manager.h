/// @file
/// What a service manager is told over the socket that it names in NOTIFY_SOCKET.
#ifndef ZRK4_TOOL_SERVICE_MANAGER_H
#define ZRK4_TOOL_SERVICE_MANAGER_H

#include <chrono>
#include <string>

namespace bm {

/// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID once. Without a manager nothing is sent and nothing is asked.
class service_manager {
  public:
    service_manager();

    bool present() const { return !socket_.empty(); }
    /// Lines as "READY=1\nSTATUS=...". @return false when a manager is there and could not be told.
    bool tell(const std::string& lines) const;
    /// Time after which it must hear WATCHDOG=1 again; 0: it does not ask.
    std::chrono::microseconds watchdog() const { return watchdog_; }

  private:
    std::string socket_;
    std::chrono::microseconds watchdog_{0};
};

} // namespace bm

#endif
