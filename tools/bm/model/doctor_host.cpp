// The lines about the host itself.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/timex.h>

#include "cli/output.h"
#include "host/host_files.h"
#include "model/doctor.h"

namespace bm {
namespace {

std::string bytes_text(int64_t bytes) { return size_text(static_cast<uint64_t>(std::max<int64_t>(bytes, 0))); }

doctor_line kernel_line(const kernel_demand& each)
{
    const bool buffer = each.name == "net.core.rmem_max";
    const fitness low = buffer ? fitness::warning : fitness::bad;
    return {each.name,
            each.met()   ? fitness::good
            : each.found ? low
                         : fitness::unknown,
            each.found ? fmt::format("{}", *each.found) : "not readable",
            fmt::format("{}", each.needed),
            each.why,
            each.met() ? "" : fmt::format("sysctl -w {}", fmt::format("'{}'", each.line))};
}

doctor_line memory_line(const kernel_needs& needs, const kernel_settings& now, bool already_made)
{
    doctor_line line{"memory",
                     fitness::unknown,
                     "not readable",
                     bytes_text(already_made ? 0 : needs.bytes),
                     "a partition that is in use lies in memory or swap",
                     ""};
    if (already_made) line.needed = fmt::format("{} are made already", bytes_text(needs.bytes));
    if (!now.memory_available) return line;
    line.found = bytes_text(*now.memory_available) + " available";
    line.how = already_made || *now.memory_available >= needs.bytes ? fitness::good : fitness::bad;
    if (line.how == fitness::bad) line.mend = "bm size --reader-time ... --block-size ...";
    return line;
}

doctor_line kept_line(const kernel_settings& now)
{
    doctor_line line{"kernel.shm_rmid_forced",
                     fitness::unknown,
                     "not readable",
                     "0",
                     "otherwise a partition goes with the last process that has it attached",
                     ""};
    if (!now.shm_rmid_forced) return line;
    line.found = fmt::format("{}", *now.shm_rmid_forced);
    line.how = *now.shm_rmid_forced == 0 ? fitness::good : fitness::bad;
    if (line.how == fitness::bad) line.mend = "sysctl -w kernel.shm_rmid_forced=0";
    return line;
}

bool is_yes(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text == "yes" || text == "true" || text == "on" || text == "1";
}

/// As logind reads them: the file, then the pieces in the order of their names, whatever their directory.
std::optional<bool> remove_ipc_of_host()
{
    std::optional<bool> last;
    const auto take = [&](const std::string& path) {
        if (const auto text = host_file(path)) {
            if (const auto value = remove_ipc_in(*text)) last = value;
        }
    };
    for (const char* root : {"/usr/lib", "/run", "/etc"}) take(fmt::format("{}/systemd/logind.conf", root));
    std::vector<std::pair<std::string, std::string>> pieces;
    for (const char* root : {"/usr/lib", "/run", "/etc"}) {
        const std::string place = fmt::format("{}/systemd/logind.conf.d", root);
        for (const std::string& name : host_directory(place))
            pieces.emplace_back(name, fmt::format("{}/{}", place, name));
    }
    std::stable_sort(pieces.begin(), pieces.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [name, path] : pieces) {
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".conf") == 0) take(path);
    }
    return last;
}

bool has_logind()
{
    return std::filesystem::exists(host_path("/run/systemd/system")) ||
           std::filesystem::exists(host_path("/etc/systemd/logind.conf"));
}

struct clock_state {
    bool synchronised = false;
    int64_t worst_us = 0;
};

/// Of a staged host from a file with these two numbers.
std::optional<clock_state> clock_now()
{
    if (std::getenv("BM_HOST_ROOT") != nullptr) {
        const auto text = host_file("/adjtimex");
        if (!text) return {};
        std::istringstream in(*text);
        clock_state staged;
        in >> staged.synchronised >> staged.worst_us;
        return staged;
    }
    timex seen{};
    const int state = adjtimex(&seen);
    if (state < 0) return {};
    return clock_state{state != TIME_ERROR && (seen.status & STA_UNSYNC) == 0, seen.maxerror};
}

} // namespace

