#include "roles.h"

#include <algorithm>

#include <sys/syscall.h>

namespace sweep {

const span BETWEEN_MARKS{mark_number(), 1, mark_number(), 1};

void warm_up(stage& s)
{
    s.bring_up_all();
    s.whole_events(2);
}

namespace {

/// From the wait for a datagram to the third one: two events.
const span TWO_EVENTS{0, 0, SYS_recvfrom, 3};
/// From the sleep in which the monitor stands to the next one.
const span ONE_CYCLE{0, 0, SYS_clock_nanosleep, 1};
/// The cycle that finds an event suspicious: the first one copies its head, then it is seen unchanged ten times.
const span SUSPICIOUS_CYCLE{SYS_clock_nanosleep, 10, SYS_clock_nanosleep, 1};

/// An event that still lacks the blocks of writer 1.
void half_an_event(stage& s) { s.send_from(0, s.new_open_event()); }
void other_half(stage& s) { s.send_from(1, s.made_events() - 1); }

void order_to(member& victim, order what, int a = 0) { victim.tell(what, a, true); }

// ---- the master ---------------------------------------------------------------------------------------------------

void start_the_others(stage& s, member& victim)
{
    if (victim.alive()) {
        victim.ask(order::make_data);
    } else {
        s.bring_up_master();
    }
    s.bring_up_all();
}

role init_new()
{
    role r{.name = "init_new"};
    r.readers_max = 1; // nobody else is there yet
    r.set_up = [](stage& s) -> member& { return s.start_master(); };
    r.begin = [](stage&, member& m) { order_to(m, order::join); };
    r.after = start_the_others;
    return r;
}

role init_forced()
{
    role r = init_new();
    r.name = "init_forced";
    r.set_up = [](stage& s) -> member& {
        member& small = s.start("small master");
        small.ask(order::become_small_master);
        small.ask(order::join);
        small.kill_now();
        return s.start_master();
    };
    return r;
}

role init_reused()
{
    role r = init_new();
    r.name = "init_reused";
    r.readers_max = 3;
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        half_an_event(s);
        s.master().kill_now();
        return s.start_master();
    };
    r.after = [](stage& s, member& victim) {
        if (victim.alive()) victim.ask(order::make_data);
        other_half(s);
    };
    return r;
}

role leave_master()
{
    role r{.name = "leave_master"};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        for (const auto& m : s.cast()) {
            if (m.get() == &s.master()) continue;
            m->end();
            m->subscribed = member::part::none;
        }
        return s.master();
    };
    r.begin = [](stage&, member& m) { order_to(m, order::leave); };
    r.after = [](stage& s, member& victim) {
        victim.end();
        s.bring_up_master();
        s.bring_up_all();
    };
    return r;
}

// ---- clients --------------------------------------------------------------------------------------------------------

role creator()
{
    role r{.name = "creator"};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        s.made = {MADE_NAMES[0], MADE_NAMES[1]};
        return s.bring_up_client("creator");
    };
    r.begin = [](stage&, member& m) { order_to(m, order::make_two); };
    r.after = [](stage& s, member& victim) {
        member& maker = victim.alive() ? victim : s.bring_up_client("next creator");
        if (maker.ask(order::make_two).answer < 0) s.say_broken("the next creator cannot make its partitions");
        if (maker.ask(order::use_two).answer < 0) s.say_broken("buffers of the made partitions cannot be had");
        s.master().ask(order::make_two); // which removes them in the end
    };
    return r;
}

role subscriber(const char* name, member::part part, order what, int kind)
{
    role r{.name = name};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        half_an_event(s);
        return s.bring_up_client("newcomer");
    };
    r.begin = [=](stage&, member& m) { order_to(m, what, kind); };
    r.after = [=](stage& s, member& victim) {
        other_half(s);
        victim.subscribed = part;
        victim.kind = kind;
        victim.since = s.made_events();
    };
    return r;
}

member& with_half_an_event(stage& s, member::part part)
{
    warm_up(s);
    half_an_event(s);
    return part == member::part::reader ? s.reader(0) : s.writer(1);
}

role leaver(const char* name, member::part part, order what)
{
    role r{.name = name};
    r.set_up = [=](stage& s) -> member& { return with_half_an_event(s, part); };
    r.begin = [=](stage&, member& m) { order_to(m, what); };
    r.after = [=](stage& s, member& victim) {
        if (victim.alive()) victim.subscribed = member::part::none;
        if (victim.alive() && what == order::leave) victim.end();
        if (part == member::part::reader) other_half(s);
    };
    return r;
}

