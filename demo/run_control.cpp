// The run control: says when the run begins and ends, and sends the slow channels meanwhile.
#include "roles.h"

#include <vector>

#include "outlet.h"
#include "slow_channels.h"
#include "slow_source.h"

namespace demo {
namespace {

class run_control {
  public:
    run_control(const run_context& run, line_end& line)
        : run_(run), mine_(run.record.head().control), out_(run, mine_.writer, line)
    {
    }
    void join();
    /// @return false when it was told to leave before the end.
    bool write_all();
    void leave() { out_.leave(); }

  private:
    bool send_ticks(int64_t& tick);
    template <class Fill> bool send(run_event_kind kind, int64_t tick, Fill fill);
    bool begin();
    bool end(int64_t tick);
    bool environment(int64_t tick);
    bool update(int64_t tick);
    slow_values properties(int64_t tick);

    const run_context& run_;
    run_control_record& mine_;
    outlet out_;
    slow_source host_;
    slow_channels channels_{host_.measure(), MOST_SLOW_CHANNELS};
};

void run_control::join()
{
    out_.join(RUN_PARTITION, RUN_BUFFER_BYTES);
    for (const run_event& event : RUN_EVENTS) out_.subscribe(event.type, {RUN_BLOCK});
}

bool run_control::write_all()
{
    int64_t tick = 0;
    return begin() && send_ticks(tick) && end(tick);
}

bool run_control::send_ticks(int64_t& tick)
{
    run_head& head = run_.record.head();
    const auto ticks = static_cast<int64_t>(run_.record.ticks().size());
    for (; tick < ticks; ++tick) {
        head.clock.wait_for(tick);
        if (!head.gate.enter(tick)) return true;
        if (due(ENVIRONMENT, tick, ticks) && !environment(tick)) return false;
        if (due(UPDATE, tick, ticks) && !update(tick)) return false;
    }
    return true;
}

/// An event of one block, of the generation that the whole run has.
template <class Fill> bool run_control::send(run_event_kind kind, int64_t tick, Fill fill)
{
    int number = -1;
    char* at = out_.take_buffer(number);
    if (at == nullptr) return false;
    const tick_clock& clock = run_.record.head().clock;
    const bool form_2024 = run_.how.records_2024;
    zrk4::sb_write block(at, RUN_BUFFER_BYTES, form_2024 ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010,
                         {RUN_BLOCK, clock.key(tick), clock.event_id(tick, form_2024), EVERY_TICK});
    fill(block, clock.key(tick));
    block.finish();
    if (out_.enter(RUN_EVENTS[kind].type, number) && block.complete()) ++mine_.sent[kind];
    return true;
}

bool run_control::begin()
{
    mine_.channels = channels_.size();
    return send(BEGIN, 0, [this](zrk4::sb_write& block, time_stamp key) {
        channels_.put_dictionary(block);
        block.begin_of_run("RUN");
        put_update(block, properties(0), key);
    });
}

bool run_control::end(int64_t tick)
{
    return send(END, tick, [&](zrk4::sb_write& block, time_stamp key) {
        put_update(block, properties(tick), key);
        block.end_of_run("RUN");
    });
}

bool run_control::environment(int64_t tick)
{
    return send(ENVIRONMENT, tick, [this](zrk4::sb_write& block, time_stamp key) {
        channels_.put_environment(block, host_.measure(), key);
    });
}

bool run_control::update(int64_t tick)
{
    return send(UPDATE, tick, [&](zrk4::sb_write& block, time_stamp key) { put_update(block, properties(tick), key); });
}

slow_values run_control::properties(int64_t tick)
{
    slow_values all{{"run ticks", static_cast<float>(tick), 0}};
    host_.add_properties(all);
    return all;
}

} // namespace

int be_run_control(const run_context& run, line_end& line)
{
    run_control control(run, line);
    return write_when_told(control, line);
}

} // namespace demo
