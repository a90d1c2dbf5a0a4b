// Order of a check: what is there, what is plain at once, what has to be watched.
#include "bm_check.h"

#include <cstdlib>
#include <thread>

#include "check_run.h"
#include "process_life.h"

namespace zrk4::impl {

void check_run::mark(const raw_partition& part, bm_check_state state, const std::string& text)
{
    for (bm_checked_partition& seen : report.partitions) {
        if (seen.shmid != part.shmid() || seen.state != bm_check_state::looked_at) continue;
        seen.state = state;
        seen.text = text;
    }
}

void check_run::busy(const raw_partition& part, int semaphore)
{
    if (!part.has_semaphores()) return mark(part, bm_check_state::damaged, "its semaphore set is gone");
    const auto holder = static_cast<pid_t>(semctl(part.semid(), semaphore, GETPID));
    const std::string lock = semaphore == gbl_gate ? "the gate" : worded("lock %d", semaphore - gbl_nsems);
    mark(part, bm_check_state::busy,
         worded("%s could not be had within %ld ms: held by process %d (%c)", lock.c_str(),
                static_cast<long>(request.patience.count()), holder, process_state(holder)));
}

namespace {

const char* default_name(const char* variable, const char* otherwise)
{
    const char* name = std::getenv(variable);
    return name != nullptr ? name : otherwise;
}

bm_check_request with_names(bm_check_request request)
{
    if (request.clients.empty()) request.clients = default_name("ZRK4_CLI_SHM_NAME", "ZRK4_CLIENT_SLOTS");
    if (request.events.empty()) request.events = default_name("ZRK4_EV_SHM_NAME", "ZRK4_EVENT_SLOTS");
    return request;
}

void list_partition(check_run& run, const raw_partition& part)
{
    bm_checked_partition seen{part.name(), part.shmid(), bm_check_state::looked_at, ""};
    if (part.condition() == raw_partition::state::other_version) {
        seen.state = bm_check_state::other_version;
        seen.text = worded("its layout version is %d, not %d", part.control().version, SHM_LAYOUT_VERSION);
    } else if (part.condition() == raw_partition::state::too_short) {
        seen.state = bm_check_state::damaged;
        seen.text =
            worded("%d buffers of %d bytes do not fit into its segment", part.control().nbuf, part.control().lbuf);
    } else if (!part.has_semaphores()) {
        seen.state = bm_check_state::damaged;
        seen.text = "its semaphore set is gone";
    }
    run.report.partitions.push_back(seen);
}

void find_partitions(check_run& run)
{
    for (const int id : segments_at_partition_keys()) {
        mapped_segment segment(id);
        if (!segment) continue;
        auto part = std::make_unique<raw_partition>(std::move(segment));
        if (part->condition() == raw_partition::state::unnamed) continue; // half made: nobody finds it
        list_partition(run, *part);
        if (run.report.partitions.back().state == bm_check_state::looked_at) run.partitions.push_back(std::move(part));
    }
}

/// The first partition of a name, as a search finds it.
const raw_partition* named(const check_run& run, const std::string& name)
{
    for (const auto& part : run.partitions) {
        if (part->name() == name) return part.get();
    }
    return nullptr;
}

void expect(check_run& run, const std::string& name)
{
    for (const bm_checked_partition& seen : run.report.partitions) {
        if (seen.name == name) return;
    }
    run.report.partitions.push_back({name, -1, bm_check_state::missing, "there is no partition of this name"});
}

/// A slot partition, if it can be one.
const raw_partition* slot_partition(check_run& run, const std::string& name)
{
    expect(run, name);
    const raw_partition* part = named(run, name);
    if (part == nullptr) return nullptr;
    const bool whole = part->has_locks() && part->buffer_addr(0) != nullptr &&
                       part->getBufferLength() >= static_cast<int>(sizeof(zrk4_client_ctrl_block));
    if (whole) return part;
    run.mark(*part, bm_check_state::damaged, "it has no locks per buffer, or no room for a control record");
    return nullptr;
}

bool is_there(const check_run& run, const std::string& name)
{
    return std::any_of(run.report.partitions.begin(), run.report.partitions.end(),
                       [&](const bm_checked_partition& p) { return p.name == name && p.shmid >= 0; });
}

void read_events(check_run& run)
{
    if (run.events == nullptr) {
        run.listing_trusted = !is_there(run, run.request.events);
        return;
    }
    run.listing.read(*run.events, run.request.records_2024, run.request.patience);
    if (!run.listing.reached()) run.busy(*run.events, lock_of_slot(0));
    if (!run.listing.right_records())
        run.mark(*run.events, bm_check_state::other_records, "its slots hold records of the other generation");
    run.listing_trusted = run.listing.reached() && run.listing.right_records();
}

using watches = std::vector<std::unique_ptr<watched>>;

void look_again(check_run& run, watches& all)
{
    for (const auto& one : all) one->look();
    read_events(run);
    std::erase_if(all, [&](const auto& one) { return !one->still(run.listing); });
}

void observe(check_run& run, watches all)
{
    constexpr int LOOKS = 50;
    using clock = std::chrono::steady_clock;
    auto until = clock::now() + run.request.observe;
    const std::chrono::microseconds step = run.request.observe / LOOKS;
    look_again(run, all);
    while (!all.empty() && clock::now() < until) {
        const auto due = clock::now() + step;
        std::this_thread::sleep_until(due);
        // Where this process was kept from running, the whole host may have been: those who are watched get their time.
        if (const auto late = clock::now() - due; late > step) until += late + step;
        look_again(run, all);
    }
    for (const auto& one : all) one->settle(run.listing);
}

// What is plain at one look, each under its locks.
void check_tables(check_run& run, const std::vector<const raw_partition*>& parts)
{
    for (const raw_partition* part : parts) check_locks(run, *part);
    for (const raw_partition* part : parts) check_queues(run, *part);
    read_events(run);
}

// A partition with locks whose buffer 0 is out looks like a slot partition: it may be another exchange's.
bool may_be_slot_partition(check_run& run, const raw_partition& part)
{
    const std::vector<std::string>& data = run.request.data;
    if (!part.has_locks() || part.getBufferCount() < 1 || !part.handed_out(0)) return false;
    if (std::find(data.begin(), data.end(), part.name()) != data.end()) return false;
    run.mark(part, bm_check_state::looked_at,
             "its owners were not judged: it looks like a slot partition of another exchange");
    return true;
}

void watch_owners(check_run& run, const raw_partition& part, watches& to)
{
    if (run.listing_trusted && !may_be_slot_partition(run, part)) to.push_back(watch_buffers(run, part));
}

bool wanted(const check_run& run, const raw_partition& part)
{
    const std::vector<std::string>& data = run.request.data;
    return data.empty() || std::find(data.begin(), data.end(), part.name()) != data.end();
}

watches watches_of_host(check_run& run, const std::vector<const raw_partition*>& all)
{
    watches to;
    for (const raw_partition* part : all) to.push_back(watch_count(run, *part));
    for (const raw_partition* part : {run.clients, run.events}) {
        if (part != nullptr) to.push_back(watch_control_record(run, *part));
    }
    for (const raw_partition* part : run.data) watch_owners(run, *part, to);
    if (run.clients != nullptr && run.events != nullptr && run.listing_trusted) to.push_back(watch_stale_clients(run));
    to.push_back(watch_leftovers(run));
    return to;
}

} // namespace

} // namespace zrk4::impl

