// The master: makes the slot partitions and those of all who write, and removes them all in the end.
#include "roles.h"

#include <stdexcept>

#include "run_plan.h"

namespace demo {
namespace {

void make(BM& bm, const run_context& run, const char* partition, int buffers, int bytes)
{
    const std::string name = partition_name(run, partition);
    if (bm.add(name.c_str(), buffers, bytes, false) < 0)
        throw std::runtime_error("master: cannot make partition " + name);
}

} // namespace

std::string partition_name(const run_context& run, const char* name) { return run.prefix + name; }

int be_master(const run_context& run, line_end& line)
{
    BM bm;
    configure(bm, run.how);
    if (bm.set_master(true)) throw std::runtime_error("master: no monitor");
    if (bm.init()) throw std::runtime_error("master: cannot make the slot partitions");
    for (const writer_plan& writer : writers()) make(bm, run, writer.partition, writer.buffers, BUFFER_BYTES);
    make(bm, run, RUN_PARTITION, RUN_BUFFERS, RUN_BUFFER_BYTES);
    line.say(line_end::READY);
    line.hear();
    bm.all_clean_up(); // a master removes every partition of its pool
    return 0;
}

} // namespace demo
