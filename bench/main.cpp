// The benchmark: the library beside bare programs that make the same calls into the kernel, and beside its peers.
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "apart.h"
#include "options.h"
#include "peers.h"
#include "suite.h"

namespace {

using namespace bench;

std::vector<int> processors_for(const options& o)
{
    std::vector<int> processors = o.processors.empty() ? allowed_processors() : o.processors;
    if (processors.empty()) throw std::runtime_error("no processor is allowed");
    if (processors.size() > 2) processors.resize(2);
    if (processors.size() < 2) std::fputs("bm_bench: one processor only: nothing is measured on two\n", stderr);
    return processors;
}

void run(const options& o)
{
    std::ofstream file;
    if (!o.record.empty()) file.open(o.record, std::ios::app);
    const auto write = [&](const std::string& text) {
        if (o.record.empty()) {
            std::printf("%s\n", text.c_str());
        } else if (!(file << text << std::endl)) { // flushed: what was measured outlives a run that fails later
            throw std::runtime_error("cannot write " + o.record);
        }
    };
    const std::vector<int> processors = processors_for(o);
    for (const std::string& name : missing_peers()) std::fprintf(stderr, "bm_bench: not here: %s\n", name.c_str());
    write("machine\t" + in_words(this_machine(), processors));
    const auto all = chosen(all_measurements(processors, o.seconds), o.only);
    if (all.empty()) throw std::runtime_error("no such scenario");
    int told = 0;
    run_rounds(all, o.first_round, o.first_round + o.rounds - 1, o.turns, [&](const figure_line& line) {
        if (line.round != told) std::fprintf(stderr, "round %d, load %.1f\n", told = line.round, load());
        write(to_text(line));
    });
}

void run_for_tracer(const options& o)
{
    measurement m = measurement_named(o.scenario, o.trace, processors_for(o).front());
    m.p.warm_up = 0;
    m.p.seconds = 600; // the number of events ends it
    m.p.events = o.events;
    m.measure(m.p);
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
    return apart("bm_bench", [&] {
        enter_own_shared_memory();
        given->trace.empty() ? run(*given) : run_for_tracer(*given);
    });
}