const char* word_of(fitness how)
{
    switch (how) {
    case fitness::good:
        return "good";
    case fitness::warning:
        return "warning";
    case fitness::bad:
        return "bad";
    default:
        return "unknown";
    }
}

doctor_lines kernel_lines(const sizing& plan, const kernel_settings& now, bool already_made)
{
    doctor_lines lines;
    for (const kernel_demand& each : demands(plan.needs, now, already_made)) lines.push_back(kernel_line(each));
    lines.push_back(kept_line(now));
    lines.push_back(memory_line(plan.needs, now, already_made));
    doctor_line size{"2 GiB per partition",
                     fitness::good,
                     bytes_text(plan.needs.largest_segment) + " the largest",
                     "the last buffer begins below 2 GiB",
                     "a buffer's place in its segment is a number of 32 bits",
                     ""};
    for (const impossibility& each : plan.impossible) {
        lines.push_back(
            {"size of the exchange", fitness::bad, each.seen, each.needed, each.what, "bm size: " + each.instead});
        size.how = fitness::bad;
    }
    if (plan.possible()) lines.push_back(size);
    return lines;
}

std::optional<bool> remove_ipc_in(const std::string& text)
{
    std::optional<bool> last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line.erase(std::remove_if(line.begin(), line.end(), [](unsigned char c) { return std::isspace(c) != 0; }),
                   line.end());
        if (line.compare(0, 10, "RemoveIPC=") == 0) last = is_yes(line.substr(10));
    }
    return last;
}

doctor_line logind_line(unsigned uid)
{
    constexpr unsigned FIRST_ORDINARY = 1000;
    doctor_line line{"RemoveIPC",
                     fitness::good,
                     "no logind here",
                     "no, or a system user",
                     "logind removes an ordinary user's segments and semaphores when his last session ends",
                     ""};
    if (!has_logind()) return line;
    const bool removes = remove_ipc_of_host().value_or(true);
    line.found = fmt::format("{}, for user {}", removes ? "yes" : "no", user_text(uid));
    if (!removes || uid < FIRST_ORDINARY) return line;
    line.how = fitness::bad;
    line.mend = "mkdir -p /etc/systemd/logind.conf.d && printf '[Login]\\nRemoveIPC=no\\n' > "
                "/etc/systemd/logind.conf.d/60-bm.conf && systemctl restart systemd-logind";
    return line;
}

doctor_line localhost_line()
{
    doctor_line line{"\"localhost\"",
                     fitness::bad,
                     "",
                     "127.0.0.1",
                     "notifications of events are sent to it",
                     "add to /etc/hosts: 127.0.0.1 localhost"};
    addrinfo wish{};
    wish.ai_family = AF_INET;
    wish.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo("localhost", nullptr, &wish, &found); error != 0) {
        line.found = gai_strerror(error);
        return line;
    }
    char text[INET_ADDRSTRLEN] = "";
    sockaddr_in first{};
    std::memcpy(&first, found->ai_addr, sizeof first);
    freeaddrinfo(found);
    line.found = inet_ntop(AF_INET, &first.sin_addr, text, sizeof text);
    if (ntohl(first.sin_addr.s_addr) >> 24U != 127) return line;
    line.how = fitness::good;
    line.mend.clear();
    return line;
}

doctor_line clock_line(unsigned long time_mask_us)
{
    const auto most = static_cast<int64_t>(time_mask_us / 2);
    doctor_line line{"clock",
                     fitness::unknown,
                     "not readable",
                     fmt::format("synchronised within {} us", most),
                     fmt::format("keys of two sources may be {} us apart and are one event", time_mask_us),
                     ""};
    const std::optional<clock_state> now = clock_now();
    if (!now) return line;
    line.found = now->synchronised ? fmt::format("synchronised within {} us", now->worst_us) : "not synchronised";
    if (now->synchronised && now->worst_us <= most) {
        line.how = fitness::good;
        return line;
    }
    line.how = fitness::warning;
    line.mend = now->synchronised ? "a larger time mask in all clients, or --mode evid" : "timedatectl set-ntp true";
    return line;
}

} // namespace bm
