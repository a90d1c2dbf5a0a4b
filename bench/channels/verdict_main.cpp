// Reads the record of the look-ups: a table, and one last line. Status 0 when the record is complete; with --canary when
// the look-ups that were made four times over were seen.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "verdict.h"

int main(int argc, char** argv)
{
    const bool canary = argc == 3 && std::strcmp(argv[1], "--canary") == 0;
    std::ifstream in(argc == 2 || canary ? argv[argc - 1] : "");
    if (!in) {
        std::fputs("usage: bm_channels_verdict [--canary] RECORD\n", stderr);
        return 2;
    }
    const bench::lookup_record seen = bench::read_lookups(in);
    std::fputs(bench::lookup_report(seen).c_str(), stdout);
    if (!canary) return seen.wrong.empty() ? 0 : 1;
    const bool noticed = bench::canary_seen(seen);
    std::printf("canary: the repeated look-ups %s\n", noticed ? "were noticed" : "WENT UNNOTICED");
    return noticed ? 0 : 1;
}
