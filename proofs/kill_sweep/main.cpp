// Kills a process at every call into the kernel, in every role, and counts what comes back.
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include <getopt.h>

#include "checker.h"
#include "plan.h"
#include "runner.h"

namespace {

const char* const USAGE =
    "usage: kill_sweep [--sample] [--instructions] [--role NAME] [--jobs N] [--with-command BM] --record FILE\n"
    "       kill_sweep [--with-command BM] --replay POINT\n"
    "  --record  file for one line per point; points that it holds already are left out\n"
    "  --sample  some points of every role, the same each time\n"
    "  --role    one role only\n"
    "  --jobs    points side by side (12 per processor)\n"
    "  --with-command  this program, bm, checks and repairs in the place of the library\n"
    "  --replay  one point, for instance writer:2010:time:2:before:17, with all that is printed\n";

int replay(const std::string& name)
{
    const auto at = sweep::point_named(name);
    if (!at || sweep::role_named(at->role) == nullptr) {
        std::cerr << "kill_sweep: no such point: " << name << '\n';
        return 2;
    }
    bool good = false;
    sweep::runner one(1);
    one.add(*at, [&](const sweep::trial_end& end) {
        std::cout << end.story << "---- calls\n";
        int number = 0;
        for (const sweep::call& c : end.calls)
            std::cout << ++number << ' ' << sweep::name_of_call(c.nr) << ' ' << c.answer << '\n';
        for (const long offset : end.instructions) std::cout << "0x" << std::hex << offset << '\n';
        std::cout << line_of(end.what) << '\n';
        good = end.what.what != sweep::outcome::not_back && end.what.broken.empty();
    });
    one.run();
    return good ? 0 : 1;
}

struct options {
    std::string record, replay, command;
    sweep::plan_options plan;
    int jobs = 12 * static_cast<int>(std::thread::hardware_concurrency());
};

bool parse(int argc, char** argv, options& o)
{
    static const option known[] = {{"record", required_argument, nullptr, 'r'},
                                   {"replay", required_argument, nullptr, 'p'},
                                   {"sample", no_argument, nullptr, 's'},
                                   {"role", required_argument, nullptr, 'o'},
                                   {"instructions", no_argument, nullptr, 'i'},
                                   {"jobs", required_argument, nullptr, 'j'},
                                   {"with-command", required_argument, nullptr, 'c'},
                                   {nullptr, 0, nullptr, 0}};
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (letter) {
        case 'r':
            o.record = optarg;
            break;
        case 'p':
            o.replay = optarg;
            break;
        case 's':
            o.plan.sample = true;
            break;
        case 'i':
            o.plan.instructions = true;
            break;
        case 'o':
            o.plan.role = optarg;
            break;
        case 'c':
            o.command = optarg;
            break;
        case 'j':
            o.jobs = std::atoi(optarg);
            break;
        default:
            return false;
        }
    }
    return optind == argc && o.jobs > 0 && o.record.empty() != o.replay.empty();
}

} // namespace

int main(int argc, char** argv)
{
    options o;
    if (!parse(argc, argv, o)) {
        std::cerr << USAGE;
        return 2;
    }
    if (!sweep::check_by(o.command)) {
        std::cerr << "kill_sweep: built without bm\n";
        return 2;
    }
    return o.replay.empty() ? sweep::run_plan(o.plan, o.record, o.jobs) : replay(o.replay);
}
