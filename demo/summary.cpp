// What is wrong with the figures of a run, and the figures as text.
#include "summary.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace demo {
namespace {

class text {
  public:
    __attribute__((format(printf, 2, 3))) text& line(const char* format, ...)
    {
        char buffer[512];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(buffer, sizeof buffer, format, arguments);
        va_end(arguments);
        lines_.emplace_back(buffer);
        return *this;
    }
    const std::vector<std::string>& lines() const { return lines_; }
    std::string whole() const
    {
        std::string all;
        for (const std::string& one : lines_) all += one + "\n";
        return all;
    }

  private:
    std::vector<std::string> lines_;
};

void none_of(text& found, const reader_figures& reader, const char* what, uint64_t number)
{
    if (number != 0) found.line("reader %s: %" PRIu64 " %s", reader.name.c_str(), number, what);
}

void judge_reader(text& found, const reader_figures& reader)
{
    const auto events = [](int64_t number) { return static_cast<uint64_t>(number); };
    none_of(found, reader, "events missing", events(reader.missing));
    none_of(found, reader, "events delivered more than once", events(reader.repeated));
    none_of(found, reader, "events without all the blocks that it wants", events(reader.incomplete));
    none_of(found, reader, "events that were not due to it", events(reader.unexpected));
    none_of(found, reader, "events that are no tick of this run", reader.strangers);
    none_of(found, reader, "blocks damaged", reader.damaged);
    none_of(found, reader, "bytes not read in place", reader.copied);
    if (reader.delivered > 0 && reader.in_place == 0) found.line("reader %s: nothing read", reader.name.c_str());
}

void judge_events(text& found, const run_figures& run)
{
    if (run.begun == 0 && !run.interrupted) found.line("no event was begun");
    if (run.begun != run.ticks && !run.interrupted)
        found.line("%" PRId64 " events begun instead of %" PRId64, run.begun, run.ticks);
    if (run.complete != run.begun)
        found.line("%" PRId64 " of %" PRId64 " events without all their blocks", run.begun - run.complete, run.begun);
    if (run.blocks != run.begun * run.blocks_expected)
        found.line("%" PRId64 " blocks registered instead of %" PRId64, run.blocks, run.begun * run.blocks_expected);
    if (run.refused != 0) found.line("%" PRIu64 " blocks refused", run.refused);
}

void judge_control(text& found, const run_control_figures& control, bool has_events)
{
    const auto none_of = [&](const char* what, uint64_t number) {
        if (number != 0) found.line("run control: %" PRIu64 " %s", number, what);
    };
    for (const run_event_figures& one : control.events) {
        if (one.sent != one.due)
            found.line("run control: %" PRIu64 " %s events sent instead of %" PRIu64, one.sent, one.name.c_str(),
                       one.due);
        if (one.received != one.sent)
            found.line("run control: %" PRIu64 " %s events received of %" PRIu64, one.received, one.name.c_str(),
                       one.sent);
    }
    if (control.channels == 0) found.line("run control: no slow channel in the dictionary");
    if (has_events && control.by_name != control.channels)
        found.line("run control: %" PRIu64 " of %" PRIu64 " slow channels read by name", control.by_name,
                   control.channels);
    none_of("events that were not due", control.strangers);
    none_of("values not as they were sent", control.mistaken);
    none_of("events or blocks that the local copies did not take", control.not_copied);
}

void judge_partition(text& found, const partition_balance& part)
{
    if (part.whole()) return;
    if (part.shmid < 0) {
        found.line("partition %s: not found", part.name.c_str());
        return;
    }
    found.line("partition %s: %d in the free queue, semaphore 1 at %d, instead of %d", part.name.c_str(), part.queued,
               part.countable, part.expected());
}

void print_reader(text& out, const reader_figures& reader)
{
    const char* name = reader.name.c_str();
    out.line("  reader %s   delivered %" PRId64 "   missing %" PRId64 "   (%s)", name, reader.delivered, reader.missing,
             reader.wants.c_str());
    if (reader.by_trigger + reader.by_time > 0)
        out.line("             by trigger %" PRId64 "   by time %" PRId64, reader.by_trigger, reader.by_time);
    out.line("             bytes in place %" PRIu64 "   copied %" PRIu64, reader.in_place, reader.copied);
    out.line("             last block to callback  p50 %.1f us   p99 %.1f us", reader.latency.p50_us,
             reader.latency.p99_us);
}

void print_control(text& out, const run_control_figures& control)
{
    std::string events;
    for (const run_event_figures& one : control.events)
        events += "   " + one.name + " " + std::to_string(one.sent) + "/" + std::to_string(one.received);
    out.line("  run control%s   (sent/received)", events.c_str());
    out.line("             slow channels in the dictionary %" PRIu64 "   read by name %" PRIu64 "   values %" PRIu64,
             control.channels, control.by_name, control.values);
}

void print_partitions(text& out, const std::vector<partition_balance>& partitions)
{
    out.line("  %-28s %9s %11s %12s %9s", "partition", "buffers", "free queue", "semaphore 1", "expected");
    for (const partition_balance& part : partitions)
        out.line("  %-28s %9d %11d %12d %9d  %s", part.name.c_str(), part.buffers, part.queued, part.countable,
                 part.expected(), part.whole() ? "whole" : "NOT WHOLE");
}

} // namespace

std::vector<std::string> complaints(const run_figures& run)
{
    text found;
    judge_events(found, run);
    for (const reader_figures& reader : run.readers) judge_reader(found, reader);
    judge_control(found, run.control, run.begun > 0);
    if (run.partitions.empty()) found.line("no partition was looked at");
    for (const partition_balance& part : run.partitions) judge_partition(found, part);
    for (const std::string& failure : run.failures) found.line("%s", failure.c_str());
    return found.lines();
}

std::string summary_text(const run_figures& run)
{
    text out;
    const double per_event = run.begun == 0 ? 0 : static_cast<double>(run.blocks) / static_cast<double>(run.begun);
    out.line("summary%s", run.interrupted ? " (interrupted)" : "");
    out.line("  events     begun %" PRId64 "   complete %" PRId64 "   blocks per event %.2f of %d", run.begun,
             run.complete, per_event, run.blocks_expected);
    out.line("  writers    waited for a buffer %" PRIu64 "   samples behind their tick %" PRIu64 "   refused %" PRIu64,
             run.waits, run.late, run.refused);
    for (const reader_figures& reader : run.readers) print_reader(out, reader);
    print_control(out, run.control);
    print_partitions(out, run.partitions);
    const std::vector<std::string> wrong = complaints(run);
    for (const std::string& one : wrong) out.line("  WRONG: %s", one.c_str());
    if (wrong.empty()) out.line("  all accounted for");
    return out.whole();
}

} // namespace demo
