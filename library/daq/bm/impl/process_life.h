/// @file
/// Whether a process that a shared record names can still be the one that wrote it.
#ifndef ZRK4_IMPL_PROCESS_LIFE_H
#define ZRK4_IMPL_PROCESS_LIFE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <sys/types.h>

#include "event.h"

namespace zrk4::impl {

/// What the kernel shows of a process.
struct process_stat {
    std::string command;
    char state = '?'; ///< 'R', 'S', 'T', 'Z', ...
    long threads = 0;
    unsigned long long start_ticks = 0; ///< since boot
};
/// Empty when there is no such process, or it cannot be seen.
std::optional<process_stat> stat_of(pid_t pid);
/// When it began, in microseconds of the wall clock as it is set now; told in ticks, rounded down.
int64_t start_of(const process_stat& process);

/// Whether process `pid` runs. A zombie does not, nor is an id alive that is only a thread's by now. What cannot be seen
/// (another user's process behind a closed /proc) counts as alive.
bool is_running(pid_t pid);

/// Letter of the process's state as the kernel shows it ('R', 'S', 'T', 'Z', ...), '?' when it cannot be seen.
char process_state(pid_t pid);

/// Whether `pid` runs and surely began after `when`, a wall-clock time: then it is another process under a reused id.
/// The clock must not have been set meanwhile; a clock that was set forward makes old processes look young.
bool began_after(pid_t pid, time_stamp when);

/// Whether `pid` may have segment `shmid` attached; false only when its mappings can be read and lack it.
bool may_have_attached(pid_t pid, int shmid);

/// Remembers the answers for the length of one look at a partition.
class segment_users {
  public:
    explicit segment_users(int shmid) : shmid_(shmid) {}
    /// Whether `pid` lives and can hold a buffer of the segment.
    bool can_hold(pid_t pid);

  private:
    int shmid_;
    std::map<pid_t, bool> known_;
};

} // namespace zrk4::impl

#endif
