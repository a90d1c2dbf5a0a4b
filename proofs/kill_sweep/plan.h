/// @file
/// Which points a run goes through.
#ifndef ZRK4_SWEEP_PLAN_H
#define ZRK4_SWEEP_PLAN_H

#include <string>

#include "roles.h"

namespace sweep {

struct plan_options {
    bool sample = false;
    bool instructions = false; ///< the regions, by instructions, instead of the roles by calls
    std::string role;          ///< or region; empty: all
};

/// Appends a line for every point to the record, and says on standard error how far it is.
/// @return 0 when all points were run; what they tell is the summary's to say
int run_plan(const plan_options& options, const std::string& record, int jobs);

} // namespace sweep

#endif
