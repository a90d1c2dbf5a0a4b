// From the records of a run to its figures.
#include "summary.h"

#include <algorithm>

namespace demo {
namespace {

double microseconds_at(const std::vector<int64_t>& sorted_ns, size_t percent)
{
    if (sorted_ns.empty()) return 0;
    return static_cast<double>(sorted_ns[(sorted_ns.size() - 1) * percent / 100]) / 1000;
}

/// Goes through the events in the order of their ticks, which is the order in which they were begun: every writer does
/// its ticks in order, and the first one of them begins the event.
class reader_count {
  public:
    reader_count(const reader_plan& plan, size_t number) : plan_(plan), number_(number)
    {
        sum_.name = plan.name;
        sum_.wants = plan.wants;
        blocks_ = plan.blocks.empty() ? blocks_per_event() : static_cast<int>(plan.blocks.size());
    }
    void event(int64_t tick, const tick_record& record)
    {
        const delivery& got = record.to[number_];
        const bool triggered = (plan_.trigger_mask & trigger_mask(tick)) != 0;
        if (got.times > 0) {
            delivered(got, triggered);
        } else if (plan_.time_ratio_us == 0 || triggered || overdue(record.to[EVERY_BLOCK])) {
            ++sum_.missing;
        }
    }
    reader_figures figures(const reader_record& record)
    {
        sum_.in_place = record.bytes_in_place;
        sum_.copied = record.bytes_copied;
        sum_.strangers = record.strangers;
        sum_.damaged = record.damaged;
        sum_.latency = percentiles_of(latencies_);
        return sum_;
    }

  private:
    void delivered(const delivery& got, bool triggered)
    {
        ++sum_.delivered;
        if (got.times > 1) ++sum_.repeated;
        if (got.blocks != blocks_) ++sum_.incomplete;
        if (plan_.time_ratio_us > 0) ++(triggered ? sum_.by_trigger : sum_.by_time);
        if (!triggered && plan_.time_ratio_us > 0 && early(got)) ++sum_.unexpected;
        last_begun_us_ = got.begun_us;
        last_done_us_ = got.done_us;
        latencies_.push_back(got.latency_ns);
    }
    // The exact moments of admission are known to the writers alone; on a busy host they differ from those noted here.
    // Half the time ratio and twice the time ratio are outside any such difference.
    bool early(const delivery& got) const
    {
        return last_begun_us_ > 0 && got.begun_us - last_begun_us_ < plan_.time_ratio_us / 2;
    }
    bool overdue(const delivery& seen_by_all) const
    {
        return last_done_us_ > 0 && seen_by_all.begun_us - last_done_us_ > 2 * plan_.time_ratio_us;
    }

    const reader_plan& plan_;
    size_t number_;
    int blocks_;
    int64_t last_begun_us_ = 0, last_done_us_ = 0;
    reader_figures sum_;
    std::vector<int64_t> latencies_;
};

void count_events(const run_record& record, run_figures& run)
{
    for (int64_t tick = 0; tick < run.begun; ++tick) {
        const int32_t blocks = record.ticks()[static_cast<size_t>(tick)].registered;
        run.blocks += blocks;
        if (blocks == run.blocks_expected) ++run.complete;
    }
}

void count_writer(const writer_record& record, run_figures& run)
{
    run.waits += record.waits;
    run.late += record.late;
    run.refused += record.refused;
}

run_control_figures control_of(const run_control_record& record, int64_t begun)
{
    run_control_figures control;
    for (size_t i = 0; i < RUN_EVENTS.size(); ++i) {
        const auto due = static_cast<uint64_t>(number_due(static_cast<run_event_kind>(i), begun));
        control.events.push_back({RUN_EVENTS[i].name, due, record.sent[i], record.received[i]});
    }
    control.channels = record.channels;
    control.by_name = record.by_name;
    control.values = record.values;
    control.strangers = record.strangers;
    control.mistaken = record.mistaken;
    control.not_copied = record.not_copied;
    return control;
}

} // namespace

percentiles percentiles_of(std::vector<int64_t>& latencies_ns)
{
    std::sort(latencies_ns.begin(), latencies_ns.end());
    return {microseconds_at(latencies_ns, 50), microseconds_at(latencies_ns, 99)};
}

run_figures count(const run_record& record)
{
    const run_head& head = record.head();
    run_figures run;
    run.ticks = static_cast<int64_t>(record.ticks().size());
    run.begun = head.gate.begun();
    run.blocks_expected = blocks_per_event();
    count_events(record, run);
    for (const writer_record& writer : head.writer) count_writer(writer, run);
    count_writer(head.control.writer, run);
    run.control = control_of(head.control, run.begun);
    for (size_t i = 0; i < READERS; ++i) {
        reader_count counted(readers()[i], i);
        for (int64_t tick = 0; tick < run.begun; ++tick) counted.event(tick, record.ticks()[static_cast<size_t>(tick)]);
        run.readers.push_back(counted.figures(head.reader[i]));
    }
    return run;
}

} // namespace demo
