/// @file
/// Processes of this command, run by this command.
#ifndef ZRK4_TOOL_CREW_H
#define ZRK4_TOOL_CREW_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace bm {

/// This program with other arguments. It dies with us, and is killed and reaped by the destructor.
class crew_member {
  public:
    explicit crew_member(std::vector<std::string> arguments);
    ~crew_member();
    crew_member(crew_member&& other) noexcept;
    crew_member& operator=(crew_member&& other) noexcept;

    pid_t pid() const { return pid_; }
    bool running();
    void send(int signal) const;
    /// Waits for its end. @return its exit status, 128 + n when signal n ended it; -1 when it had to be killed.
    int ended(int patience_ms);
    /// Next line of its standard output, "" when none comes any more or not in time.
    std::string line(int patience_ms);
    /// All lines that are left; after its end.
    std::string rest();

  private:
    bool reap(bool wait);

    pid_t pid_ = -1;
    int out_ = -1;
    int status_ = -1;
    bool reaped_ = true;
    std::string read_;
};

} // namespace bm

#endif
