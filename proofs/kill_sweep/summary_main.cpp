// Reads the record of a sweep and derives its last lines.
#include <fstream>
#include <iostream>

#include "summary.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: kill_sweep_summary RECORD\n";
        return 2;
    }
    std::ifstream record(argv[1]);
    if (!record) {
        std::cerr << "kill_sweep_summary: cannot read " << argv[1] << '\n';
        return 2;
    }
    const sweep::summary s = sweep::summary::of(record);
    s.print(std::cout);
    return s.good() ? 0 : 1;
}
