// The lines about what lies in the partitions, and who has them.
#include <algorithm>
#include <optional>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <unistd.h>

#include "BM_int.h"
#include "cli/output.h"
#include "host/attached.h"
#include "host/client_slots.h"
#include "host/host_files.h"
#include "host/udp_sockets.h"
#include "model/doctor.h"

namespace bm {
namespace {

constexpr int KEYS = SHM_KEY_LAST - SHM_KEY_FIRST + 1;

doctor_line keys_line(const std::vector<partition>& all, const kernel_needs& needs, bool already_made)
{
    const auto left = KEYS - static_cast<int64_t>(all.size());
    const int64_t needed = already_made ? 0 : needs.segments;
    doctor_line line{"free keys",
                     fitness::good,
                     fmt::format("{} of {}", left, KEYS),
                     fmt::format("{}", needed),
                     "every partition takes one of the keys 32 to 1055",
                     ""};
    if (left < needed) {
        line.how = fitness::bad;
        line.mend = "bm ls; bm rm NAME";
    }
    return line;
}

/// What may not be attached ends the library's search.
doctor_line strangers_line(const std::vector<partition>& all)
{
    doctor_line line{"strangers at these keys",
                     fitness::good,
                     "none",
                     "none",
                     "one that may not be attached hides every partition behind it",
                     ""};
    for (const partition& each : all) {
        const bool closed = each.state == partition_state::unreadable;
        if (!closed && each.state != partition_state::unnamed) continue;
        if (line.how == fitness::bad) break;
        line.how = closed ? fitness::bad : fitness::warning;
        line.found =
            fmt::format("segment {} at key {} of user {}", each.where.id, each.where.key, user_text(each.where.uid));
        line.mend = closed ? fmt::format("ipcrm -m {}", each.where.id) : "bm check; bm repair";
    }
    return line;
}

doctor_line versions_line(const std::vector<partition>& all)
{
    doctor_line line{"layout version",
                     fitness::good,
                     fmt::format("{}", SHM_LAYOUT_VERSION),
                     fmt::format("{}", SHM_LAYOUT_VERSION),
                     "partitions of another version are not joined",
                     ""};
    for (const partition& each : all) {
        if (each.state != partition_state::other_version) continue;
        line.how = fitness::bad;
        line.found = fmt::format("{}: {}", printable(each.name), each.why);
        line.mend = fmt::format("bm rm {}", printable(each.name));
    }
    return line;
}

const partition* named(const std::vector<partition>& all, const std::string& name)
{
    for (const partition& each : all) {
        if (each.name == name && each.state == partition_state::sound) return &each;
    }
    return nullptr;
}

doctor_line users_line(const partition& clients, const std::vector<attached_process>& users)
{
    doctor_line line{"one user",
                     fitness::good,
                     "",
                     "all clients run as one user",
                     "whether a client lives is asked with kill(pid, 0): a refusal counts as its death",
                     ""};
    std::set<uid_t> seen;
    for (const attached_process& each : users) {
        seen.insert(each.uid);
        if (each.uid != users.front().uid)
            line.mend = fmt::format("end process {} {}, and start it as user {}", each.pid, printable(each.command),
                                    user_text(users.front().uid));
    }
    for (const uid_t uid : seen) line.found += (line.found.empty() ? "" : ", ") + user_text(uid);
    if (seen.size() > 1) {
        line.how = fitness::bad;
        return line;
    }
    const long unseen = clients.where.attached - static_cast<long>(users.size());
    if (users.empty()) line.found = "nobody";
    if (unseen > 0) {
        line.how = fitness::unknown;
        line.found += fmt::format(", and {} that cannot be looked into", unseen);
        line.mend = "sudo bm doctor";
    }
    return line;
}

using readers = std::vector<client>;

readers readers_in(const partition& clients)
{
    const client_slots slots(clients, read_only_segment(clients.where.id), depth::heads);
    readers all = slots.all();
    std::erase_if(all, [](const client& each) { return !each.reads(); });
    return all;
}

int library_threads(pid_t pid)
{
    int count = 0;
    const std::string tasks = fmt::format("/proc/{}/task", pid);
    for (const std::string& task : host_directory(tasks)) {
        if (task == std::to_string(pid)) continue;
        const std::string text = host_file(fmt::format("{}/{}/status", tasks, task)).value_or("");
        const size_t at = text.find("SigBlk:");
        if (at == std::string::npos) continue;
        std::istringstream in(text.substr(at + 7));
        uint64_t blocked = 0;
        in >> std::hex >> blocked;
        count += is_library_thread(blocked) ? 1 : 0;
    }
    return count;
}

/// Nothing in the partitions names the master: it is told by its thread. A reader has one like it.
doctor_line masters_line(const std::vector<attached_process>& users, const readers& all, bool all_seen)
{
    doctor_line line{"one master",
                     fitness::good,
                     "",
                     "exactly one",
                     "its monitor takes back what dead clients hold; two of them get into each other's way",
                     ""};
    int masters = 0;
    for (const attached_process& each : users) {
        const bool reads =
            std::any_of(all.begin(), all.end(), [&](const client& reader) { return reader.pid == each.pid; });
        if (library_threads(each.pid) <= (reads ? 1 : 0)) continue;
        ++masters;
        line.found += fmt::format("{}{} {}", line.found.empty() ? "" : ", ", each.pid, printable(each.command));
    }
    if (masters == 1) return line;
    if (masters == 0) line.found = all_seen ? "none" : "none among those that can be looked into";
    line.how = masters == 0 && !all_seen ? fitness::unknown : fitness::bad;
    line.mend = masters > 1 ? "end all but one" : all_seen ? "bm master" : "sudo bm doctor";
    return line;
}

doctor_line drops_line(const readers& all)
{
    doctor_line line{"lost notifications",
                     fitness::good,
                     fmt::format("0, of {} readers", all.size()),
                     "0",
                     "an event whose notification is lost never reaches its reader",
                     ""};
    const std::optional<udp_sockets> sockets = udp_sockets_now();
    if (!sockets) {
        line.how = fitness::unknown;
        line.found = "the kernel's table of sockets cannot be read";
        return line;
    }
    std::set<int> ports;
    uint64_t lost = 0;
    for (const client& each : all) {
        const auto at = sockets->find(each.port);
        if (at == sockets->end() || at->second.drops == 0 || !ports.insert(each.port).second) continue;
        lost += at->second.drops;
        line.mend = fmt::format("sysctl -w net.core.rmem_max=8388608; then start process {} again", each.pid);
    }
    if (lost == 0) return line;
    line.how = fitness::warning;
    line.found = fmt::format("{}, of {} readers", lost, ports.size());
    return line;
}

} // namespace

bool is_library_thread(uint64_t blocked)
{
    constexpr uint64_t OURS = uint64_t{1} << 1 | uint64_t{1} << 9 | uint64_t{1} << 11 | uint64_t{1} << 13 |
                              uint64_t{1} << 14 | uint64_t{1} << 28; // INT, USR1, USR2, ALRM, TERM, IO
    constexpr uint64_t ABORT = uint64_t{1} << 5;                     // which wakes it
    return (blocked & OURS) == OURS && (blocked & ABORT) == 0;
}

doctor_lines partition_lines(const std::vector<partition>& all, const kernel_needs& needs, bool already_made)
{
    return {keys_line(all, needs, already_made), strangers_line(all), versions_line(all)};
}

doctor_lines exchange_lines(const std::vector<partition>& all, const common_options& common)
{
    const partition* clients = named(all, common.clients);
    const partition* events = named(all, common.events);
    if (clients == nullptr || events == nullptr) return {};
    const std::vector<attached_process> users = attached_to({clients->where.id});
    const bool all_seen = clients->where.attached <= static_cast<long>(users.size());
    const readers all_readers = readers_in(*clients);
    return {users_line(*clients, users), masters_line(users, all_readers, all_seen), drops_line(all_readers)};
}

} // namespace bm
