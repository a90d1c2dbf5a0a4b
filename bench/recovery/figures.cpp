#include "figures.h"

#include "C_shm_kill.h"
#include "stage.h"

namespace bench {
namespace {

constexpr int PERIOD_US = 100'000;

double milliseconds_since(int64_t start_ns) { return static_cast<double>(now_ns() - start_ns) / 1e6; }
double periods_since(int64_t start_ns) { return milliseconds_since(start_ns) * 1000 / PERIOD_US; }

double lock_of_a_killed_process(int processor)
{
    C_shm_buffer part("BENCH_LOCK", /*nbuf=*/2, /*lbuf=*/64, /*sems=*/true);
    const process holder("holder", processor, [](line_end& line) {
        const C_shm_buffer own("BENCH_LOCK");
        require(own.ctrl(1, true), "no lock");
        line.nod();
        line.await_nod();
    });
    holder.await_nod();
    const int64_t start = now_ns();
    holder.kill();
    while (!part.ctrl(1, true)) {}
    const double took = milliseconds_since(start);
    part.ctrl(1, false);
    part.release();
    const C_shm_kill removed("BENCH_LOCK"); // the dead holder still counts as a user: nobody is the last one
    return took;
}

double client_slot_of_a_killed_reader(int processor)
{
    const stage host(processor, PERIOD_US);
    process reader("reader", processor, [](line_end& line) { be_idle_reader(line); });
    const int slot = reader.hear<int>();
    const C_shm_buffer clients(CLIENT_PARTITION);
    const int64_t start = now_ns();
    reader.kill();
    reader.reap();
    wait_until_free(clients, slot);
    return periods_since(start);
}

double event_slot_of_a_killed_reader(int processor)
{
    const stage host(processor, PERIOD_US);
    process reader("reader", processor, [](line_end& line) { be_stuck_reader(line); });
    reader.await_nod(); // subscribed
    process writer("writer", processor, [](line_end& line) { write_one_event(line); });
    reader.await_nod(); // in its handler
    const C_shm_buffer events(EVENT_PARTITION);
    constexpr int FIRST = 1;
    require(!events.get_bufptr()[FIRST].queued(), "the event is over before the reader is killed");
    const int64_t start = now_ns();
    reader.kill();
    reader.reap();
    wait_until_free(events, FIRST);
    const double took = periods_since(start);
    writer.end();
    return took;
}

double event_slot_of_a_killed_writer(int processor)
{
    const stage host(processor, PERIOD_US);
    process reader("reader", processor, [](line_end& line) { be_idle_reader(line); });
    reader.hear<int>();
    process writer("writer", processor, [](line_end& line) { owe_a_block(line); });
    writer.await_nod();
    const C_shm_buffer events(EVENT_PARTITION);
    constexpr int FIRST = 1;
    require(!events.get_bufptr()[FIRST].queued(), "there is no event that misses a block");
    const int64_t start = now_ns();
    writer.kill();
    writer.reap();
    wait_until_free(events, FIRST);
    const double took = periods_since(start);
    reader.end();
    const C_shm_kill removed("BENCH_DATA"); // the dead writer still counts as a user
    return took;
}

double master_after_a_killed_one(int processor)
{
    process killed("first master", processor, [](line_end& line) { be_master(line, PERIOD_US); });
    killed.await_nod();
    killed.kill();
    killed.reap();
    const int64_t start = now_ns();
    const stage host(processor, PERIOD_US);
    return milliseconds_since(start);
}

// In a process of its own: the caller must be able to fork on.
double told_by(int processor, double (*measure)())
{
    process child("measurement", processor, [&](line_end& line) {
        line.say(measure());
        line.await_nod();
    });
    const auto value = child.hear<double>();
    child.end();
    return value;
}

double stop_of_the_monitor()
{
    BM bm;
    configure(bm, limits{});
    require(!bm.set_master(true) && !bm.init(), "no slot partitions could be made");
    usleep(10'000); // it sleeps by now
    const int64_t start = now_ns();
    bm.stop_monitor();
    return milliseconds_since(start);
}

double stop_of_the_reader()
{
    BM bm;
    require(!bm.start_reader(), "no reader thread");
    usleep(10'000); // it waits by now
    const int64_t start = now_ns();
    bm.stop_reader();
    return milliseconds_since(start);
}

} // namespace

std::vector<figure> recovery_figures(int processor)
{
    const auto cycle = [=] { return told_by(processor, full_monitor_cycle_ms); };
    constexpr double DEFAULT_PERIOD_MS = 500;
    return {
        {"lock of a killed process is free", "ms", 10, [=] { return lock_of_a_killed_process(processor); }},
        {"client slot of a killed reader is free", "periods", 2,
         [=] { return client_slot_of_a_killed_reader(processor); }},
        {"event slot of a killed reader is free", "periods", 12,
         [=] { return event_slot_of_a_killed_reader(processor); }},
        {"event slot that a killed writer owes a block is free", "periods", 12,
         [=] { return event_slot_of_a_killed_writer(processor); }},
        {"next master is ready", "ms", 100, [=] { return master_after_a_killed_one(processor); }},
        {"stop_monitor", "ms", 100, [=] { return told_by(processor, stop_of_the_monitor); }},
        {"stop_reader", "ms", 100, [=] { return told_by(processor, stop_of_the_reader); }},
        {"monitor's cycle, per slot of " + std::to_string(FULL_EVENTS) + " + " + std::to_string(FULL_CLIENTS), "us", 2,
         [=] { return cycle() * 1000 / (FULL_EVENTS + FULL_CLIENTS); }},
        {"check and repair of these slots", "ms", 1000, [=] { return told_by(processor, full_check_ms); }},
        {"monitor's share of a processor, these slots", "%", 1, [=] { return cycle() / DEFAULT_PERIOD_MS * 100; }},
    };
}

} // namespace bench
