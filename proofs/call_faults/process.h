/// @file
/// A role as a program of its own, with or without a failing call.
#ifndef ZRK4_CALL_FAULTS_PROCESS_H
#define ZRK4_CALL_FAULTS_PROCESS_H

#include <map>
#include <string>

#include <sys/types.h>

namespace call_faults {

using environment = std::map<std::string, std::string>;

/// What has become of a process.
struct end_of_process {
    bool hung = false; ///< it did not end and was killed
    int status = 0;    ///< of wait
    bool crashed() const;
    int code() const;
    std::string words() const;
};

class process {
  public:
    /// @param program  path of the role program
    process(const std::string& program, const std::string& role, bool careless, int shared_fd, const std::string& log,
            const environment& extra);
    ~process();
    process(const process&) = delete;
    process& operator=(const process&) = delete;

    void say(char letter) const;
    /// @return false: it ended, or was silent for too long.
    bool hear(char letter, int patience_ms) const;
    /// Waits for its end, which must be near.
    end_of_process ended(int patience_ms);

  private:
    pid_t pid_ = -1;
    int line_ = -1;
};

} // namespace call_faults

#endif
