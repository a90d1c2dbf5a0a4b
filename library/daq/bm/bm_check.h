/// @file
/// Check and repair of what processes that died left behind in the partitions, for what the master's monitor cannot see.
///
/// Ten statements hold of a host at any moment, whoever died:
///
/// | number | statement                                                                                              |
/// |--------|--------------------------------------------------------------------------------------------------------|
/// | 1      | a queue reaches its tail, without cycle or repetition                                                  |
/// | 2      | a buffer is flagged queued exactly when it is in a queue                                               |
/// | 3      | the count of free buffers is the length of the free queue, taking and returning apart                  |
/// | 4      | every buffer is queued, held by a live process, or listed in a used event slot; a client slot has a    |
/// |        | live owner; an event waits for nobody who is gone and whom the monitor cannot tell from a live reader  |
/// | 5      | no buffer stands in two entries of event slots                                                         |
/// | 6      | an event slot's control entry is used exactly when the slot is handed out                              |
/// | 7      | the counters of clients and of users equal a recount                                                   |
/// | 8      | gates and locks are free or held by a live process                                                     |
/// | 9      | no half-made segment and no semaphore set without a partition is left                                  |
/// | 10     | buffer 0 of both slot partitions, the control record, is handed out                                    |
#ifndef ZRK4_BM_CHECK_H
#define ZRK4_BM_CHECK_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bm_api.h"

/// What became of a finding.
enum class bm_verdict {
    broken,     ///< does not hold, and was left as it is
    repaired,   ///< did not hold; it does now
    undecidable ///< a buffer whose owner lives: in use, or lost by another process that died returning it. Left as it is
};

/// One statement that does not hold.
struct bm_finding {
    int invariant = 0;     ///< 1 to 10, as above
    std::string partition; ///< its name; "" for what belongs to none
    int number = -1;       ///< buffer or slot, -1 when the finding is about none
    int64_t pid = 0;       ///< process that owned it or lives with it, 0 when unknown
    bm_verdict verdict = bm_verdict::broken;
    std::string text; ///< one line, without a newline
};

/// Whether a partition could be looked at.
enum class bm_check_state {
    looked_at,
    missing,       ///< no partition of this name
    other_version, ///< its layout version is not this library's
    other_records, ///< an event partition of the other record generation
    damaged,       ///< its control block contradicts its segment, or its semaphore set is gone
    busy           ///< a lock could not be had in time: its holder lives, but is stopped or stuck
};

struct bm_checked_partition {
    std::string name;
    int shmid = -1; ///< -1 when there is none
    bm_check_state state = bm_check_state::looked_at;
    std::string text; ///< why it was not, or not wholly, looked at; else ""
};

/// What to look at, and how.
struct bm_check_request {
    /// Mend what is broken. What a live process may hold is left alone.
    bool repair = false;
    /// Remove semaphore sets that no partition names, too. They look like a partition's, but nothing proves that they
    /// are not another program's: without this they stay `broken`.
    bool remove_orphan_sets = false;
    /// List as undecidable every data buffer that a live process has held, without an event, for the whole observation.
    /// A reader that dies while it returns a block early leaves such a one; so does a writer that is just slow.
    bool list_held = false;
    /// The event slots hold records of the 2024 generation (`BM::set_evid_64bit_mode`), else of the 2010 one.
    bool records_2024 = false;
    /// Names of the slot partitions; "" as a BM takes them, from ZRK4_CLI_SHM_NAME and ZRK4_EV_SHM_NAME or their defaults.
    std::string clients;
    std::string events;
    /// Names of the data partitions; none: every other partition of the IPC namespace. Where exchanges under several
    /// names share it, name the data partitions of this one: the others' events are not known.
    std::vector<std::string> data;
    /// How long what looks wrong and may be movement is watched, in at most 50 looks. Nothing to watch, no wait. Longer
    /// than a live process is ever kept from running between two steps: on an overloaded machine that is many tens of
    /// milliseconds, and a process that is stopped just there for all of it looks like a dead one's count. Time in which
    /// the caller itself did not run, with its whole virtual machine perhaps, is no observation and comes on top.
    std::chrono::milliseconds observe{5000};
    /// How long one lock is waited for.
    std::chrono::milliseconds patience{1000};
};

struct bm_check_report {
    std::vector<bm_finding> findings;
    std::vector<bm_checked_partition> partitions;

    size_t count(bm_verdict verdict) const
    {
        return static_cast<size_t>(
            std::count_if(findings.begin(), findings.end(), [&](const bm_finding& f) { return f.verdict == verdict; }));
    }
    /// Nothing was found.
    bool clean() const { return findings.empty(); }
    /// Every partition was looked at.
    bool complete() const
    {
        return std::all_of(partitions.begin(), partitions.end(), [](const bm_checked_partition& p) {
            return p.state == bm_check_state::looked_at && p.text.empty();
        });
    }
};

/// Looks at a whole exchange: both slot partitions, every data partition, and what is left of partitions that were never
/// finished or never wholly removed.
///
/// Takes no client slot, does not count as a user, and never removes a partition that somebody may use. Live processes
/// go on beside it, also beside a repair; what they are in the middle of is no finding. A buffer is taken back only when
/// its owner has died, does not have the partition attached any more, or is another process under a reused id.
///
/// @return findings in the order of the work; with `repair` what was found and, by its verdict, what became of it.
/// Errors: none beside std::bad_alloc. A partition that is not there or cannot be understood is an entry of the report.
/// Threads: any; two checks at once do not disturb each other.
/// Locks: event partition 0, in it client partition 0, in them one gate; a slot's own lock only by trying. None is held
/// longer than it takes to copy a slot or to mend one thing. Time: the observation, and milliseconds.
BM_API bm_check_report bm_check(const bm_check_request& request);

/// The same for one data partition: its queues, its count, its locks and the owners of its buffers. The event slots of
/// the request are read, where they exist, for the buffers that they list; nothing else is looked at.
/// @param name  the partition's name
BM_API bm_check_report bm_check_partition(const char* name, const bm_check_request& request);

#endif
