#include "commands/size_emit.h"

#include <set>

#include <fmt/format.h>

namespace bm {
namespace {

constexpr const char* HEAD =
    R"(// The partitions of an exchange, and the master that keeps them until SIGINT, SIGTERM or SIGHUP.
// {} clients, {} blocks per event, {:g} events/s, {:g} s until the last reader is done; {} bytes of shared memory.
// g++ -std=c++20 exchange.cpp -lZRK4bm
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "BM.h"

struct data_partition {{
    const char* name;
    int buffers;
    int bytes; // of each
}};
static const data_partition DATA[] = {{
)";

constexpr const char* SETTINGS = R"(}};

// In every process, before init.
static void configure(BM& bm) {{ bm.set_evid_64bit_mode({}); }}

// In the master, before init.
static void set_sizes(BM& bm)
{{
    bm.set_nclients({});
    bm.set_nblocks({});
    bm.set_rate({});
{}}}
)";

constexpr const char* REST = R"(
// @return true on failure, as the library's operations do
static bool add_data(BM& bm)
{{
    for (const data_partition& part : DATA) {{
        if (bm.add(part.name, part.buffers, part.bytes, false) < 0) return true;
    }}
    return false;
}}

int main()
{{
    sigset_t ends;
    sigemptyset(&ends);
    for (int signal : {{SIGINT, SIGTERM, SIGHUP, SIGPIPE}}) sigaddset(&ends, signal);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // before the first thread, so that sigwait gets them
    setenv("ZRK4_CLI_SHM_NAME", {}, 1);
    setenv("ZRK4_EV_SHM_NAME", {}, 1);
    BM bm;
    configure(bm);
    set_sizes(bm);
    if (bm.set_master(true) || bm.init() || add_data(bm)) return 1;
    std::puts("ready");
    std::fflush(stdout);
    int signal = 0;
    sigwait(&ends, &signal);
    bm.all_clean_up(); // the master leaves last, and removes the partitions
    return 0;
}}
)";

/// As a string literal, whatever its characters are.
std::string quoted(const std::string& text)
{
    std::string literal = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\' || byte < 0x20 || byte >= 0x7f) {
            literal += fmt::format("\\{:03o}", byte);
        } else {
            literal += c;
        }
    }
    return literal + "\"";
}

} // namespace

std::string program_of(const sizing& plan)
{
    const load& wanted = plan.wanted;
    std::string text = fmt::format(HEAD, wanted.clients, wanted.blocks, wanted.rate, wanted.reader_s, plan.needs.bytes);
    for (const planned_partition& part : plan.data)
        text += fmt::format("    {{{}, {}, {}}},\n", quoted(part.name), part.buffers, part.length);
    const std::string slots =
        plan.set_client_slots == 0 ? "" : fmt::format("    bm.set_ncl_slots({});\n", plan.set_client_slots);
    text += fmt::format(SETTINGS, wanted.form == records::of_2024, wanted.clients, wanted.blocks, plan.set_rate, slots);
    return text + fmt::format(REST, quoted(plan.clients.name), quoted(plan.events.name));
}

std::string sysctl_of(const std::vector<kernel_demand>& kernel)
{
    std::string text = "# /etc/sysctl.d/60-bm.conf; then: sysctl --system\n";
    std::set<std::string> said;
    for (const kernel_demand& each : kernel) {
        const std::string found = each.found ? fmt::format("{}", *each.found) : "unknown";
        text += fmt::format("# {}: needed {}, here {}: {}\n", each.name, each.needed, found,
                            each.met() ? "enough" : each.why);
        if (!each.met() && said.insert(each.line).second) text += each.line + "\n";
    }
    return text;
}

} // namespace bm
