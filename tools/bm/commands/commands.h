/// @file
/// All commands, each in a file of its own name.
#ifndef ZRK4_TOOL_COMMANDS_H
#define ZRK4_TOOL_COMMANDS_H

#include "cli/command_line.h"

namespace bm {

void add_check(command_line& line);
void add_clients(command_line& line);
void add_completion(command_line& line);
void add_demo(command_line& line);
void add_doctor(command_line& line);
void add_events(command_line& line);
void add_ls(command_line& line);
void add_master(command_line& line);
void add_read(command_line& line);
void add_repair(command_line& line);
void add_rm(command_line& line);
void add_show(command_line& line);
void add_size(command_line& line);
void add_stat(command_line& line);
void add_top(command_line& line);
void add_version(command_line& line);
void add_watch(command_line& line);
void add_why(command_line& line);
void add_write(command_line& line);

} // namespace bm

#endif
