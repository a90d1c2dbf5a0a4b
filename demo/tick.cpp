#include "tick.h"

#include <cerrno>
#include <ctime>

#include "plan.h"

namespace demo {
namespace {

constexpr int64_t NS_PER_S = 1'000'000'000;
constexpr int64_t US_PER_S = 1'000'000;

int64_t now_ns(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * NS_PER_S + now.tv_nsec;
}

} // namespace

int64_t monotonic_ns() { return now_ns(CLOCK_MONOTONIC); }
int64_t wall_clock_us() { return now_ns(CLOCK_REALTIME) / 1000; }

tick_clock tick_clock::starting_in(int64_t lead_us)
{
    const int64_t wall_us = wall_clock_us();
    const int64_t start_us = (wall_us + lead_us + PERIOD_US - 1) / PERIOD_US * PERIOD_US;
    return {start_us, monotonic_ns() + (start_us - wall_us) * 1000};
}

time_stamp tick_clock::key(int64_t tick) const
{
    const int64_t us = start_us_ + tick * PERIOD_US;
    return {static_cast<uint32_t>(us / US_PER_S), static_cast<uint32_t>(us % US_PER_S)};
}

int64_t tick_clock::event_id(int64_t tick, bool records_2024) const
{
    const int64_t id = start_us_ / PERIOD_US + tick;
    return records_2024 ? id : id & 0x7FFFFFFF;
}

std::optional<int64_t> tick_clock::tick_at(time_stamp key) const
{
    const int64_t us = key.timeup * US_PER_S + key.timelow - start_us_;
    if (us < 0 || us % PERIOD_US != 0) return std::nullopt;
    return us / PERIOD_US;
}

int64_t tick_clock::due_ns(int64_t tick) const { return start_ns_ + tick * PERIOD_US * 1000; }

void tick_clock::wait_for(int64_t tick) const
{
    const timespec due{due_ns(tick) / NS_PER_S, due_ns(tick) % NS_PER_S};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) == EINTR) {}
}

bool tick_gate::enter(int64_t tick)
{
    const uint64_t wanted = static_cast<uint64_t>(tick) + 1;
    uint64_t word = word_.load();
    while (wanted > (word & ~CLOSED)) {
        if ((word & CLOSED) != 0) return false;
        if (word_.compare_exchange_weak(word, wanted)) return true;
    }
    return true;
}

void tick_gate::close() { word_.fetch_or(CLOSED); }
int64_t tick_gate::begun() const { return static_cast<int64_t>(word_.load() & ~CLOSED); }

} // namespace demo
