// A check of a large host: how long it takes, and how long it holds a lock.
#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <utility>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../unit/check_host.h"

namespace {

/// Processor time of this thread in nanoseconds: what the machine does beside it does not count.
int64_t worked_ns()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

/// For how long each lock was held.
struct hold_times {
    using lock = std::pair<int, int>;
    std::map<lock, int64_t> taken;
    int64_t longest = 0;
    bool counting = false;

    void changed(const lock& which, int by)
    {
        if (by < 0) {
            taken[which] = worked_ns();
        } else if (const auto at = taken.find(which); at != taken.end()) {
            longest = std::max(longest, worked_ns() - at->second);
            taken.erase(at);
        }
    }
};
hold_times holds;

} // namespace

// In the place of the system's, for the library as well.
extern "C" __attribute__((visibility("default"))) int semop(int semid, sembuf* operations, size_t count)
{
    const int result = static_cast<int>(syscall(SYS_semop, semid, operations, count));
    const bool is_lock = operations[0].sem_num == 0 || operations[0].sem_num >= 4;
    if (result == 0 && is_lock && holds.counting) holds.changed({semid, operations[0].sem_num}, operations[0].sem_op);
    return result;
}

namespace zrk4::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr int SLOWER = 30; // an instrumented program is to show other faults
#else
constexpr int SLOWER = 1;
#endif

/// 640 events of 16 blocks each, 256 clients in 4096 slots, and a data partition of 16384 buffers.
class CheckTimes : public CheckHost {
  protected:
    static constexpr int EVENT_SLOTS = 640, CLIENT_SLOTS = 4096, DATA = 16384, PER_EVENT = 16, CLIENTS_NOW = 256;
    CheckTimes() : CheckHost({CLIENT_SLOTS, 8240, EVENT_SLOTS, 16385})
    {
        large_id = bm.add("T_LARGE", DATA, 400, false);
        C_shm_buffer& large = *bm.find_by_id(large_id);
        for (int c = 0; c < CLIENTS_NOW; ++c) counted_client({.cltype = CLI_T_READER, .evtype = c % 32});
        for (int e = 0; e < EVENT_SLOTS; ++e) {
            const int n = used_slot({static_cast<uint32_t>(1000 + e), 0}, e + 1);
            for (int b = 0; b < PER_EVENT; ++b)
                slot(n).add_entry("B" + std::to_string(b), large_id,
                                  large.buffer_id(large.get_buffer(BM_NO_WAIT, true)));
        }
    }
    /// @return findings, and the milliseconds that it worked.
    std::pair<size_t, int64_t> timed(bool repair) const
    {
        bm_check_request asked = request(repair);
        asked.observe = std::chrono::milliseconds(0);
        holds = {};
        holds.counting = true;
        const int64_t start = worked_ns();
        const bm_check_report report = bm_check(asked);
        const int64_t took = (worked_ns() - start) / 1'000'000;
        holds.counting = false;
        RecordProperty("longest_hold_us", static_cast<int>(holds.longest / 1000));
        RecordProperty("milliseconds", static_cast<int>(took));
        return {report.findings.size(), took};
    }
    static void expect_quick(int64_t took)
    {
        EXPECT_LT(took, 1000 * SLOWER);
        EXPECT_LT(holds.longest, 1'000'000 * SLOWER) << "nanoseconds with a lock in hand";
        EXPECT_GT(holds.longest, 0);
    }
    int large_id = -1;
};
IN_BOTH_GENERATIONS(CheckTimes);

TEST_P(CheckTimes, AFullSoundHostIsCheckedWithinASecondAndLocksAreShort)
{
    const auto [findings, took] = timed(false);
    EXPECT_EQ(findings, 0U);
    expect_quick(took);
}

TEST_P(CheckTimes, AHostBrokenEverywhereIsRepairedWithinASecondAndLocksAreShort)
{
    const pid_t dead = dead_pid();
    for (int c = 1; c <= CLIENTS_NOW; ++c) {
        own(clients_part, c, dead);
        store<int32_t>(client_at(c), dead);
    }
    for (int n = 1; n <= EVENT_SLOTS; ++n) control(n).put_status(EVT_C_FREE);
    C_shm_buffer& large = *bm.find_by_id(large_id);
    for (int b = 0; b < EVENT_SLOTS * PER_EVENT; b += 16) own(large, b, dead);
    const auto [findings, took] = timed(true);
    EXPECT_EQ(findings, static_cast<size_t>(CLIENTS_NOW + EVENT_SLOTS + EVENT_SLOTS));
    expect_quick(took);
    EXPECT_EQ(found(), lines{});
}

} // namespace
} // namespace zrk4::test
