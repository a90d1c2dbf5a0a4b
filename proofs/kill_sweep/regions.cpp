// What a victim does in the critical regions, one at a time.
#include "roles.h"

namespace sweep {
namespace {

/// One order of writer 1, on an event of which the blocks of writer 0 are there, or not yet.
role region(const char* name, order what, bool begun, const std::vector<order>& before)
{
    role r{.name = name};
    r.set_up = [=](stage& s) -> member& {
        warm_up(s);
        const int event = s.new_open_event();
        if (begun) s.send_from(0, event);
        member& victim = s.writer(1);
        for (const order o : before) victim.ask(o, event);
        return victim;
    };
    r.begin = [=](stage& s, member& m) { m.tell(what, s.made_events() - 1, true); };
    r.after = [=](stage& s, member& victim) {
        if (!begun) s.send_from(0, s.made_events() - 1);
        if (victim.alive()) victim.ask(order::put_back);
    };
    return r;
}

std::vector<role> make_regions()
{
    std::vector<role> regions{
        region("pop", order::fill, false, {}),
        region("push", order::put_back, false, {order::fill}),
        region("slot_initialisation", order::find, false, {order::fill}),
        region("entry", order::enter, false, {order::fill, order::find}),
        region("notification", order::enter, true, {order::fill, order::find}),
        region("freeing", order::free_slot, true, {order::fill, order::find}),
        region("shift", order::return_foreign, true, {order::fill, order::find}),
    };
    regions.back().readers_max = 1; // blocks of events with one reader only are returned early
    for (role& r : regions) r.counted = BETWEEN_MARKS;
    for (const role& r : all_roles()) {
        if (r.name.find("subscribe") != std::string::npos) regions.push_back(r);
    }
    return regions;
}

} // namespace

const std::vector<role>& all_regions()
{
    static const std::vector<role> regions = make_regions();
    return regions;
}

} // namespace sweep
