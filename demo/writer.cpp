// A writer: samples the host at every tick and registers what it found, block by block.
#include "roles.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

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
        : run_(run), plan_(writers()[number]), mine_(run.record.head().writer[number]), line_(line)
    {
        for (const std::string& block : plan_.blocks) sources_.push_back({block, sampler_for(block)});
    }
    void join();
    /// @return false when a tick was given up.
    bool write_all();
    void leave();

  private:
    bool write(int64_t tick);
    bool write(int64_t tick, const source& from);
    char* take_buffer(int& number);
    zrk4::sb_label label(int64_t tick, const source& from) const;

    const run_context& run_;
    const writer_plan& plan_;
    writer_record& mine_;
    line_end& line_;
    BM bm_;
    int partition_ = -1;
    std::vector<source> sources_;
};

void block_feed::join()
{
    configure(bm_, run_.how);
    if (bm_.init()) throw std::runtime_error("writer: no slot partitions");
    const std::string name = partition_name(run_, plan_.partition);
    if (bm_.add(name.c_str())) throw std::runtime_error("writer: no partition " + name);
    partition_ = std::stoi(bm_.find_by_name(name.c_str())->getStat("shmid"));
    zrk4_client parameters{};
    std::list<std::string> names = plan_.blocks;
    if (bm_.subscribe(EVENT_TYPE, CLI_T_WRITER, &parameters, &names) < 1)
        throw std::runtime_error("writer: no client slot");
}

void block_feed::leave()
{
    bm_.unsubscribe(EVENT_TYPE, CLI_T_WRITER);
    bm_.all_clean_up();
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
    char* at = take_buffer(number);
    if (at == nullptr) return false;
    block_writer block(at, BUFFER_BYTES, run_.how.records_2024, label(tick, from));
    from.measured_by->sample(block);
    block.seal(monotonic_ns);
    // Refused, the buffer may already belong to somebody else: it is not given back here, and the balance will tell.
    if (bm_.ev_update(EVENT_TYPE, partition_, number)) {
        ++mine_.refused;
    } else {
        ++run_.record.ticks()[static_cast<size_t>(tick)].registered;
    }
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

// The partition's id goes in: without it the pool would also hand out a free event slot as a buffer.
char* block_feed::take_buffer(int& number)
{
    while (true) {
        if (char* at = bm_.get_buffer_from_pool(BM_NO_WAIT, BUFFER_BYTES, &partition_, &number)) return at;
        ++mine_.waits;
        if (line_.hear(1) != line_end::NOTHING) return nullptr; // told to leave, or left alone
    }
}

} // namespace

int be_writer(const run_context& run, size_t number, line_end& line)
{
    block_feed feed(run, number, line);
    feed.join();
    line.say(line_end::READY);
    if (line.hear() != line_end::GO) return 0;
    if (!feed.write_all()) return 2;
    line.say(line_end::FINISHED);
    line.hear(); // the client slot must stay until the last event is over
    feed.leave();
    return 0;
}

} // namespace demo
