// A reader: checks every event that it is given, where it lies, and notes what it found.
#include "roles.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include <unistd.h>

#include "event_facts.h"
#include "in_place.h"
#include "live_table.h"
#include "slow_reader.h"

namespace demo {
namespace {

bool same(time_stamp one, time_stamp other) { return one.timeup == other.timeup && one.timelow == other.timelow; }

/// The callback runs in the reader thread of the buffer manager.
class event_reader : public BM {
  public:
    event_reader(const run_context& run, size_t number, live_table* table)
        : run_(run), number_(number), plan_(readers()[number]), mine_(run.record.head().reader[number]), table_(table)
    {
        if (table != nullptr) slow_.emplace(*this, run.how.records_2024, run.record.head().control, *table);
    }
    ~event_reader() override { all_clean_up(); } // ends the thread before what it uses
    void join();
    void leave();
    void event_handler(void* head, zrk4_client_sblock_data* first) override;

  private:
    struct found {
        int blocks = 0;
        int64_t last_registered_ns = 0;
    };
    std::optional<int64_t> tick_of(const event_facts& event) const;
    bool wants(const zrk4_client_sblock_data& entry) const;
    void read(const zrk4_client_sblock_data& entry, const event_facts& event, found& sum);
    bool check(const zrk4::sb_view& block, const event_facts& event, found& sum) const;
    void note(size_t tick, const event_facts& event, const found& sum, int64_t called_ns);

    const run_context& run_;
    size_t number_;
    const reader_plan& plan_;
    reader_record& mine_;
    live_table* table_;
    std::optional<slow_reader> slow_; ///< follows the run control
    attached_segments segments_;
};

void event_reader::join()
{
    configure(*this, run_.how);
    if (init()) throw std::runtime_error("reader: no slot partitions");
    zrk4_client parameters{};
    parameters.time_ratio = {static_cast<uint32_t>(plan_.time_ratio_us / 1'000'000),
                             static_cast<uint32_t>(plan_.time_ratio_us % 1'000'000)};
    parameters.tmask = plan_.trigger_mask;
    std::list<std::string> names = plan_.blocks;
    bool joined = subscribe(EVENT_TYPE, CLI_T_READER, &parameters, &names) > 0;
    for (const run_event& event : RUN_EVENTS)
        joined = joined && (!slow_ || subscribe(event.type, CLI_T_READER, &parameters, nullptr) > 0);
    if (!joined) throw std::runtime_error("reader: no client slot");
}

void event_reader::leave()
{
    unsubscribe(EVENT_TYPE, CLI_T_READER);
    for (const run_event& event : RUN_EVENTS) unsubscribe(event.type, CLI_T_READER);
    all_clean_up();
}

void event_reader::event_handler(void* head, zrk4_client_sblock_data* first)
{
    const int64_t called_ns = monotonic_ns();
    const event_facts event = facts_of(head, run_.how.records_2024);
    const std::optional<int64_t> tick = tick_of(event);
    const int64_t begun = run_.record.head().gate.begun();
    if (slow_ && event.type != EVENT_TYPE) {
        const auto kind = run_event_of(event.type);
        slow_->event(head, first, event, tick && kind && due(*kind, *tick, begun));
        return;
    }
    if (event.type != EVENT_TYPE || !tick || *tick >= begun) {
        ++mine_.strangers;
        return;
    }
    found sum;
    for (int i = 0; i < event.blocks; ++i) {
        if (wants(first[i])) read(first[i], event, sum);
    }
    note(static_cast<size_t>(*tick), event, sum, called_ns);
}

// Both of an event's keys name one tick.
std::optional<int64_t> event_reader::tick_of(const event_facts& event) const
{
    const tick_clock& clock = run_.record.head().clock;
    const std::optional<int64_t> tick = clock.tick_at(event.key);
    return tick && event.id == clock.event_id(*tick, run_.how.records_2024) ? tick : std::nullopt;
}

// An entry without a buffer stands for a block that no writer will bring; the count of blocks shows it as missing.
bool event_reader::wants(const zrk4_client_sblock_data& entry) const
{
    if (entry.shmid == 0 || entry.bnum == -1) return false;
    const std::string_view name(entry.name, strnlen(entry.name, sizeof entry.name));
    return plan_.blocks.empty() || std::find(plan_.blocks.begin(), plan_.blocks.end(), name) != plan_.blocks.end();
}

void event_reader::read(const zrk4_client_sblock_data& entry, const event_facts& event, found& sum)
{
    const zrk4::sb_view block = zrk4::sb_of(*this, entry);
    if (!check(block, event, sum)) {
        ++mine_.damaged;
        return;
    }
    const auto bytes = static_cast<size_t>(block.head().ltotal);
    const bool in_place = segments_.hold(block.data(), bytes, entry.shmid);
    (in_place ? mine_.bytes_in_place : mine_.bytes_copied) += bytes;
    if (table_ == nullptr) return;
    for (const zrk4::sb_sub& channel : block) table_->channel(block.server(), channel);
}

// Every byte of the block is read here: the stamp holds the sum of all that the writer put behind it.
bool event_reader::check(const zrk4::sb_view& block, const event_facts& event, found& sum) const
{
    if (!block.sound() || !same(block.head().time, event.key) || block.head().mpulse != event.id) return false;
    const std::optional<int64_t> registered = registered_ns(block);
    if (!registered) return false;
    sum.last_registered_ns = std::max(sum.last_registered_ns, *registered);
    ++sum.blocks;
    return true;
}

void event_reader::note(size_t tick, const event_facts& event, const found& sum, int64_t called_ns)
{
    delivery& to = run_.record.ticks()[tick].to[number_];
    ++to.times;
    to.blocks = sum.blocks;
    to.latency_ns = called_ns - sum.last_registered_ns;
    to.begun_us = event.begun_us;
    if (table_ != nullptr) table_->event(static_cast<int64_t>(tick), to.latency_ns);
    to.done_us = wall_clock_us();
}

void show_until_told(live_table& table, line_end& line)
{
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    while (line.hear(terminal ? 200 : 1000) == line_end::NOTHING) {
        std::fputs((terminal ? table.picture() : table.log_line()).c_str(), stdout);
        std::fflush(stdout);
    }
}

} // namespace

int be_reader(const run_context& run, size_t number, line_end& line)
{
    live_table table(host_quantities(), host_slow_quantities());
    const bool shows = number == EVERY_BLOCK;
    event_reader reader(run, number, shows ? &table : nullptr);
    reader.join();
    line.say(line_end::READY);
    if (line.hear() != line_end::GO) return 0;
    if (shows) {
        show_until_told(table, line);
    } else {
        line.hear();
    }
    reader.leave();
    return 0;
}

} // namespace demo
