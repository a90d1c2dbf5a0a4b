// How long the command looks at a host whose slots are all taken: scripts/bench.sh --operator.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ipc_namespace.h"
#include "large_host.h"

namespace bm::test {
namespace {

struct times {
    std::vector<double> wall_ms, processor_ms;
};

double median_of(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

times measured(const std::vector<std::string>& arguments, int runs)
{
    times all;
    for (int run = 0; run < runs; ++run) {
        const auto began = std::chrono::steady_clock::now();
        const outcome seen = run_bm(arguments);
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - began;
        if (seen.status > 1) throw std::runtime_error(seen.err);
        all.wall_ms.push_back(took.count());
        all.processor_ms.push_back(seen.processor_s * 1e3);
    }
    return all;
}

void print(const std::string& command, const times& seen)
{
    const auto [least, most] = std::minmax_element(seen.wall_ms.begin(), seen.wall_ms.end());
    std::printf("  bm %-8s %6.1f (%.1f to %.1f), processor %.1f\n", command.c_str(), median_of(seen.wall_ms), *least,
                *most, median_of(seen.processor_ms));
}

} // namespace
} // namespace bm::test

int main(int argc, char** argv)
{
    using namespace bm::test;
    const int runs = argc == 2 ? std::atoi(argv[1]) : 21;
    if (argc > 2 || runs < 1) {
        std::fputs("usage: bm_large_host_times [RUNS]\n", stderr);
        return 2;
    }
    if (!zrk4::test::enter_ipc_namespace()) {
        std::perror("no IPC namespace");
        return 125;
    }
    std::printf("%d client slots and %d event slots, all taken; milliseconds from start to end, median of %d runs\n",
                large_host::CLIENTS, large_host::EVENTS, runs);
    for (const generation form : {generation::of_2010, generation::of_2024}) {
        std::printf("records of %s\n", form == generation::of_2010 ? "2010" : "2024");
        const large_host host(form);
        for (const char* command : {"ls", "clients", "events"}) print(command, measured({command}, runs));
    }
    return 0;
}
