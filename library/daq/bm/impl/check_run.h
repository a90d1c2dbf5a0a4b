/// @file
/// One run of the check: what it looks at, what it found, and the steps that it is made of.
#ifndef ZRK4_IMPL_CHECK_RUN_H
#define ZRK4_IMPL_CHECK_RUN_H

#include <memory>
#include <string>
#include <vector>

#include "bm_check.h"
#include "event_listing.h"
#include "raw_partition.h"
#include "worded.h"

namespace zrk4::impl {

/// Something that looks wrong and may be movement: it is looked at again for the length of the observation.
class watched {
  public:
    virtual ~watched() = default;
    /// Takes a new look, before the event slots are read again.
    virtual void look() = 0;
    /// Drops what has moved. @return whether something is left.
    virtual bool still(const event_listing& listing) = 0;
    /// Reports, and mends, what is left at the end.
    virtual void settle(const event_listing& listing) = 0;
};

/// What a second look, with the locks in hand, found.
enum class second_look {
    moved,  ///< it was movement, or a lock could not be had: no finding
    stands, ///< it is so
    mended
};

struct check_run {
    explicit check_run(bm_check_request wanted) : request(std::move(wanted)) {}

    const bm_check_request request;
    bm_check_report report;
    std::vector<std::unique_ptr<raw_partition>> partitions; ///< sound ones
    const raw_partition* clients = nullptr;
    const raw_partition* events = nullptr;
    std::vector<const raw_partition*> data;
    event_listing listing;       ///< empty without an event partition
    bool listing_trusted = true; ///< false where the event slots are there and could not be read

    bm_finding& found(int invariant, const std::string& partition, int number, int64_t pid, std::string text,
                      bool repaired)
    {
        report.findings.push_back(
            {invariant, partition, number, pid, repaired ? bm_verdict::repaired : bm_verdict::broken, std::move(text)});
        return report.findings.back();
    }
    /// Reports what a second look has confirmed.
    void confirmed(second_look seen, int invariant, const std::string& partition, int number, int64_t pid,
                   std::string text)
    {
        if (seen == second_look::moved) return;
        found(invariant, partition, number, pid, std::move(text), seen == second_look::mended);
    }
    /// Notes why a partition could not be looked at; the first reason stays.
    void mark(const raw_partition& part, bm_check_state state, const std::string& text);
    /// A lock could not be had in time.
    void busy(const raw_partition& part, int semaphore);
};

// check_locks.cpp
void check_locks(check_run& run, const raw_partition& part);
// check_queue.cpp
void check_queues(check_run& run, const raw_partition& part);
std::unique_ptr<watched> watch_count(check_run& run, const raw_partition& part);
// check_listed.cpp
void check_listed(check_run& run);
// check_buffers.cpp
std::unique_ptr<watched> watch_buffers(check_run& run, const raw_partition& part);
// check_clients.cpp
void check_clients(check_run& run);
// check_slots.cpp
void check_event_slots(check_run& run);
std::unique_ptr<watched> watch_control_record(check_run& run, const raw_partition& part);
// check_stale.cpp
std::unique_ptr<watched> watch_stale_clients(check_run& run);
// check_leftovers.cpp
void check_use_count(check_run& run, const raw_partition& part);
std::unique_ptr<watched> watch_leftovers(check_run& run);

} // namespace zrk4::impl

#endif
