#include "model/kernel_plan.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace bm {
namespace {

constexpr std::array<int64_t, 4> STOCK_SEM{32'000, 1'024'000'000, 500, 32'000};

/// The four values of kernel.sem with every one high enough; they can only be set together.
std::string sem_line(const kernel_needs& needs, const kernel_settings& now, int64_t used_sets, int64_t used_sems)
{
    std::array<int64_t, 4> all = now.sem.value_or(STOCK_SEM);
    all[SEMMSL] = std::max(all[SEMMSL], needs.semaphores_per_set);
    all[SEMMNS] = std::max(all[SEMMNS], used_sems + needs.semaphores);
    all[SEMMNI] = std::max(all[SEMMNI], used_sets + needs.sets);
    return fmt::format("kernel.sem = {} {} {} {}", all[SEMMSL], all[SEMMNS], all[SEMOPM], all[SEMMNI]);
}

std::optional<int64_t> sem_value(const kernel_settings& now, sem_setting which)
{
    return now.sem ? std::optional((*now.sem)[which]) : std::nullopt;
}

kernel_demand simple(const std::string& name, int64_t needed, std::optional<int64_t> found, const std::string& why)
{
    return {name, needed, found, why, fmt::format("{} = {}", name, needed)};
}

int64_t pages_of(int64_t bytes) { return (bytes + page_bytes() - 1) / page_bytes(); }

} // namespace

std::vector<kernel_demand> demands(const kernel_needs& needs, const kernel_settings& now, bool already_made)
{
    const auto beside = [&](int64_t used, int64_t ours) { return already_made ? std::max(used, ours) : used + ours; };
    const int64_t sets = beside(now.sets_used, needs.sets) - needs.sets;
    const int64_t sems = beside(now.semaphores_used, needs.semaphores) - needs.semaphores;
    const std::string sem = sem_line(needs, now, sets, sems);
    return {
        {"kernel.sem (1st value)", needs.semaphores_per_set, sem_value(now, SEMMSL),
         "a slot partition has a semaphore for each slot, all in one set", sem},
        {"kernel.sem (2nd value)", sems + needs.semaphores, sem_value(now, SEMMNS), "semaphores of all sets together",
         sem},
        {"kernel.sem (4th value)", sets + needs.sets, sem_value(now, SEMMNI), "every partition has a set", sem},
        simple("kernel.shmmni", beside(now.segments_used, needs.segments), now.shmmni, "every partition is a segment"),
        simple("kernel.shmmax", needs.largest_segment, now.shmmax, "a partition lies in one segment"),
        simple("kernel.shmall", pages_of(beside(now.bytes_used, needs.bytes)), now.shmall,
               "pages of all segments together"),
        simple("net.core.rmem_max", needs.receive_buffer, now.rmem_max,
               "a reader that falls behind loses the notifications that its socket has no room for"),
    };
}

} // namespace bm