using namespace zrk4::impl;

bm_check_report bm_check(const bm_check_request& request)
{
    check_run run(with_names(request));
    find_partitions(run);
    run.clients = slot_partition(run, run.request.clients);
    run.events = slot_partition(run, run.request.events);
    for (const std::string& name : run.request.data) expect(run, name);
    std::vector<const raw_partition*> all;
    for (const auto& part : run.partitions) {
        const bool of_slots = part->name() == run.request.clients || part->name() == run.request.events;
        if (!of_slots && wanted(run, *part)) run.data.push_back(part.get());
        if (of_slots || wanted(run, *part)) all.push_back(part.get());
    }
    check_tables(run, all);
    if (run.clients != nullptr) check_clients(run);
    if (run.events != nullptr && run.listing_trusted) {
        check_event_slots(run);
        check_listed(run);
    }
    for (const raw_partition* part : all) check_use_count(run, *part);
    observe(run, watches_of_host(run, all));
    return std::move(run.report);
}

bm_check_report bm_check_partition(const char* name, const bm_check_request& request)
{
    check_run run(with_names(request));
    find_partitions(run);
    if (is_there(run, run.request.events)) run.events = slot_partition(run, run.request.events);
    const std::string wanted_name = name != nullptr ? name : "";
    std::erase_if(run.report.partitions,
                  [&](const bm_checked_partition& p) { return p.name != wanted_name && p.name != run.request.events; });
    expect(run, wanted_name);
    const raw_partition* part = named(run, wanted_name);
    if (part == nullptr) return std::move(run.report);
    check_tables(run, {part});
    watches to;
    to.push_back(watch_count(run, *part));
    if (wanted_name != run.request.clients && wanted_name != run.request.events) watch_owners(run, *part, to);
    observe(run, std::move(to));
    return std::move(run.report);
}
