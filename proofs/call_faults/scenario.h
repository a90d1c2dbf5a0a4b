/// @file
/// What one failing call does to a host.
#ifndef ZRK4_CALL_FAULTS_SCENARIO_H
#define ZRK4_CALL_FAULTS_SCENARIO_H

#include <string>

#include "points.h"

namespace call_faults {

struct programs {
    std::string role;    ///< path of the role program
    std::string preload; ///< path of the library that lets calls fail
};

/// What was found at a point.
struct finding {
    bool met = false;   ///< the call was made, and failed
    std::string victim; ///< how the process ended: "exit:0", "signal:11", "hung"
    bool crashed = false;
    bool hung = false;
    bool strange = false; ///< a survivor ended by itself, an event came twice or was not what was sent
    bool stuck = false;   ///< afterwards not every event of a new round reached the reader
    int missing = 0;      ///< buffers and slots that cannot be had any more
    bool gave_up = false; ///< the process ended after a refusal, and with it what it had in its hands
    int left = 0;         ///< segments and semaphore sets behind the master's clean-up
    int sent = 0, heard = 0, kept_back = 0; ///< events of the first round, with datagrams that did not arrive as sent
};

/// Runs the point on a host of its own. What the processes say goes to `folder`/log.
finding run_point(const programs& with, const point& where, const std::string& folder, bool careless);
/// Runs the host without a failing call. `folder`/trace then lists the calls that the role made.
void trace_calls_of(const programs& with, const std::string& role, const std::string& folder);

} // namespace call_faults

#endif
