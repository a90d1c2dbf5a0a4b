/// @file
/// What the processes of the demonstration do, each with a buffer manager of its own.
#ifndef ZRK4_DEMO_ROLES_H
#define ZRK4_DEMO_ROLES_H

#include <cstddef>
#include <string>

#include "plan.h"
#include "process.h"
#include "record.h"

namespace demo {

/// What all roles are given.
struct run_context {
    settings how;
    std::string prefix; ///< of the names of this run's partitions
    run_record& record;
};

std::string partition_name(const run_context& run, const char* name);

/// Each says READY when it is set up, and ends when it hears LEAVE. @return exit status.
/// The master makes all partitions and removes them at its end.
int be_master(const run_context& run, line_end& line);
/// Hears GO, writes the blocks of every tick that the gate lets begin, says FINISHED.
int be_writer(const run_context& run, size_t number, line_end& line);
/// Hears GO, sends the run-control events of every tick that the gate lets begin, says FINISHED.
int be_run_control(const run_context& run, line_end& line);
/// Reader 0 shows the live table, and follows the run control.
int be_reader(const run_context& run, size_t number, line_end& line);

} // namespace demo

#endif
