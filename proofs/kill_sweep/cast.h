/// @file
/// The processes of a point.
#ifndef ZRK4_SWEEP_CAST_H
#define ZRK4_SWEEP_CAST_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

#include "actor.h"

namespace sweep {

/// The point cannot go on: a process crashed or hangs.
struct stuck : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class member {
  public:
    enum class part { none, reader, writer, bystander };

    member(std::string name, const setting& in, uint32_t first, int number, bool show, board& common);
    ~member();
    member(const member&) = delete;
    member& operator=(const member&) = delete;

    const std::string& name() const { return name_; }
    pid_t pid() const { return pid_; }
    int number() const { return number_; }
    /// The thread that is not the main one, 0 when there is none.
    pid_t other_thread() const;
    /// Stops the process where its reader thread waits for a datagram. Stopped a moment earlier it could have a lock in
    /// hand, for which everybody would wait.
    void stop_at_rest();

    /// Without waiting for the answer.
    void tell(order what, int a = 0, bool marked = false);
    reply hear();
    reply ask(order what, int a = 0);
    /// Asks it to end, and waits. @throws stuck when it ends otherwise than well.
    void end();
    /// It was killed, and its tracer has seen its end.
    void is_dead() { pid_ = -1; }
    bool alive() const { return pid_ > 0; }
    /// SIGKILL, and reaps.
    void kill_now();
    /// What it has printed so far.
    std::string output() const;

    part subscribed = part::none;
    int kind = 0;        ///< of a writer: which; of a reader: what it wants
    int since = NEVER;   ///< first event that concerns it
    int64_t slowest = 0; ///< microseconds of its slowest order
    std::string slowest_order;

  private:
    [[noreturn]] void fail(const std::string& what);

    std::string name_;
    int number_;
    pid_t pid_ = -1;
    int line_ = -1;
    int output_ = -1;
    order last_ = order::end;
};

const char* text_of(order what);
/// "signal 9", "exit 0"
std::string text_of_status(int wait_status);

} // namespace sweep

#endif
