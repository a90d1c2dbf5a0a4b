// The benchmark: the library beside a bare program that makes the same calls into the kernel.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "options.h"
#include "report.h"
#include "suite.h"

namespace {

using namespace bench;

enum exit_status { DONE = 0, FAILED = 1, BAD_USAGE = 2, NO_NAMESPACE = 125 };

std::vector<int> processors_for(const options& o)
{
    std::vector<int> processors = o.processors.empty() ? allowed_processors() : o.processors;
    if (processors.empty()) throw std::runtime_error("no processor is allowed");
    if (processors.size() > 2) processors.resize(2);
    if (processors.size() < 2) std::fputs("bm_bench: one processor only: nothing is measured on two\n", stderr);
    return processors;
}

void write_file(const std::string& name, const std::string& text)
{
    std::ofstream file(name);
    file << text;
    file.close();
    if (!file) throw std::runtime_error("cannot write " + name);
}

void compare(const options& o)
{
    circumstances how{this_machine(), processors_for(o), o.rounds, o.seconds, load(), 0};
    const auto progress = [&](int round) { std::fprintf(stderr, "round %d of %d\n", round, o.rounds); };
    const std::vector<comparison> all = run(all_duels(how.processors, o.seconds), o.rounds, progress);
    how.load_after = load();
    std::fputs(text_report(how, all).c_str(), stdout);
    if (!o.json.empty()) write_file(o.json, json_report(how, all));
}

void run_for_tracer(const options& o)
{
    plan p;
    p.one_at_a_time = true;
    p.warm_up = 0;
    p.seconds = 600; // the number of events ends it
    p.events = o.events;
    p.writer_processor = p.reader_processor = processors_for(o).front();
    o.trace == "library" ? measure_library(p, limits{}) : measure_reference(p, limits{});
    std::printf("%lld events\n", static_cast<long long>(o.events));
}

} // namespace

int main(int argc, char** argv)
{
    const auto given = parse(argc, argv);
    if (!given) {
        std::fputs(USAGE, stderr);
        return BAD_USAGE;
    }
    if (!enter_ipc_namespace()) {
        std::fputs("bm_bench: no IPC namespace of its own can be had\n", stderr);
        return NO_NAMESPACE;
    }
    try {
        given->trace.empty() ? compare(*given) : run_for_tracer(*given);
        return DONE;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bm_bench: %s\n", e.what());
        return FAILED;
    }
}
