#include "host/member.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/failure.h"
#include "evutl.h"
#include "host/partition.h"
#include "host/records_shown.h"

namespace bm {
namespace {

bool is_there(const std::string& name)
{
    const std::vector<partition> all = partitions_of_host();
    return std::any_of(all.begin(), all.end(), [&](const partition& each) { return each.name == name; });
}

} // namespace

void declare_member(arguments& app, member_options& options)
{
    app.option("--mode", options.mode, "how blocks find their event (time)").one_of({"time", "evid"});
    app.option("--time-mask", options.time_mask, "keys this close are one event, as in all other clients (20000)")
        .type_name("MICROSECONDS");
}

void name_slot_partitions(const common_options& common)
{
    setenv("ZRK4_CLI_SHM_NAME", common.clients.c_str(), 1);
    setenv("ZRK4_EV_SHM_NAME", common.events.c_str(), 1);
}

void configure(BM& member, const common_options& common, const member_options& options)
{
    const std::optional<records> form = records_of(common);
    if (!form && is_there(common.events)) {
        throw failure(exit_status::failed, "nothing shows which records the event slots hold")
            .needed("the ones that all other clients use")
            .help("--records 2010, or --records 2024");
    }
    member.set_evid_64bit_mode(form == records::of_2024);
    member.set_smode(options.mode == "evid" ? BM_SYNCH_EVID : BM_SYNCH_TIME);
    member.set_time_mask(options.time_mask);
}

void join(BM& member, const common_options& common)
{
    for (const std::string& name : {common.clients, common.events}) {
        if (is_there(name)) continue;
        throw failure(exit_status::not_found, fmt::format("no partition has the name \"{}\"", printable(name)))
            .needed("a master, which makes the slot partitions")
            .help("bm master");
    }
    if (member.init()) {
        throw failure(exit_status::failed, "the slot partitions are there and cannot be joined")
            .needed("the right to attach them, and their semaphores")
            .help("bm check");
    }
}

ZRK4_EVTYPE event_type(const std::string& text)
{
    int number = -1;
    const char* end = text.data() + text.size();
    if (const auto [next, error] = std::from_chars(text.data(), end, number); error != std::errc() || next != end) {
        number = -1;
        const std::string name = text.substr(text.compare(0, 3, "EV_") == 0 ? 3 : 0);
        for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
            if (name == event_name_itoa(type)) number = type;
        }
    }
    if (number >= 0 && number < ZRK4_EV_EVMAX) return static_cast<ZRK4_EVTYPE>(number);
    throw failure(exit_status::usage, "this is no event type")
        .seen("\"" + printable(text) + "\"")
        .needed(fmt::format("0 to {}, or a name as NORMAL, BOR, ENV", ZRK4_EV_EVMAX - 1));
}

// The library prints on the descriptor of standard output; that one is led to standard error meanwhile.
operator_output::operator_output()
{
    std::fflush(stdout);
    const int own = dup(STDOUT_FILENO);
    out_ = own < 0 ? nullptr : fdopen(own, "w");
    if (out_ == nullptr) throw failure(exit_status::failed, "standard output is closed");
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

operator_output::~operator_output()
{
    std::fflush(stdout);
    dup2(fileno(out_), STDOUT_FILENO);
    std::fclose(out_);
}

void operator_output::print(std::string_view text) const
{
    std::fwrite(text.data(), 1, text.size(), out_);
    std::fflush(out_);
}

void operator_output::print_line(const json& document) const { print(document_line(document)); }

} // namespace bm
