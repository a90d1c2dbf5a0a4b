// A writer: samples the host at every tick and registers what it found, block by block.
#include "roles.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "outlet.h"
#include "samplers.h"

namespace demo {
namespace {

struct source {
    const std::string& block;
    std::unique_ptr<sampler> measured_by;
};

class block_feed {
  public:
    block_feed(const run_context& run, size_t number, line_end& line)
        : run_(run), plan_(writers()[number]), mine_(run.record.head().writer[number]), out_(run, mine_, line)
    {
        for (const std::string& block : plan_.blocks) sources_.push_back({block, sampler_for(block)});
    }
    void join();
    /// @return false when a tick was given up.
    bool write_all();
    void leave() { out_.leave(); }

  private:
    bool write(int64_t tick);
    bool write(int64_t tick, const source& from);
    zrk4::sb_label label(int64_t tick, const source& from) const;

    const run_context& run_;
    const writer_plan& plan_;
    writer_record& mine_;
    outlet out_;
    std::vector<source> sources_;
};

void block_feed::join()
{
    out_.join(plan_.partition, BUFFER_BYTES);
    out_.subscribe(EVENT_TYPE, plan_.blocks);
}

// A tick is never skipped, however late it is: the other writers' blocks of it wait for ours.
bool block_feed::write_all()
{
    run_head& head = run_.record.head();
    const auto ticks = static_cast<int64_t>(run_.record.ticks().size());
    for (int64_t tick = 0; tick < ticks; ++tick) {
        head.clock.wait_for(tick);
        if (!head.gate.enter(tick)) return true;
        if (!write(tick)) return false;
    }
    return true;
}

bool block_feed::write(int64_t tick)
{
    return std::all_of(sources_.begin(), sources_.end(), [&](const source& from) { return write(tick, from); });
}

bool block_feed::write(int64_t tick, const source& from)
{
    int number = -1;
    char* at = out_.take_buffer(number);
    if (at == nullptr) return false;
    block_writer block(at, BUFFER_BYTES, run_.how.records_2024, label(tick, from));
    from.measured_by->sample(block);
    block.seal(monotonic_ns);
    if (out_.enter(EVENT_TYPE, number)) ++run_.record.ticks()[static_cast<size_t>(tick)].registered;
    return true;
}

zrk4::sb_label block_feed::label(int64_t tick, const source& from) const
{
    const tick_clock& clock = run_.record.head().clock;
    const bool late = monotonic_ns() - clock.due_ns(tick) > PERIOD_US * 1000;
    if (late) ++mine_.late;
    return {from.block.c_str(), clock.key(tick), clock.event_id(tick, run_.how.records_2024), trigger_mask(tick),
            late ? block_writer::LATE : 0};
}

} // namespace

int be_writer(const run_context& run, size_t number, line_end& line)
{
    block_feed feed(run, number, line);
    return write_when_told(feed, line);
}

} // namespace demo
