#include "conductor.h"

#include <list>
#include <string>

namespace bench {
namespace {

void be_reader(const plan& p, const cast& roles, int index, const line_end& line)
{
    event_log log(p);
    roles.reader(index, log, [&] { line.nod(); });
    line.say(log.report());
    line.await_nod();
}

void be_writer(const cast& roles, int index, const line_end& line)
{
    const auto done = [&](int64_t used_ns) {
        line.say(used_ns);
        line.await_nod();
    };
    roles.writer(
        index, [&] { stand_by(line); }, done);
}

template <class Body> void start(std::list<process>& group, const std::string& name, int processor, Body body)
{
    group.emplace_back(name, processor, [&](line_end& line) { body(line); });
    group.back().await_nod();
}

int64_t used_by(const std::list<process>& group)
{
    int64_t all_ns = 0;
    for (const process& one : group) all_ns += one.processor_time_ns();
    return all_ns;
}

void end(std::list<process>& group)
{
    for (process& one : group) one.end();
}

} // namespace

void stand_by(const line_end& line)
{
    line.nod();
    line.await_nod();
}

reading perform(const plan& p, const cast& roles)
{
    std::list<process> helpers;
    std::list<process> readers;
    std::list<process> writers;
    for (const auto& body : roles.helpers) start(helpers, "helper", p.writer_processor, body);
    for (int k = 0; k < p.readers; ++k)
        start(readers, "reader", p.processor_of_reader(k), [&](line_end& line) { be_reader(p, roles, k, line); });
    for (int i = 0; i < p.writers; ++i)
        start(writers, "writer", p.processor_of_writer(i), [&](line_end& line) { be_writer(roles, i, line); });
    const int64_t helpers_before_ns = used_by(helpers);
    for (process& one : writers) one.nod();

    int64_t used_ns = 0;
    for (process& one : writers) used_ns += one.hear<int64_t>();
    std::vector<reader_report> reports;
    for (process& one : readers) reports.push_back(one.hear<reader_report>());
    // What helpers do, they do for the events of the warm-up as well.
    const reader_report& first = reports.front();
    if (first.seen > 0) used_ns += (used_by(helpers) - helpers_before_ns) * first.intervals / first.seen;
    end(writers);
    end(readers);
    helpers.reverse(); // who came first is needed longest
    end(helpers);
    return combined(reports, used_ns);
}

} // namespace bench
