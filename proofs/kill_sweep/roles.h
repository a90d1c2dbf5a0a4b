/// @file
/// The roles in which a process is killed.
#ifndef ZRK4_SWEEP_ROLES_H
#define ZRK4_SWEEP_ROLES_H

#include <functional>
#include <string>
#include <vector>

#include "stage.h"
#include "tracer.h"

namespace sweep {

/// Everybody is there, and whole events went through.
void warm_up(stage& s);

struct role {
    std::string name;
    /// Which thread works: the one that obeys orders, or the victim's reader or monitor.
    bool main_thread = true;
    span counted = {};
    int readers_max = 3;
    /// Up to the moment before the operation. @return the victim
    std::function<member&(stage&)> set_up = {};
    /// The victim stands still: its order, or what its thread will find.
    std::function<void(stage&, member&)> begin = {};
    /// The victim stands before its first call.
    std::function<void(stage&, member&)> at_first = [](stage&, member&) {};
    /// What the others had left to do, and what an operator does.
    std::function<void(stage&, member&)> after = [](stage&, member&) {};
};

const std::vector<role>& all_roles();
/// Roles of the sweep by instructions: one operation each that holds a lock.
const std::vector<role>& all_regions();
/// From the first mark of an order to the second.
extern const span BETWEEN_MARKS;
/// @return a role, or a region; null when there is none of that name
const role* role_named(const std::string& name);

} // namespace sweep

#endif
