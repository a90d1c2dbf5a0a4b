/// @file
/// A buffer manager seen from inside, and what its process holds, for tests of its life: configuration, attachment,
/// subscription, clean-up.
#ifndef ZRK4_TEST_BM_HOST_H
#define ZRK4_TEST_BM_HOST_H

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iterator>
#include <list>
#include <string>

#include <gtest/gtest.h>

#include "BM.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

namespace zrk4::test {

/// A buffer manager whose fields a test may see and set, as a derived class may.
class seen_bm : public BM {
  public:
    using BM::cl_buf;
    using BM::clictrl;
    using BM::clid;
    using BM::clname;
    using BM::clslots;
    using BM::ev_buf;
    using BM::evid;
    using BM::evid64bitmode;
    using BM::evname;
    using BM::evrate;
    using BM::evslots;
    using BM::evtctrl;
    using BM::evtctrl2024;
    using BM::forced;
    using BM::get_bname_f;
    using BM::get_evid_f;
    using BM::get_key_f;
    using BM::get_len_f;
    using BM::get_sts_f;
    using BM::get_trg_f;
    using BM::master;
    using BM::missed_blocks_debug;
    using BM::mperiod;
    using BM::mpid;
    using BM::ncli;
    using BM::nsbl;
    using BM::pid;
    using BM::port;
    using BM::qid;
    using BM::reader_go;
    using BM::rid;
    using BM::smode;
    using BM::sreader;
    using BM::swriter;
    using BM::time_mask;
    using BM::timed_blocks_debug;
    using BM::user_cb;

    /// Whether it is as far from the slot partitions as a new object.
    bool detached() const
    {
        return clid == -1 && evid == -1 && cl_buf == nullptr && ev_buf == nullptr && clictrl == nullptr &&
               evtctrl == nullptr && evtctrl2024 == nullptr && sreader.empty() && swriter.empty();
    }
};

inline constexpr char CLIENTS[] = "ZRK4_CLIENT_SLOTS";
inline constexpr char EVENTS[] = "ZRK4_EVENT_SLOTS";

/// Limits of a small host, and the partitions that follow from them.
inline constexpr int HOST_CLIENTS = 4, HOST_BLOCKS = 3, HOST_RATE = 1;
inline constexpr int CLIENT_BUFFERS = 257, CLIENT_LENGTH = 816, EVENT_BUFFERS = 33, EVENT_LENGTH = 884;

inline void make_small(BM& bm)
{
    bm.set_nclients(HOST_CLIENTS);
    bm.set_nblocks(HOST_BLOCKS);
    bm.set_rate(HOST_RATE);
}

/// init() with its lines kept out of the test's output; they come when the test fails.
[[nodiscard]] inline bool quiet_init(BM& bm)
{
    const captured_output quiet;
    return bm.init();
}

/// A master of a small host. Its monitor thread does not run: cases can fork, and nothing happens by itself.
class still_master : public seen_bm {
  public:
    still_master()
    {
        master = true;
        make_small(*this);
    }
};

/// What `action` prints on standard output, dates marked.
inline std::string said(const std::function<void()>& action) { return dates_marked(out_of(action)); }

/// Subscribes with parameters that do not matter to the case.
inline int subscribed(BM& bm, BUF_MNG_CLI_TYPE cltype, int evtype = ZRK4_EV_NORMAL,
                      const std::list<std::string>& names = {})
{
    zrk4_client none{};
    std::list<std::string> list = names;
    return bm.subscribe(static_cast<ZRK4_EVTYPE>(evtype), cltype, &none, &list);
}

/// Threads and open descriptors of this process.
inline long entries_of(const char* directory)
{
    return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}
inline long threads_now() { return entries_of("/proc/self/task"); }
inline long descriptors_now() { return entries_of("/proc/self/fd"); }
/// A joined thread can stay on the kernel's list for a moment.
[[nodiscard]] inline bool threads_become(long count)
{
    return eventually([&] { return threads_now() == count; });
}

/// Wall-clock time. Not by time(): that one lags behind by a tick, and may name the second before.
inline uint64_t microseconds_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

/// Text of a statistic of a partition, as a number.
inline int stat_of(const C_shm& part, const char* key) { return std::stoi(part.getStat(key)); }

/// Calls of `semop` that `action` makes.
inline long semops_of(const std::function<void()>& action)
{
    const long before = calls_of("semop");
    action();
    return calls_of("semop") - before;
}

/// A case in which objects forget their partitions on purpose runs in a process of its own: what it leaves mapped goes
/// with it, and what is left in the system is removed behind it.
inline void in_own_process(const std::function<void()>& body)
{
    child process(body);
    EXPECT_EQ(process.wait(), 0);
    clear_ipc_namespace();
}

} // namespace zrk4::test

#endif
