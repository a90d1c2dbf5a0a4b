// The master: makes the slot partitions and the writers' partitions, and removes them all in the end.
#include "roles.h"

#include <stdexcept>

namespace demo {

std::string partition_name(const run_context& run, const char* name) { return run.prefix + name; }

int be_master(const run_context& run, line_end& line)
{
    BM bm;
    configure(bm, run.how);
    if (bm.set_master(true)) throw std::runtime_error("master: no monitor");
    if (bm.init()) throw std::runtime_error("master: cannot make the slot partitions");
    for (const writer_plan& writer : writers()) {
        const std::string name = partition_name(run, writer.partition);
        if (bm.add(name.c_str(), writer.buffers, BUFFER_BYTES, false) < 0)
            throw std::runtime_error("master: cannot make partition " + name);
    }
    line.say(line_end::READY);
    line.hear();
    bm.all_clean_up(); // a master removes every partition of its pool
    return 0;
}

} // namespace demo
