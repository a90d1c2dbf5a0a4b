// Reads the record of a call and ends with its one line; status 0 when all was as it has to be.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "summary.h"

int main(int argc, char** argv)
{
    const bool ledger = argc == 3 && std::strcmp(argv[1], "--ledger") == 0;
    std::ifstream in(argc == 2 || ledger ? argv[argc - 1] : "");
    if (!in) {
        std::fputs("usage: fuzz_summary [--ledger] RECORD\n", stderr);
        return 2;
    }
    const auto runs = fuzz::runs_of(in);
    if (ledger) {
        std::fputs(fuzz::ledger_rows(runs).c_str(), stdout);
        return 0;
    }
    const std::string wrong = fuzz::complaints(runs);
    std::printf("%s%s\n", wrong.c_str(), fuzz::last_line(runs).c_str());
    return wrong.empty() ? 0 : 1;
}
