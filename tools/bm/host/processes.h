/// @file
/// The processes that slots and buffers name.
#ifndef ZRK4_TOOL_PROCESSES_H
#define ZRK4_TOOL_PROCESSES_H

#include <cstdint>
#include <string>
#include <unordered_map>

#include <sys/types.h>

namespace bm {

enum class life {
    alive,
    stopped, ///< by a signal or a debugger: it holds what it holds and does nothing
    zombie,  ///< ended, not yet reaped by its parent: the monitor takes it for alive
    dead,
    other_user, ///< alive, of a user whose processes the exchange's owner may not signal: the monitor takes it for dead
    younger     ///< alive, and began after what it is said to own: another process under a reused id
};
const char* word_of(life state);

struct process {
    pid_t pid = 0;
    life state = life::dead;
    std::string command; ///< "" when it cannot be seen
    uid_t uid = 0;
    int64_t began = 0; ///< microseconds since the epoch, 0 when it cannot be seen

    bool gone() const { return state == life::dead || state == life::younger; }
    /// "1234 reader", with its state where it is not simply alive.
    std::string text() const;
};

/// Asks the kernel once for every process.
class processes {
  public:
    /// @param owner  user of the partitions, as whom the exchange runs
    explicit processes(uid_t owner) : owner_(owner) {}

    const process& of(pid_t pid);
    /// Alive or dead, as kill(pid, 0) answers; nothing else is looked for.
    const process& asked(pid_t pid);
    /// The same, `younger` where it began after `when` (microseconds since the epoch, 0: not known).
    process owner_of(pid_t pid, int64_t when);

  private:
    static process ask(pid_t pid);
    process look(pid_t pid) const;

    uid_t owner_;
    std::unordered_map<pid_t, process> known_, asked_;
};

} // namespace bm

#endif
