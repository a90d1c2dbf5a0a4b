/// @file
/// One point from the start of its processes to the verdict.
#ifndef ZRK4_SWEEP_TRIAL_H
#define ZRK4_SWEEP_TRIAL_H

#include <vector>

#include "calls.h"
#include "record.h"

namespace sweep {

struct trial_end {
    result what;
    std::vector<call> calls;        ///< that the victim made, up to its end
    std::vector<long> instructions; ///< that it came to with a lock in hand, where they were asked for
    bool host_stood_still = false;  ///< and so what was found is no finding
    std::string story;              ///< what the processes printed
};

/// What the trial is about, for a word on one that hangs.
extern const char* volatile trial_phase;

/// Runs in a fresh IPC and process-id namespace, as its first process.
trial_end run_trial(const point& at);

} // namespace sweep

#endif
