// Lets one call after the other fail on hosts of their own; see scripts/call-faults.sh.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <csignal>
#include <getopt.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ipc_namespace.h"
#include "record.h"
#include "scenario.h"

namespace {

using namespace call_faults;

constexpr const char* USAGE = "usage: call_faults --folder PATH --programs PATH [--sample N] [--point P] [--canary]\n"
                              "                   [--jobs N]\n";
constexpr unsigned LONGEST_POINT_S = 120;

struct settings {
    std::string folder, program_folder;
    size_t sample = 0;
    std::optional<point> only;
    bool careless = false;
    int jobs = 2;
};

std::optional<settings> parsed(int argc, char** argv)
{
    static const option known[] = {{"folder", required_argument, nullptr, 'f'},
                                   {"programs", required_argument, nullptr, 'p'},
                                   {"sample", required_argument, nullptr, 's'},
                                   {"point", required_argument, nullptr, 'o'},
                                   {"jobs", required_argument, nullptr, 'j'},
                                   {"canary", no_argument, nullptr, 'c'},
                                   {nullptr, 0, nullptr, 0}};
    settings how;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (letter == 'f') how.folder = optarg;
        if (letter == 'p') how.program_folder = optarg;
        if (letter == 's') how.sample = std::strtoul(optarg, nullptr, 10);
        if (letter == 'j') how.jobs = std::atoi(optarg);
        if (letter == 'c') how.careless = true;
        if (letter == 'o' && !(how.only = point::of(optarg))) return std::nullopt;
        if (letter == '?') return std::nullopt;
    }
    if (how.folder.empty() || how.program_folder.empty() || how.jobs < 1) return std::nullopt;
    return how;
}

void write_finding(const proof::record& log, const point& where, const finding& f, int64_t ms)
{
    log.line("point",
             "where=%s met=%d victim=%s crashed=%d hung=%d strange=%d stuck=%d missing=%d gave_up=%d left=%d sent=%d "
             "heard=%d kept_back=%d ms=%lld",
             where.text().c_str(), f.met, f.victim.c_str(), f.crashed, f.hung, f.strange, f.stuck, f.missing, f.gave_up,
             f.left, f.sent, f.heard, f.kept_back, static_cast<long long>(ms));
}

/// The points of a run, side by side in processes with namespaces of their own.
class sweep {
  public:
    sweep(const settings& how, const proof::record& log)
        : how_(how),
          log_(log),
          with_{how.program_folder + "/call_faults_role", how.program_folder + "/../lib/libZRK4faults.so"}
    {
    }

    void run()
    {
        const std::vector<point> points = how_.only ? std::vector<point>{*how_.only} : all_points();
        log_.line("run", "points=%zu careless=%d", points.size(), how_.careless);
        for (const point& one : points) {
            if (running_ == how_.jobs) wait_for_one();
            in_own_namespace([&](const std::string& folder) { look_at(one, folder); });
        }
        while (running_ > 0) wait_for_one();
        log_.line("end", "points=%zu", points.size());
    }

  private:
    // What fails behind the first few events fails in the same way before them: the host is short.
    std::vector<point> all_points()
    {
        std::vector<point> all;
        for (const char* role : {"master", "writer", "reader"}) {
            const std::string file = how_.folder + "/trace." + role;
            in_own_namespace([&](const std::string& folder) {
                trace_calls_of(with_, role, folder);
                std::filesystem::copy_file(folder + "/trace", file, std::filesystem::copy_options::overwrite_existing);
            });
            wait_for_one();
            for (const point& one : points_of(role, trace_in(file))) all.push_back(one);
        }
        std::vector<point> chosen = sample_of(all, how_.sample);
        for (const point& one : sample_of(datagram_points(), how_.sample / 20)) chosen.push_back(one);
        return chosen;
    }

    void look_at(const point& where, const std::string& folder) const
    {
        const auto begin = std::chrono::steady_clock::now();
        const finding found = run_point(with_, where, folder, how_.careless);
        const auto took = std::chrono::steady_clock::now() - begin;
        write_finding(log_, where, found, std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
    }

    template <class Body> void in_own_namespace(Body body)
    {
        const std::string folder = how_.folder + "/point." + std::to_string(++started_);
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid < 0) {
            std::perror("fork");
            std::exit(1);
        }
        ++running_;
        if (pid > 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        alarm(LONGEST_POINT_S);
        try {
            std::filesystem::remove_all(folder);
            std::filesystem::create_directories(folder);
            if (!zrk4::test::enter_ipc_namespace()) throw std::runtime_error("no IPC namespace");
            body(folder);
            if (!how_.only) std::filesystem::remove_all(folder);
        } catch (const std::exception& e) {
            log_.line("broken", "folder=%s why=%s", folder.c_str(), e.what());
        }
        _exit(0);
    }

    void wait_for_one()
    {
        int status = 0;
        if (waitpid(-1, &status, 0) < 0) return;
        --running_;
        if (status != 0) log_.line("broken", "status=%d", status);
    }

    const settings& how_;
    const proof::record& log_;
    const programs with_;
    int running_ = 0, started_ = 0;
};

} // namespace

int main(int argc, char** argv)
{
    const std::optional<settings> how = parsed(argc, argv);
    if (!how) {
        std::fputs(USAGE, stderr);
        return 2;
    }
    try {
        std::filesystem::create_directories(how->folder);
        const proof::record log(how->folder + "/record");
        sweep(*how, log).run();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "call_faults: %s\n", e.what());
        return 1;
    }
    return 0;
}
