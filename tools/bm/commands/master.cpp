// bm master: the master of the exchange, in the foreground, for a service manager.
#include <algorithm>
#include <ctime>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "cli/failure.h"
#include "commands/commands.h"
#include "host/end_signals.h"
#include "host/member.h"
#include "host/service_manager.h"

namespace bm {
namespace {

struct master_options {
    member_options member;
    bool forced = false;
    int clients = 64, blocks = 32, rate = 20, client_slots = 0;
    int period_us = 500'000;
};

/// A master whose partitions outlive it.
class resident_master : public BM {
  public:
    ~resident_master() override { all_clean_up(); }

    /// The monitor attaches data partitions as it goes, so it stops before all of them are told to stay.
    void leave_partitions()
    {
        stop_monitor();
        for (const auto& [name, part] : buffers_names) part->keep(true);
    }
    /// Whether the monitor has run since the last call, by the time that its thread has used.
    bool monitor_has_run()
    {
        clockid_t clock = 0;
        timespec used{};
        if (BM::pid == 0 || pthread_getcpuclockid(BM::pid, &clock) != 0 || clock_gettime(clock, &used) != 0)
            return false;
        const int64_t now = int64_t{used.tv_sec} * 1'000'000'000 + used.tv_nsec;
        return std::exchange(last_, now) != now;
    }

  private:
    int64_t last_ = 0;
};

void set_up(resident_master& master, const common_options& common, const master_options& options)
{
    configure(master, common, options.member);
    master.set_forced(options.forced);
    master.set_nclients(options.clients);
    master.set_nblocks(options.blocks);
    master.set_rate(options.rate);
    if (options.client_slots != 0) master.set_ncl_slots(options.client_slots);
    master.set_monitoring_period(options.period_us);
    if (master.set_master(true))
        throw failure(exit_status::failed, "the monitor thread does not start").help("ulimit -u");
    if (master.init()) {
        throw failure(exit_status::failed, "the slot partitions can neither be made nor taken over")
            .seen("the lines above")
            .needed("partitions as large as asked for, or none of these names, and what the kernel must grant")
            .help("bm doctor; bm size; bm ls; bm master --forced removes too small ones");
    }
}

std::string partitions_text(const common_options& common, resident_master& master)
{
    std::string text;
    for (const std::string& name : {common.clients, common.events}) {
        const C_shm_buffer* part = master.find_by_name(name.c_str());
        text += fmt::format("{}{} {} x {}", text.empty() ? "" : ", ", printable(name), part->getBufferCount(),
                            part->getBufferLength());
    }
    return text;
}

json said(const char* event, const common_options& common)
{
    json one = document("master");
    one["event"] = event;
    one["pid"] = getpid();
    one["clients"] = common.clients;
    one["events"] = common.events;
    return one;
}

/// Until a signal comes. The watchdog hears of us only as long as the monitor runs.
int watch_over(const end_signals& ends, resident_master& master, const service_manager& manager)
{
    const auto asked = manager.watchdog() / 2;
    const auto step = asked.count() > 0 ? std::min<std::chrono::microseconds>(asked, std::chrono::hours(1))
                                        : std::chrono::microseconds(std::chrono::hours(1));
    for (;;) {
        if (const int signal = ends.within(step)) return signal;
        if (asked.count() > 0 && master.monitor_has_run()) manager.tell("WATCHDOG=1");
    }
}

exit_status run(const common_options& common, const master_options& options)
{
    const end_signals ends;
    const service_manager manager;
    name_slot_partitions(common);
    const operator_output out;
    resident_master master;
    set_up(master, common, options);
    const std::string ready = partitions_text(common, master);
    if (!manager.tell(fmt::format("READY=1\nSTATUS={}", ready)))
        std::fputs("bm: the service manager's socket in NOTIFY_SOCKET takes nothing\n", stderr);
    if (common.json) {
        out.print_line(said("ready", common));
    } else {
        out.print(fmt::format("ready: master {}: {}{}\n", getpid(), ready,
                              options.forced ? "; its end removes them" : "; they stay when it ends"));
    }
    const int signal = watch_over(ends, master, manager);
    manager.tell("STOPPING=1");
    if (!options.forced) master.leave_partitions();
    master.all_clean_up();
    if (common.json) {
        out.print_line(said("ended", common));
    } else {
        out.print(fmt::format("ended by signal {}\n", signal));
    }
    return exit_status::fine;
}

} // namespace

void add_master(command_line& line)
{
    line.add<master_options>(
        "master", "runs the master in the foreground, for a service manager",
        [](arguments& app, master_options& options) {
            declare_member(app, options.member);
            app.flag("--forced", options.forced,
                     "remove slot partitions that are too small, and all of them at the end");
            app.option("--clients", options.clients, "processes that take part (64)").check(above_zero());
            app.option("--client-slots", options.client_slots, "client slots (64 for each client)").check(above_zero());
            app.option("--blocks", options.blocks, "server blocks of one event (32)").check(above_zero());
            app.option("--rate", options.rate, "events per second, 32 slots for each (20)").check(above_zero());
            app.option("--period", options.period_us, "time between two rounds of the monitor (500000)")
                .check(between(1000, 60'000'000))
                .type_name("MICROSECONDS");
        },
        run);
}

} // namespace bm
