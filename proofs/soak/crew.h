/// @file
/// The processes of a run: started, stopped, killed, and never lost sight of.
#ifndef ZRK4_SOAK_CREW_H
#define ZRK4_SOAK_CREW_H

#include <array>
#include <cstdint>

#include <sys/types.h>

#include "run.h"

namespace soak {

/// A process that is there now.
struct life {
    pid_t pid = -1;
    int number = 0; ///< 1 for the first of its role
    int64_t began_ns = 0;
    int64_t goes_on_ns = 0; ///< 0: it is not stopped
};

class crew {
  public:
    explicit crew(const context& run) : run_(run) {}
    /// Kills what is left.
    ~crew();
    crew(const crew&) = delete;
    crew& operator=(const crew&) = delete;

    void start(int member);
    /// Kills and reaps it. @return whether it was the kill that ended it.
    bool kill(int member);
    void stop(int member, int ms);
    /// Lets those go on whose time has come; all of them with `all`.
    void let_go_on(bool all);
    /// Notes processes that ended by themselves, which is wrong, and starts them again.
    void look_for_the_dead();
    /// Waits for members `from` to `to` - 1, which were told to leave.
    void dismiss(int from, int to, int patience_ms);

    const life& of(int member) const { return lives_[static_cast<size_t>(member)]; }

  private:
    [[noreturn]] void be(int member, pid_t parent) const;
    life& at(int member) { return lives_[static_cast<size_t>(member)]; }
    void note_wrong_end(int member, int status);

    const context& run_;
    std::array<life, MEMBERS> lives_;
};

} // namespace soak

#endif
