/// @file
/// The kernel's limits on what an exchange is made of, and what is left of them.
#ifndef ZRK4_TOOL_KERNEL_SETTINGS_H
#define ZRK4_TOOL_KERNEL_SETTINGS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace bm {

/// Members of kernel.sem, in its order.
enum sem_setting { SEMMSL, SEMMNS, SEMOPM, SEMMNI };

/// As read; empty: it could not be.
struct kernel_settings {
    std::optional<std::array<int64_t, 4>> sem;
    std::optional<int64_t> shmmax, shmall, shmmni, shm_rmid_forced; ///< shmall in pages
    std::optional<int64_t> rmem_max, rmem_default;
    std::optional<int64_t> memory_available; ///< bytes, swap included

    int64_t sets_used = 0, semaphores_used = 0, segments_used = 0, bytes_used = 0; ///< in this IPC namespace
};

kernel_settings kernel_settings_now();

/// Size of a page in bytes.
int64_t page_bytes();

/// The number behind `key` in a text of lines "key: number kB"; empty when there is none.
std::optional<int64_t> number_behind(const std::string& text, const std::string& key);

} // namespace bm

#endif
