// Reads the record of a sweep and ends with its one line; status 0 when all was as it has to be.
#include <cstdio>
#include <fstream>

#include "summary.h"

int main(int argc, char** argv)
{
    std::ifstream in(argc == 2 ? argv[1] : "");
    if (!in) {
        std::fputs("usage: call_faults_summary RECORD\n", stderr);
        return 2;
    }
    const call_faults::figures seen = call_faults::figures_of(in);
    const std::string bad = call_faults::complaints(seen);
    std::printf("%s%s\n", bad.c_str(), call_faults::last_line(seen).c_str());
    return bad.empty() ? 0 : 1;
}
