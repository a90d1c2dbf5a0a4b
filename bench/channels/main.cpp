// What a look-up of a channel costs: measures, and writes what it measured into a record.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "apart.h"
#include "cases.h"
#include "machine.h"

namespace {

using namespace bench;

constexpr char USAGE[] = "usage: bm_channels RECORD [--rounds N] [--short] [--replay CASE] [--canary]\n"
                         "  --rounds  1 to 1000 (9)\n"
                         "  --short   one round, in which everything runs; its figures mean nothing\n"
                         "  --replay  this case alone, for instance lookup/256/8/2024 or query/1000/alone\n"
                         "  --canary  every look-up is made four times, which must be seen\n";

struct options {
    std::string record;
    int rounds = 9;
    std::string only;
    pace how;
};

bool parse(int argc, char** argv, options& o)
{
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const char* const value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (word == "--short") {
            o.rounds = 1;
            o.how.case_ns = 1'000'000;
            o.how.batch_ns = 10'000;
        } else if (word == "--canary") {
            o.how.repeated = 4;
        } else if (word == "--rounds" && value != nullptr) {
            o.rounds = std::atoi(argv[++i]);
        } else if (word == "--replay" && value != nullptr) {
            o.only = argv[++i];
        } else if (o.record.empty() && word[0] != '-') {
            o.record = word;
        } else {
            return false;
        }
    }
    return !o.record.empty() && o.rounds >= 1 && o.rounds <= 1000;
}

void measure(const options& o)
{
    run_on(allowed_processors().front());
    reader_host host;
    std::vector<measured_case> cases = all_cases(host, o.how);
    if (!o.only.empty()) std::erase_if(cases, [&](const measured_case& c) { return c.name != o.only; });
    if (cases.empty()) throw std::runtime_error("no such case: " + o.only);
    const proof::record out(o.record);
    out.line("plan", "cases=%zu rounds=%d", cases.size(), o.rounds);
    for (int round = 0; round < o.rounds; ++round) {
        std::fprintf(stderr, "round %d of %d\n", round + 1, o.rounds);
        for (const measured_case& c : cases) c.measure(round, out);
    }
    host.all_clean_up();
}

} // namespace

int main(int argc, char** argv)
{
    options o;
    if (!parse(argc, argv, o)) {
        std::fputs(USAGE, stderr);
        return BAD_USAGE;
    }
    return apart("bm_channels", [&] { measure(o); });
}
