/// @file
/// The processes of a run and the line on which the conductor and each of them meet.
#ifndef ZRK4_DEMO_PROCESS_H
#define ZRK4_DEMO_PROCESS_H

#include <functional>
#include <string>

#include <sys/types.h>

namespace demo {

/// One end of a two-way line of single letters. The other end's death reads as GONE.
class line_end {
  public:
    static constexpr char GONE = 0, NOTHING = 1;
    static constexpr char READY = 'r', GO = 'g', FINISHED = 'f', LEAVE = 'l';

    explicit line_end(int fd) : fd_(fd) {}
    ~line_end();
    line_end(line_end&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    line_end& operator=(line_end&&) = delete;

    bool say(char letter) const;
    /// @param timeout_ms  -1: without end @return the letter heard, GONE, or NOTHING within the time
    char hear(int timeout_ms = -1) const;
    int fd() const { return fd_; }

  private:
    int fd_;
};

/// Runs in the child; its result is the exit status.
using role = std::function<int(line_end&)>;

/// A child process with its line. Dies with its parent.
class process {
  public:
    /// @throws std::system_error
    process(std::string name, const role& body);
    ~process();
    process(process&& other) noexcept;
    process& operator=(process&&) = delete;

    const std::string& name() const { return name_; }
    const line_end& line() const { return line_; }
    /// Waits for its end, which must be near: kills it after `patience_ms`. @return what was wrong, empty when it ended
    /// well.
    std::string ended(int patience_ms);

  private:
    struct made {
        pid_t pid;
        int fd;
    };
    static made start(const role& body);
    process(std::string name, made what) : name_(std::move(name)), pid_(what.pid), line_(what.fd) {}
    bool heard_it_end(int patience_ms) const;

    std::string name_;
    pid_t pid_;
    line_end line_;
};

} // namespace demo

#endif