role writer()
{
    role r{.name = "writer"};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        return s.writer(1);
    };
    r.begin = [](stage& s, member& m) {
        // It completes the first event and begins the second.
        const int event = s.new_open_event();
        s.new_open_event();
        s.send_from(0, event);
        order_to(m, order::write_two, event);
    };
    r.after = [](stage& s, member&) { s.send_from(0, s.made_events() - 1); };
    return r;
}

role reader()
{
    role r{.name = "reader", .main_thread = false, .counted = TWO_EVENTS};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        return s.reader(0);
    };
    r.begin = [](stage& s, member& m) {
        s.common().victim = m.number();
        // The first event's other readers are done before it, the second's are not.
        const int first = s.new_open_event();
        const int second = s.new_open_event();
        s.common().hold_from = second;
        for (const int event : {first, second}) {
            for (const int w : {0, 1}) s.send_from(w, event);
        }
    };
    return r;
}

// Its successor gets the slot that it had: to the monitor the dead reader's events look like those of a live one.
role reader_in_a_crowd()
{
    role r = reader();
    r.name = "reader_in_a_crowd";
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        member& crowd = s.bring_up_client("crowd");
        crowd.ask(order::crowd);
        crowd.subscribed = member::part::bystander;
        return s.reader(0);
    };
    return r;
}

role early()
{
    role r = reader();
    r.name = "early_return";
    r.readers_max = 1; // of events with one reader only
    const auto begin = r.begin;
    r.begin = [begin](stage& s, member& m) {
        s.common().early_from = s.made_events();
        begin(s, m);
    };
    return r;
}

role second_return()
{
    role r{.name = "second_return"};
    r.set_up = [](stage& s) -> member& {
        warm_up(s);
        return s.bring_up_client("holder");
    };
    r.begin = [](stage& s, member& m) {
        s.bring_up_client("rival").kind = s.writer(0).ask(order::take_one).answer;
        order_to(m, order::give_back, s.cast().back()->kind);
    };
    // Both have seen that the buffer is out; the other one is faster.
    r.at_first = [](stage& s, member&) { s.cast().back()->ask(order::give_back, s.cast().back()->kind); };
    // Queued twice, it is handed out twice to whoever takes all there are.
    r.after = [](stage& s, member&) { s.master().ask(order::use_data); };
    return r;
}

// ---- the monitor ----------------------------------------------------------------------------------------------------

role monitor(const char* name, const span& counted)
{
    role r{.name = name, .main_thread = false, .counted = counted};
    r.set_up = [](stage& s) -> member& {
        member& m = s.start_master(false);
        m.ask(order::join);
        m.ask(order::make_data);
        warm_up(s);
        return m;
    };
    r.begin = [](stage& s, member&) {
        // One event that its reader never takes, one that lacks a block; both processes are dead.
        member& deaf = s.reader(0);
        deaf.stop_at_rest();
        const int told = s.new_open_event();
        for (const int w : {0, 1}) s.send_from(w, told);
        deaf.kill_now();
        half_an_event(s);
        s.writer(1).kill_now();
    };
    return r;
}

std::vector<role> make_roles()
{
    using part = member::part;
    std::vector<role> roles{
        init_new(),
        init_reused(),
        init_forced(),
        creator(),
        subscriber("subscribe_reader", part::reader, order::subscribe_reader, 0),
        subscriber("subscribe_writer", part::writer, order::subscribe_writer, 2),
        writer(),
        reader(),
        reader_in_a_crowd(),
        early(),
        second_return(),
        monitor("monitor_clients", ONE_CYCLE),
        monitor("monitor_events", SUSPICIOUS_CYCLE),
        leaver("unsubscribe_reader", part::reader, order::unsubscribe_reader),
        leaver("unsubscribe_writer", part::writer, order::unsubscribe_writer),
        leaver("leave_reader", part::reader, order::leave),
        leaver("leave_writer", part::writer, order::leave),
        leave_master(),
    };
    for (role& r : roles) {
        if (r.main_thread) r.counted = BETWEEN_MARKS;
    }
    return roles;
}

} // namespace

const std::vector<role>& all_roles()
{
    static const std::vector<role> roles = make_roles();
    return roles;
}

const role* role_named(const std::string& name)
{
    for (const auto* some : {&all_roles(), &all_regions()}) {
        const auto at = std::find_if(some->begin(), some->end(), [&](const role& r) { return r.name == name; });
        if (at != some->end()) return &*at;
    }
    return nullptr;
}

} // namespace sweep
