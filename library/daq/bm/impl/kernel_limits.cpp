#include "kernel_limits.h"

#include <algorithm>
#include <limits>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/sysinfo.h>

#include "C_shm_int.h"
#include "text_later.h"

namespace zrk4::impl {
namespace {

constexpr int64_t MOST = std::numeric_limits<int64_t>::max();

struct kernel_limits {
    int64_t sems_per_set = 0;
    int64_t sems_left = 0;
    int64_t sets_left = 0;
    int64_t segment_bytes = 0;
    int64_t segments_left = 0;
    int64_t memory_bytes = 0;
};

kernel_limits limits_now()
{
    kernel_limits now;
    seminfo semaphores{};
    seminfo semaphores_used{};
    semun argument{};
    argument.buf = reinterpret_cast<semid_ds*>(&semaphores);
    semctl(0, 0, IPC_INFO, argument);
    argument.buf = reinterpret_cast<semid_ds*>(&semaphores_used);
    semctl(0, 0, SEM_INFO, argument);
    now.sems_per_set = semaphores.semmsl;
    now.sems_left = semaphores.semmns - semaphores_used.semaem;
    now.sets_left = semaphores.semmni - semaphores_used.semusz;

    shminfo segments{};
    shm_info segments_used{};
    shmctl(0, IPC_INFO, reinterpret_cast<shmid_ds*>(&segments));
    shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&segments_used));
    // "As large as you like" is a number above the largest signed one.
    now.segment_bytes = static_cast<int64_t>(std::min<uint64_t>(segments.shmmax, MOST));
    now.segments_left = static_cast<int64_t>(segments.shmmni) - segments_used.used_ids;

    struct sysinfo host {};
    sysinfo(&host);
    now.memory_bytes = static_cast<int64_t>((host.totalram + host.totalswap) * host.mem_unit);
    return now;
}

// In 128 bits: limits that are set far too high must not wrap into small ones.
int64_t bytes_of(int64_t count, int64_t length)
{
    const __int128 head = sizeof(C_shm_global);
    const __int128 bytes = head + static_cast<__int128>(count) * (length + int64_t{sizeof(C_shm_buf)});
    return static_cast<int64_t>(std::min<__int128>(bytes, MOST));
}

} // namespace

void explain_limits(const char* name, int64_t count, int64_t length, const char* setters)
{
    if (count < 0 || length < 0) return; // no limit of the kernel's
    const kernel_limits limits = limits_now();
    const int64_t bytes = bytes_of(count, length);
    const int64_t semaphores = gbl_nsems + count;
    const auto met = [&](const char* what, int64_t wanted, int64_t limit) {
        say_error("%s: %s: %ld wanted, %ld possible; reduce with %s\n", name, what, static_cast<long>(wanted),
                  static_cast<long>(limit), setters);
    };
    if (bytes - length > INT32_MAX) met("bytes in one partition (32-bit offsets)", bytes, INT32_MAX);
    if (bytes > limits.segment_bytes) met("bytes in one segment (kernel.shmmax)", bytes, limits.segment_bytes);
    if (bytes > limits.memory_bytes) met("bytes of memory and swap", bytes, limits.memory_bytes);
    if (semaphores > limits.sems_per_set)
        met("semaphores in one set (first value of kernel.sem)", semaphores, limits.sems_per_set);
    else if (semaphores > limits.sems_left)
        met("semaphores left (second value of kernel.sem)", semaphores, limits.sems_left);
    if (limits.sets_left < 1) met("semaphore sets left (fourth value of kernel.sem)", 1, limits.sets_left);
    if (limits.segments_left < 1) met("segments left (kernel.shmmni)", 1, limits.segments_left);
}

} // namespace zrk4::impl
