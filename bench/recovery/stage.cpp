#include "stage.h"

#include <cstdio>
#include <cstring>
#include <list>
#include <string>

#include "bm_check.h"
#include "statistics.h"

namespace bench {
namespace {

constexpr ZRK4_EVTYPE EVENT = ZRK4_EV_NORMAL;
constexpr ZRK4_EVTYPE OTHER_EVENT = ZRK4_EV_HB;
constexpr int64_t HALF_A_MINUTE_NS = 30'000'000'000;

int subscribed(BM& bm, ZRK4_EVTYPE type, BUF_MNG_CLI_TYPE as, std::list<std::string> names)
{
    zrk4_client every_event{};
    const int slot = bm.subscribe(type, as, &every_event, &names);
    require(slot >= 1, "cannot subscribe");
    return slot;
}

void join(BM& bm, const limits& room = {})
{
    configure(bm, room);
    require(!bm.init(), "no master");
}

class stuck_reader : public BM {
  public:
    explicit stuck_reader(line_end& line) : line_(line) {}
    void event_handler(void* /*head*/, zrk4_client_sblock_data* /*first*/) override
    {
        line_.nod();
        while (true) pause();
    }

  private:
    line_end& line_;
};

void register_block(BM& bm, int partition, int64_t number)
{
    constexpr auto BYTES = static_cast<int>(sizeof(zrk4_serv_block_head_2024));
    int buffer = -1;
    char* block = bm.get_buffer_from_pool(/*flags=*/4, BYTES, &partition, &buffer);
    require(block != nullptr, "no buffer");
    const zrk4_serv_block_head_2024 head = head_of("A", number, BYTES);
    std::memcpy(block, &head, sizeof head);
    require(!bm.ev_update(EVENT, partition, buffer), "a block was refused");
}

int data_partition(BM& bm, int buffers)
{
    const int id = bm.add("BENCH_DATA", buffers, sizeof(zrk4_serv_block_head_2024), /*sems=*/false);
    require(id >= 1, "no data partition could be made");
    return id;
}

limits full_limits()
{
    limits room;
    room.client_slots = FULL_CLIENTS;
    room.event_slots = FULL_EVENTS;
    room.blocks = 2;
    return room;
}

// Takes all slots: one client that writes, all others of another type; every event lacks a block for good.
void be_crowd(line_end& line)
{
    BM bm;
    join(bm, full_limits());
    subscribed(bm, EVENT, CLI_T_WRITER, {"A", "never written"});
    for (int i = 1; i < FULL_CLIENTS; ++i) subscribed(bm, OTHER_EVENT, CLI_T_WRITER, {});
    const int partition = data_partition(bm, FULL_EVENTS);
    for (int number = 0; number < FULL_EVENTS; ++number) register_block(bm, partition, number);
    line.nod();
    line.await_nod();
}

// A master whose monitor rests, and the crowd.
process full_host(BM& bm)
{
    configure(bm, full_limits());
    bm.set_monitoring_period(1000);
    require(!bm.set_master(true) && !bm.init(), "no slot partitions could be made");
    bm.stop_monitor();
    return process("crowd", allowed_processors().front(), be_crowd);
}

// What this process has written to standard output, a file here, from `offset` on.
std::string said_since(off_t offset)
{
    std::fflush(stdout);
    std::string text(1 << 16, '\0');
    const ssize_t length = pread(STDOUT_FILENO, text.data(), text.size(), offset);
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text;
}

std::vector<double> durations_in(const std::string& text)
{
    std::vector<double> all;
    const std::string before = "took: ";
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1))
        all.push_back(std::strtod(text.c_str() + at + before.size(), nullptr));
    return all;
}

} // namespace

void be_master(line_end& line, int period_us)
{
    BM bm;
    configure(bm, limits{});
    bm.set_monitoring_period(period_us);
    require(!bm.set_master(true) && !bm.init(), "no slot partitions could be made");
    line.nod();
    line.await_nod();
}

stage::stage(int processor, int period_us)
    : master_("master", processor, [=](line_end& line) { be_master(line, period_us); })
{
    master_.await_nod();
}

stage::~stage()
{
    try {
        master_.end();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
}

void be_idle_reader(line_end& line)
{
    BM bm;
    join(bm);
    line.say(subscribed(bm, EVENT, CLI_T_READER, {}));
    line.await_nod();
}

void be_stuck_reader(line_end& line)
{
    stuck_reader bm(line);
    join(bm);
    subscribed(bm, EVENT, CLI_T_READER, {});
    line.nod();
    while (true) pause();
}

void write_one_event(line_end& line)
{
    BM bm;
    join(bm);
    const int partition = data_partition(bm, 1);
    subscribed(bm, EVENT, CLI_T_WRITER, {"A"});
    register_block(bm, partition, 0);
    line.await_nod();
}

void owe_a_block(line_end& line)
{
    BM bm;
    join(bm);
    const int partition = data_partition(bm, 1);
    subscribed(bm, EVENT, CLI_T_WRITER, {"A", "owed"});
    register_block(bm, partition, 0);
    line.nod();
    line.await_nod();
}

void wait_until_free(const C_shm_buffer& part, int number)
{
    for (const int64_t until = now_ns() + HALF_A_MINUTE_NS; !part.get_bufptr()[number].queued(); usleep(200))
        require(now_ns() < until, "a slot never came back");
}

double full_monitor_cycle_ms()
{
    BM bm;
    process crowd = full_host(bm);
    crowd.await_nod();
    ZRK4_DAQ_BM_DEBUG = -4000; // the monitor tells how long each cycle took
    const auto offset = static_cast<off_t>(said_since(0).size());
    require(!bm.start_monitor(), "no monitor");
    // The first cycle copies the heads, nine compare them; from the eleventh on the events count as suspicious.
    std::vector<double> durations;
    for (const int64_t until = now_ns() + HALF_A_MINUTE_NS; durations.size() < 10; usleep(1000)) {
        durations = durations_in(said_since(offset));
        require(now_ns() < until, "the monitor does not run");
    }
    bm.stop_monitor();
    ZRK4_DAQ_BM_DEBUG = 0;
    crowd.end();
    durations.resize(10);
    return spread_of(durations).median;
}

double full_check_ms()
{
    BM bm;
    process crowd = full_host(bm);
    crowd.await_nod();
    bm_check_request all;
    all.repair = true;
    all.records_2024 = true;
    all.observe = {};
    const int64_t start = now_ns();
    const bm_check_report report = bm_check(all);
    const double took = static_cast<double>(now_ns() - start) / 1e6;
    require(report.complete() && report.clean(), "a sound host was not found so");
    crowd.end();
    return took;
}

} // namespace bench
