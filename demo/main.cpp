// The demonstration: several processes build events together out of what the host says about itself.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include <getopt.h>
#include <sched.h>
#include <unistd.h>

#include "conductor.h"

namespace {

using demo::settings;

enum exit_status { ALL_WELL = 0, SOMETHING_MISSING = 1, BAD_USAGE = 2, INTERRUPTED = 130 };
constexpr int LONGEST_RUN_S = 3600;

constexpr const char* USAGE =
    "usage: demo [--records 2010|2024] [--mode time|evid] [--seconds N] [--host-ipc]\n"
    "  --records   generation of blocks and slots (2024)\n"
    "  --mode      how blocks find their event: by time or by event id (time)\n"
    "  --seconds   length of the run, 1 to 3600 (10)\n"
    "  --host-ipc  stay in the host's IPC namespace, to watch the partitions with ipcs\n"
    "exit status: 0 all accounted for, 1 something is missing, 130 interrupted and all accounted for\n";

bool set_seconds(settings& how, const std::string& text)
{
    char* end = nullptr;
    const long seconds = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || seconds < 1 || seconds > LONGEST_RUN_S) return false;
    how.seconds = static_cast<int>(seconds);
    return true;
}

bool set_option(settings& how, int letter, const std::string& text)
{
    switch (letter) {
    case 'r':
        how.records_2024 = text == "2024";
        return text == "2010" || text == "2024";
    case 'm':
        how.mode = text == "evid" ? BM_SYNCH_EVID : BM_SYNCH_TIME;
        return text == "time" || text == "evid";
    case 's':
        return set_seconds(how, text);
    case 'i':
        how.host_ipc = true;
        return true;
    default:
        return false;
    }
}

std::optional<settings> parsed(int argc, char** argv)
{
    static const option known[] = {{"records", required_argument, nullptr, 'r'},
                                   {"mode", required_argument, nullptr, 'm'},
                                   {"seconds", required_argument, nullptr, 's'},
                                   {"host-ipc", no_argument, nullptr, 'i'},
                                   {nullptr, 0, nullptr, 0}};
    settings how;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (!set_option(how, letter, optarg == nullptr ? "" : optarg)) return std::nullopt;
    }
    if (optind != argc) return std::nullopt;
    return how;
}

// With a namespace of its own nothing of the run outlives it, whatever happens; where none can be had the names, which
// hold the process id, keep the run apart from everybody else's partitions. Root needs the first call only, others get
// the namespace inside a user namespace.
void enter_ipc_namespace()
{
    if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0)
        std::fputs("demo: no IPC namespace of its own: the partitions lie in the host's\n", stderr);
}

int run(const settings& how)
{
    std::printf("%d s at %d Hz, %s records, events by %s, %zu writers, %d readers\n", how.seconds,
                demo::TICKS_PER_SECOND, how.records_2024 ? "2024" : "2010", how.mode == BM_SYNCH_TIME ? "time" : "id",
                demo::writers().size(), demo::READERS);
    demo::conductor conductor(how, "DEMO." + std::to_string(getpid()) + ".");
    const demo::run_figures figures = conductor.run();
    std::fputs(demo::summary_text(figures).c_str(), stdout);
    if (!demo::complaints(figures).empty()) return SOMETHING_MISSING;
    return figures.interrupted ? INTERRUPTED : ALL_WELL;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "--help") {
        std::fputs(USAGE, stdout);
        return ALL_WELL;
    }
    const std::optional<settings> how = parsed(argc, argv);
    if (!how) {
        std::fputs(USAGE, stderr);
        return BAD_USAGE;
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader of our output that goes away must not end a process in mid-event
    if (!how->host_ipc) enter_ipc_namespace();
    try {
        return run(*how);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "demo: %s\n", e.what());
        return SOMETHING_MISSING;
    }
}
