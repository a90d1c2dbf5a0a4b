#include "process_life.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>

#include <unistd.h>

namespace zrk4::impl {
namespace {

std::string proc_file(pid_t pid, const char* name) { return "/proc/" + std::to_string(pid) + "/" + name; }

struct process_stat {
    char state = '?';
    long threads = 0;
    unsigned long long start_ticks = 0; ///< since boot
};

// The name in parentheses may hold blanks and parentheses: what follows the last one is counted from there.
std::optional<process_stat> stat_of(pid_t pid)
{
    std::ifstream file(proc_file(pid, "stat"));
    std::string text(std::istreambuf_iterator<char>(file), {});
    const size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) return {};
    std::istringstream fields(text.substr(name_end + 1));
    process_stat seen;
    std::string skipped;
    fields >> seen.state;
    for (int field = 4; field < 20; ++field) fields >> skipped;
    fields >> seen.threads >> skipped >> seen.start_ticks;
    if (!fields) return {};
    return seen;
}

// A thread's id answers to a signal as a process's does.
bool is_thread_of_another(pid_t pid)
{
    std::ifstream file(proc_file(pid, "status"));
    const std::string key = "Tgid:";
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) == 0) return std::atol(line.c_str() + key.size()) != pid;
    }
    return false;
}

int64_t microseconds_of(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

} // namespace

bool is_running(pid_t pid)
{
    if (pid <= 0) return false;
    if (kill(pid, 0) != 0 && errno != EPERM) return false;
    const std::optional<process_stat> seen = stat_of(pid);
    if (!seen) return kill(pid, 0) == 0 || errno == EPERM;
    if (seen->state == 'X') return false;
    // A first thread that has ended shows as a zombie while the others go on.
    if (seen->state == 'Z' && seen->threads <= 1) return false;
    return !is_thread_of_another(pid);
}

char process_state(pid_t pid)
{
    const std::optional<process_stat> seen = stat_of(pid);
    return seen ? seen->state : '?';
}

bool began_after(pid_t pid, time_stamp when)
{
    const std::optional<process_stat> seen = stat_of(pid);
    const long ticks = sysconf(_SC_CLK_TCK);
    if (!seen || ticks <= 0 || !is_running(pid)) return false;
    // The start is told in ticks, rounded down, and the two clocks are read one after the other.
    constexpr int64_t UNSURE = 20'000;
    const int64_t booted = microseconds_of(CLOCK_REALTIME) - microseconds_of(CLOCK_BOOTTIME);
    const int64_t start = booted + static_cast<int64_t>(seen->start_ticks) * 1'000'000 / ticks;
    return start > int64_t{when.timeup} * 1'000'000 + when.timelow + UNSURE;
}

// A System V segment shows in a process's mappings under its key, with its id in the place of an inode.
bool may_have_attached(pid_t pid, int shmid)
{
    std::ifstream file(proc_file(pid, "maps"));
    bool readable = false;
    for (std::string line; std::getline(file, line);) {
        readable = true;
        if (line.find("/SYSV") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string range, rights, offset, device;
        long long inode = -1;
        fields >> range >> rights >> offset >> device >> inode;
        if (inode == shmid) return true;
    }
    return !readable;
}

bool segment_users::can_hold(pid_t pid)
{
    const auto known = known_.find(pid);
    if (known != known_.end()) return known->second;
    const bool answer = is_running(pid) && may_have_attached(pid, shmid_);
    known_.emplace(pid, answer);
    return answer;
}

} // namespace zrk4::impl
