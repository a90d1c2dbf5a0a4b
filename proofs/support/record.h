/// @file
/// The raw record of a run: one line for everything that was done and everything that was found.
#ifndef ZRK4_PROOF_RECORD_H
#define ZRK4_PROOF_RECORD_H

#include <cstdint>
#include <string>

namespace proof {

int64_t monotonic_ns();

/// Lines of "kind key=value ...", appended whole by any process of the run: a killed one leaves no half line.
class record {
  public:
    /// @throws std::system_error
    explicit record(const std::string& path);
    ~record();
    record(const record&) = delete;
    record& operator=(const record&) = delete;

    /// `t` is the time since the run began, in seconds.
    __attribute__((format(printf, 3, 4))) void line(const char* kind, const char* format, ...) const;

  private:
    int fd_;
    int64_t begun_ns_;
};

} // namespace proof

#endif
