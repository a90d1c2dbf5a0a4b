/// @file
/// What the command tells the shell.
#ifndef ZRK4_TOOL_EXIT_STATUS_H
#define ZRK4_TOOL_EXIT_STATUS_H

namespace bm {

enum class exit_status {
    fine = 0,
    attention = 1, ///< something was found that an operator should look at
    failed = 2,
    not_found = 3, ///< no such partition, slot or event
    timed_out = 4,
    usage = 64
};

} // namespace bm

#endif
