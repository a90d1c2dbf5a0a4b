// Reads the record of a run and ends with its one line; status 0 when all was as it has to be.
#include <cstdio>
#include <fstream>

#include "summary.h"

int main(int argc, char** argv)
{
    std::ifstream in(argc == 2 ? argv[1] : "");
    if (!in) {
        std::fputs("usage: soak_summary RECORD\n", stderr);
        return 2;
    }
    const soak::figures seen = soak::figures_of(in);
    const std::string wrong = soak::complaints(seen);
    std::printf("%s%s\n", wrong.c_str(), soak::last_line(seen).c_str());
    return wrong.empty() ? 0 : 1;
}
