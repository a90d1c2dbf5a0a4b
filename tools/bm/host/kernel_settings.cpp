#include "host/kernel_settings.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include <unistd.h>

#include "host/host_files.h"

namespace bm {
namespace {

// "As large as you like" is a number above the largest signed one.
std::optional<int64_t> number_in(const std::string& path)
{
    const std::optional<std::string> text = host_file(path);
    if (!text) return {};
    std::istringstream in(*text);
    uint64_t value = 0;
    if (!(in >> value)) return {};
    return static_cast<int64_t>(std::min<uint64_t>(value, std::numeric_limits<int64_t>::max()));
}

std::optional<std::array<int64_t, 4>> sem_settings()
{
    const std::optional<std::string> text = host_file("/proc/sys/kernel/sem");
    if (!text) return {};
    std::istringstream in(*text);
    std::array<int64_t, 4> all{};
    for (int64_t& each : all) {
        if (!(in >> each)) return {};
    }
    return all;
}

std::optional<int64_t> memory_available()
{
    const std::optional<std::string> text = host_file("/proc/meminfo");
    if (!text) return {};
    const std::optional<int64_t> free = number_behind(*text, "MemAvailable:");
    if (!free) return {};
    return (*free + number_behind(*text, "SwapFree:").value_or(0)) * 1024;
}

/// Calls `row` with the numbers of each line of a list of the kernel's.
template <class Row> void for_each_row(const std::string& path, Row row)
{
    const std::optional<std::string> text = host_file(path);
    if (!text) return;
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::array<int64_t, 4> first{};
        if (fields >> first[0] >> first[1] >> first[2] >> first[3]) row(first);
    }
}

} // namespace

kernel_settings kernel_settings_now()
{
    kernel_settings now;
    now.sem = sem_settings();
    now.shmmax = number_in("/proc/sys/kernel/shmmax");
    now.shmall = number_in("/proc/sys/kernel/shmall");
    now.shmmni = number_in("/proc/sys/kernel/shmmni");
    now.shm_rmid_forced = number_in("/proc/sys/kernel/shm_rmid_forced");
    now.rmem_max = number_in("/proc/sys/net/core/rmem_max");
    now.rmem_default = number_in("/proc/sys/net/core/rmem_default");
    now.memory_available = memory_available();
    for_each_row("/proc/sysvipc/shm", [&](const auto& row) {
        ++now.segments_used;
        now.bytes_used += row[3];
    });
    for_each_row("/proc/sysvipc/sem", [&](const auto& row) {
        ++now.sets_used;
        now.semaphores_used += row[3];
    });
    return now;
}

int64_t page_bytes() { return sysconf(_SC_PAGESIZE); }

std::optional<int64_t> number_behind(const std::string& text, const std::string& key)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size(), key) != 0) continue;
        std::istringstream rest(line.substr(key.size()));
        int64_t value = 0;
        if (rest >> value) return value;
    }
    return {};
}

} // namespace bm
