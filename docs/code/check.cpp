// Checks the partitions of the host, and mends what it finds.
#include <cstdio>

#include "bm_check.h"

int main()
{
    // [check]
    bm_check_request request;
    request.repair = true;
    request.records_2024 = true; // as set_evid_64bit_mode
    const bm_check_report report = bm_check(request);
    for (const bm_finding& f : report.findings)
        std::printf("%d %s: %s\n", f.invariant, f.partition.c_str(), f.text.c_str());
    // [check]
}
