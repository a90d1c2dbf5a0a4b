#include "host/named_partition.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"

namespace bm {
namespace {

bool has_name(const read_only_segment& mapped, const std::string& name)
{
    C_shm_global control{};
    return mapped && mapped.copy(0, control) &&
           std::string_view(control.name, strnlen(control.name, SHM_NAME_SIZE)) == name;
}

failure none_of_this_name(const std::string& name, size_t seen, size_t closed)
{
    failure problem(exit_status::not_found, fmt::format("no partition has the name \"{}\"", printable(name)));
    problem.seen(closed == 0 ? fmt::format("{} segments at the keys of partitions", seen)
                             : fmt::format("{} segments at the keys of partitions, {} of them closed to this user",
                                           seen, closed));
    problem.needed("a master that has made it, in this IPC namespace").help("bm ls");
    return problem;
}

} // namespace

named_partition find_partition(const std::string& name)
{
    size_t closed = 0;
    const std::vector<segment> all = segments_of_partitions();
    for (const segment& each : all) {
        auto mapped = std::make_unique<read_only_segment>(each.id);
        if (mapped->error() == EACCES) ++closed;
        if (!has_name(*mapped, name)) continue;
        named_partition found{look_at(each, *mapped), std::move(mapped)};
        if (found.seen.state != partition_state::sound) {
            throw failure(exit_status::failed, fmt::format("partition \"{}\" cannot be read: {}", printable(name),
                                                           word_of(found.seen.state)))
                .seen(found.seen.why)
                .help("bm ls");
        }
        return found;
    }
    throw none_of_this_name(name, all.size(), closed);
}

} // namespace bm
