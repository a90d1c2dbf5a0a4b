#include "workload.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "statistics.h"

namespace bench {
namespace {

constexpr size_t PAGE = 4096;

// Neighbours in the same buffer are some dozen events apart; 251 is prime.
char byte_of(int64_t number) { return static_cast<char>(number % 251 + 1); }

} // namespace

void fill(char* payload, size_t bytes, int64_t number)
{
    std::memset(payload + sizeof(stamp), byte_of(number), bytes - sizeof(stamp));
}

bool has_bytes_of(const char* payload, size_t bytes, int64_t number)
{
    const char expected = byte_of(number);
    bool all = payload[bytes - 1] == expected;
    for (size_t at = sizeof(stamp); at < bytes; at += PAGE) all = payload[at] == expected && all;
    return all;
}

void put_stamp(char* payload, const stamp& s) { std::memcpy(payload, &s, sizeof s); }

stamp stamp_of(const char* payload)
{
    stamp s;
    std::memcpy(&s, payload, sizeof s);
    return s;
}

phase event_count::of(int64_t number)
{
    if (number < plan_.warm_up) return phase::warm_up;
    const int64_t now = now_ns();
    if (number == plan_.warm_up) {
        end_ns_ = now + static_cast<int64_t>(plan_.seconds * 1e9);
        used_before_ns_ = processor_time_ns();
    }
    const bool enough = number - plan_.warm_up + 1 >= plan_.events;
    return enough || (now >= end_ns_ && number > plan_.warm_up) ? phase::last : phase::counted;
}

event_log::event_log(const plan& p) : plan_(p)
{
    if (p.one_at_a_time) microseconds_.reserve(static_cast<size_t>(p.events));
}

bool event_log::note(const char* payload, int64_t called_ns)
{
    const stamp s = stamp_of(payload);
    if (s.number != expected_++ || (plan_.touched && !has_bytes_of(payload, plan_.payload, s.number))) ++wrong_;
    if (s.now == phase::warm_up) return false;
    if (first_ns_ == 0) {
        first_ns_ = called_ns;
        used_before_ns_ = processor_time_ns();
    }
    last_ns_ = called_ns;
    if (plan_.one_at_a_time) microseconds_.push_back(static_cast<double>(called_ns - s.registered_ns) / 1e3);
    if (s.now != phase::last) return false;
    used_ns_ = processor_time_ns() - used_before_ns_;
    return true;
}

reading event_log::result(int64_t writer_used_ns) const
{
    if (wrong_ != 0) throw std::runtime_error(std::to_string(wrong_) + " events out of order or with wrong bytes");
    const int64_t intervals = expected_ - plan_.warm_up - 1;
    const double seconds = static_cast<double>(last_ns_ - first_ns_) / 1e9;
    reading r;
    if (intervals > 0 && seconds > 0) {
        r.events_per_second = static_cast<double>(intervals) / seconds;
        r.processor_time = static_cast<double>(used_ns_ + writer_used_ns) / 1e3 / static_cast<double>(intervals);
    }
    r.p50 = quantile(microseconds_, 0.5);
    r.p99 = quantile(microseconds_, 0.99);
    return r;
}

} // namespace bench
