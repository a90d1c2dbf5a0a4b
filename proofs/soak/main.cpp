// Writers, readers and a master, killed and stopped without end; see scripts/soak.sh.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include <getopt.h>

#include "conductor.h"
#include "ipc_namespace.h"

namespace {

using soak::settings;

constexpr const char* USAGE =
    "usage: soak [--seed N] [--seconds N] [--records 2010|2024] [--mode time|evid] [--last-kill N]\n"
    "            [--canary corrupt|leak|deaf] [--folder PATH]\n"
    "The record of the run is PATH/record; the last words of every role are PATH/ROLE.log.\n";

bool set_canary(settings& how, const std::string& text)
{
    if (text == "corrupt") how.planted = soak::canary::corrupt;
    if (text == "leak") how.planted = soak::canary::leak;
    if (text == "deaf") how.planted = soak::canary::deaf;
    return how.planted != soak::canary::none;
}

bool set_option(settings& how, int letter, const std::string& text)
{
    switch (letter) {
    case 's':
        how.seed = std::strtoull(text.c_str(), nullptr, 10);
        return true;
    case 't':
        how.seconds = std::atoi(text.c_str());
        return how.seconds > 0;
    case 'r':
        how.wide = text == "2024";
        return text == "2010" || text == "2024";
    case 'm':
        how.mode = text == "evid" ? BM_SYNCH_EVID : BM_SYNCH_TIME;
        return text == "time" || text == "evid";
    case 'k':
        how.last_kill = std::atoi(text.c_str());
        return how.last_kill > 0;
    case 'c':
        return set_canary(how, text);
    case 'f':
        how.folder = text;
        return true;
    default:
        return false;
    }
}

std::optional<settings> parsed(int argc, char** argv)
{
    static const option known[] = {
        {"seed", required_argument, nullptr, 's'},      {"seconds", required_argument, nullptr, 't'},
        {"records", required_argument, nullptr, 'r'},   {"mode", required_argument, nullptr, 'm'},
        {"last-kill", required_argument, nullptr, 'k'}, {"canary", required_argument, nullptr, 'c'},
        {"folder", required_argument, nullptr, 'f'},    {nullptr, 0, nullptr, 0}};
    settings how;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (!set_option(how, letter, optarg == nullptr ? "" : optarg)) return std::nullopt;
    }
    if (optind != argc) return std::nullopt;
    return how;
}

void run(const settings& how)
{
    const proof::record log(how.folder + "/record");
    log.line("run", "seed=%llu seconds=%d records=%s mode=%s", static_cast<unsigned long long>(how.seed), how.seconds,
             how.wide ? "2024" : "2010", how.mode == BM_SYNCH_EVID ? "evid" : "time");
    soak::conductor(how, log).run();
}

} // namespace

int main(int argc, char** argv)
{
    const std::optional<settings> how = parsed(argc, argv);
    if (!how) {
        std::fputs(USAGE, stderr);
        return 2;
    }
    if (!zrk4::test::enter_ipc_namespace()) {
        std::perror("soak: no IPC namespace");
        return 125;
    }
    try {
        run(*how);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "soak: %s\n", e.what());
        return 1;
    }
    return 0;
}
