#include "process_life.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace zrk4::impl {
namespace {

std::string proc_file(pid_t pid, const char* name) { return "/proc/" + std::to_string(pid) + "/" + name; }

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

// A process with a name of 15 bytes needs at most some 400.
std::string whole_stat(pid_t pid)
{
    char text[1024];
    const int fd = open(proc_file(pid, "stat").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "";
    const ssize_t got = read(fd, text, sizeof text);
    close(fd);
    return {text, static_cast<size_t>(got < 0 ? 0 : got)};
}

// Field `number` of a text of numbers with single blanks between them, counted from 0.
unsigned long long number_at(std::string_view text, int number)
{
    for (; number > 0; --number) {
        const size_t blank = text.find(' ');
        if (blank == std::string_view::npos) return 0;
        text.remove_prefix(blank + 1);
    }
    unsigned long long value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

} // namespace

// The name in parentheses may hold blanks and parentheses: what follows the last one is counted from there.
std::optional<process_stat> stat_of(pid_t pid)
{
    constexpr int STATE = 3, THREADS = 20, START = 22; // as proc(5) counts them
    const std::string text = whole_stat(pid);
    const size_t name = text.find('(');
    const size_t name_end = text.rfind(')');
    if (name_end == std::string::npos || name >= name_end || name_end + 3 > text.size()) return {};
    const std::string_view fields = std::string_view(text).substr(name_end + 2);
    return process_stat{text.substr(name + 1, name_end - name - 1), fields.front(),
                        static_cast<long>(number_at(fields, THREADS - STATE)), number_at(fields, START - STATE)};
}

int64_t start_of(const process_stat& process)
{
    const long ticks = sysconf(_SC_CLK_TCK);
    const int64_t booted = microseconds_of(CLOCK_REALTIME) - microseconds_of(CLOCK_BOOTTIME);
    return booted + static_cast<int64_t>(process.start_ticks) * 1'000'000 / (ticks > 0 ? ticks : 100);
}

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
    if (!seen || !is_running(pid)) return false;
    // The two clocks are read one after the other.
    constexpr int64_t UNSURE = 20'000;
    const int64_t start = start_of(*seen);
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
