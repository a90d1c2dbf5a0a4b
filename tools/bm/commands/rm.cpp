// bm rm: removes a partition from the system.
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "host/attached.h"
#include "host/partition.h"

namespace bm {
namespace {

struct rm_options {
    std::string name;
    int force = 0;
};

/// The first one of this name, as the library finds it.
partition named(const std::string& name)
{
    for (partition& each : partitions_of_host()) {
        if (each.state == partition_state::unreadable) {
            throw failure(exit_status::failed, "a segment that may not be read may be the one that is meant")
                .seen(fmt::format("segment {} at key {} of user {}", each.where.id, each.where.key,
                                  user_text(each.where.uid)))
                .help("sudo bm rm");
        }
        if (each.name == name && each.state != partition_state::gone) return std::move(each);
    }
    throw failure(exit_status::not_found, fmt::format("no partition has the name \"{}\"", printable(name)))
        .help("bm ls");
}

std::string listed(const std::vector<attached_process>& users)
{
    std::string text;
    for (const attached_process& each : users)
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", each.pid, printable(each.command));
    return text;
}

/// Whoever has it attached lives: the kernel detaches a process that ends.
void refuse_while_used(const partition& part, const rm_options& options)
{
    if (part.where.attached == 0 || options.force >= 2) return;
    const std::vector<attached_process> users = attached_to({part.where.id});
    const auto unseen = part.where.attached - static_cast<long>(users.size());
    const std::string others =
        unseen > 0 ? fmt::format("{}{} more attachments that cannot be looked into", users.empty() ? "" : ", ", unseen)
                   : "";
    throw failure(exit_status::failed, fmt::format("live processes use \"{}\"", printable(part.name)))
        .seen(listed(users) + others)
        .needed("nobody; what they still do with it fails once it is gone, and events in flight are lost")
        .help(fmt::format("{}: bm rm --force --force {}",
                          options.force == 0 ? "end them, or tell it twice" : "tell it a second time",
                          printable(part.name)));
}

/// The set that it names, where there is one that can be its own: a number in damaged memory may be anybody's.
bool remove_set(const partition& part)
{
    if (part.state != partition_state::sound) return false;
    const long needed = gbl_nsems + (part.has_locks() ? part.buffers() : 0);
    return part.semaphores == needed && semctl(part.control().gbl_semid, 0, IPC_RMID) == 0;
}

exit_status rm(const common_options& common, const rm_options& options)
{
    const partition part = named(options.name);
    refuse_while_used(part, options);
    const bool set = remove_set(part);
    if (shmctl(part.where.id, IPC_RMID, nullptr) != 0) {
        throw failure(exit_status::failed, fmt::format("\"{}\" cannot be removed", printable(part.name)))
            .seen(fmt::format("it belongs to user {}", user_text(part.where.uid)))
            .needed("its owner, or root")
            .help(fmt::format("sudo bm rm {}", printable(part.name)));
    }
    if (common.json) {
        json done = document("rm");
        done["name"] = part.name;
        done["id"] = part.where.id;
        done["semaphores_removed"] = set;
        print_document(done);
        return exit_status::fine;
    }
    print(fmt::format("removed {}: segment {}{}\n", printable(part.name), part.where.id,
                      set ? fmt::format(" and semaphore set {}", +part.control().gbl_semid)
                          : "; its semaphore set could not be told: bm repair --orphan-sets"));
    if (part.name == common.clients || part.name == common.events) {
        print(fmt::format("slot partitions go together: remove {} as well before the master starts\n",
                          part.name == common.clients ? common.events : common.clients));
    }
    return exit_status::fine;
}

} // namespace

void add_rm(command_line& line)
{
    line.add<rm_options>(
        "rm", "removes a partition",
        [](arguments& app, rm_options& options) {
            app.option("NAME", options.name, "its name").required();
            app.flag("--force", options.force, "given twice: also while live processes use it");
        },
        rm);
}

} // namespace bm
