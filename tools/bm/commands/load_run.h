/// @file
/// What a load test's two ends have in common: how long they run, and how they tell what came of it.
#ifndef ZRK4_TOOL_LOAD_RUN_H
#define ZRK4_TOOL_LOAD_RUN_H

#include "cli/arguments.h"
#include "cli/exit_status.h"
#include "host/member.h"

namespace bm {

struct load_run {
    member_options member;
    std::string type = "NORMAL";
    int64_t count = 0;  ///< events, 0: no end
    double seconds = 0; ///< 0: no end
};

inline void declare_run(arguments& app, load_run& options)
{
    declare_member(app, options.member);
    app.option("--type", options.type, "event type (NORMAL)");
    app.option("--count", options.count, "end after so many events").check(above_zero());
    app.option("--seconds", options.seconds, "end after this time").check(above_zero());
}

/// Prints a balance. @param gave_up  it is one of a wait that was too long
template <class Balance>
exit_status tell(const Balance& all, bool gave_up, const common_options& common, const operator_output& out)
{
    if (common.json) {
        out.print_line(to_json(all));
    } else {
        out.print(text_of(all));
    }
    if (all.right()) return exit_status::fine;
    return gave_up ? exit_status::timed_out : exit_status::attention;
}

} // namespace bm

#endif
