// The promises.
#include "goals.h"

#include "scenarios.h"

namespace bench {
namespace {

constexpr const char* EVENTS = "events_per_second";
constexpr const char* COST = "processor_us";
constexpr const char* P50 = "p50_us";
constexpr const char* P99 = "p99_us";
constexpr const char* CALLS = "calls";

// Called with the scenario and the figure of the library, and whose the same figure is below.
quotient beside(const std::string& scenario, const char* figure, const std::string& other)
{
    return {{{scenario, LIBRARY, figure}}, {{scenario, other, figure}}};
}

bound at_most(std::string what, quotient q, double limit, double stretch = 0)
{
    return {std::move(what), std::move(q), true, limit, stretch};
}

bound at_least(std::string what, quotient q, double limit, double stretch = 0)
{
    return {std::move(what), std::move(q), false, limit, stretch};
}

constexpr double OF_BEST = 0.9;

goal calls()
{
    goal g{1, "calls per event, uncontended", {}};
    const auto shape = [&](const char* name, double formula, double stretch) {
        const std::string scenario = std::string("shape/") + name;
        g.bounds.push_back(
            at_most(std::string(name) + " / formula", {{{scenario, LIBRARY, CALLS}}, {}, 1 / formula}, 1, stretch));
    };
    shape("1/1/1", 35, 29.0 / 35);
    shape("2/2/2", 63, 0);
    shape("8/1/8", 140, 0);
    shape("8/3/8", 166, 0);
    return g;
}

goal latency(int number, const char* title, const std::string& scenario, double limit, double stretch)
{
    return {number,
            title,
            {at_most("p50 / strict", beside(scenario, P50, STRICT), limit, stretch),
             at_most("p50 / best", beside(scenario, P50, BEST), 1 / OF_BEST)}};
}

goal tail()
{
    const std::string one = "one/1KiB/1cpu";
    const quotient own{{{one, LIBRARY, P99}}, {{one, LIBRARY, P50}}};
    const quotient beside_best{{{one, LIBRARY, P99}, {one, BEST, P50}}, {{one, LIBRARY, P50}, {one, BEST, P99}}};
    return {4,
            "p99 / p50, one processor",
            {at_most("p99 / p50", own, 1.5, 1.2), at_most("p99 / p50, / that of best", beside_best, 1 / OF_BEST)}};
}

goal pipelined(int number, const char* title, const std::string& scenario, double limit, double stretch)
{
    return {number,
            title,
            {at_least("events/s / strict", beside(scenario, EVENTS, STRICT), limit, stretch),
             at_least("events/s / best", beside(scenario, EVENTS, BEST), OF_BEST)}};
}

struct limit_pair {
    double limit, stretch;
};

goal building(int number, const char* title, const std::string& scenario, limit_pair strict, limit_pair iceoryx,
              limit_pair zeromq)
{
    return {number,
            title,
            {at_least("events/s / strict", beside(scenario, EVENTS, STRICT), strict.limit, strict.stretch),
             at_least("events/s / iceoryx WaitSet", beside(scenario, EVENTS, "iceoryx_waitset"), iceoryx.limit,
                      iceoryx.stretch),
             at_least("events/s / iceoryx polling", beside(scenario, EVENTS, "iceoryx_polling"), iceoryx.limit,
                      iceoryx.stretch),
             at_least("events/s / best of ZeroMQ", beside(scenario, EVENTS, "zeromq_pushpull|zeromq_pubsub"),
                      zeromq.limit, zeromq.stretch)}};
}

goal third_reader()
{
    const quotient q{{{"building/8x64KiB/3readers", LIBRARY, EVENTS}}, {{"building/8x64KiB/1reader", LIBRARY, EVENTS}}};
    return {9, "3 readers / 1 reader, 8 writers", {at_least("events/s", q, 0.70, 0.9)}};
}

goal peers(int number, const char* title, const std::string& scenario, limit_pair zeromq, limit_pair stream,
           limit_pair boost, limit_pair iceoryx)
{
    const auto row = [&](const char* what, const char* subject, limit_pair p) {
        return at_least(what, beside(scenario, EVENTS, subject), p.limit, p.stretch);
    };
    return {number,
            title,
            {row("events/s / ZeroMQ", "zeromq_pushpull|zeromq_pubsub", zeromq),
             row("events/s / stream socket", "unix_stream", stream),
             row("events/s / Boost message_queue", "boost_queue", boost),
             row("events/s / iceoryx WaitSet", "iceoryx_waitset", iceoryx)}};
}

goal size_of_block()
{
    const quotient q{{{"handover/8MiB", LIBRARY, P50}}, {{"handover/1KiB", LIBRARY, P50}}};
    return {12, "hand-over of 8 MiB / of 1 KiB, one processor", {at_most("p50", q, 1.35)}};
}

goal configured()
{
    goal g{13, "event cost, large limits / small ones", {}};
    for (const char* readers : {"1", "5"}) {
        const std::string end = std::string("pipelined/") + readers;
        const quotient q{{{"limits/large/" + end, LIBRARY, COST}}, {{"limits/small/" + end, LIBRARY, COST}}};
        g.bounds.push_back(at_most("processor time, readers: " + std::string(readers), q, 1.05, 1.0));
    }
    return g;
}

// A call costs what it costs the strict reference, which makes 35 of them for an event and little else.
goal slopes()
{
    goal g{14, "slopes / formula", {}};
    const auto dimension = [&](const char* kind, double formula) {
        const std::string scenario = std::string("growth/") + kind + '/';
        g.bounds.push_back(at_most(std::string("calls per event in ") + kind,
                                   {{{scenario, LIBRARY, CALLS, true}}, {}, 1 / formula}, 1.1));
        g.bounds.push_back(at_most(std::string("processor time per event in ") + kind,
                                   {{{scenario, LIBRARY, COST, true}}, {{"growth/unit", STRICT, COST}}, 35 / formula},
                                   1.1));
    };
    dimension("writers", 3);
    dimension("readers", 13);
    dimension("blocks", 12);
    return g;
}

} // namespace

const std::vector<goal>& all_goals()
{
    static const std::vector<goal> all{
        calls(),
        latency(2, "one at a time, one processor", "one/1KiB/1cpu", 0.85, 0.75),
        latency(3, "one at a time, two processors", "one/1KiB/2cpu", 1.00, 0.90),
        tail(),
        pipelined(5, "pipelined, two processors", "pipelined/1KiB/2cpu", 4.0, 5.5),
        pipelined(6, "pipelined, one processor", "pipelined/1KiB/1cpu", 1.25, 1.45),
        building(7, "8 writers, 1 reader", "building/8x64KiB/1reader", {1.7, 2.0}, {0.9, 1.1}, {3.0, 3.5}),
        building(8, "8 writers, 3 readers", "building/8x64KiB/3readers", {1.7, 2.1}, {1.5, 2.0}, {5.0, 6.5}),
        third_reader(),
        peers(10, "pipelined 1 MiB", "pipelined/1MiB/2cpu", {7, 10}, {4, 5}, {2, 3}, {0.45, 0.8}),
        peers(11, "pipelined 8 MiB", "pipelined/8MiB/2cpu", {15, 0}, {7, 0}, {7, 0}, {0.75, 0}),
        size_of_block(),
        configured(),
        slopes(),
    };
    return all;
}

} // namespace bench
