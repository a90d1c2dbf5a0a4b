#include "workload.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "statistics.h"

namespace bench {
namespace {

constexpr size_t PAGE = 4096;
constexpr int64_t FEWEST = 10; // counted events, however long they take

// Neighbours in the same buffer are some dozen events apart; 251 is prime, and no multiple of 37 is near one of it.
char byte_of(int64_t number, int block) { return static_cast<char>((number + 37 * block) % 251 + 1); }

} // namespace

void fill(char* payload, size_t bytes, int64_t number, int block)
{
    std::memset(payload + sizeof(stamp), byte_of(number, block), bytes - sizeof(stamp));
}

bool has_bytes_of(const char* payload, size_t bytes, int64_t number, int block)
{
    const char expected = byte_of(number, block);
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
    if (number - plan_.warm_up + 1 >= plan_.events) return phase::last;
    const bool enough = number - plan_.warm_up >= FEWEST;
    return plan_.writers == 1 && enough && now >= end_ns_ ? phase::last : phase::counted;
}

event_log::event_log(const plan& p) : plan_(p), blocks_(static_cast<size_t>(p.blocks()))
{
    if (p.one_at_a_time) microseconds_.reserve(static_cast<size_t>(p.events));
    if (p.writers > 1) had_.resize(static_cast<size_t>(p.warm_up + p.events));
}

bool event_log::is_whole(std::span<const char* const> payloads, const stamp& first)
{
    if (payloads.size() != blocks_.size()) return false;
    std::fill(blocks_.begin(), blocks_.end(), false);
    bool whole = true;
    for (const char* payload : payloads) {
        const stamp s = stamp_of(payload);
        const auto block = static_cast<size_t>(s.block);
        if (s.number != first.number || block >= blocks_.size() || blocks_[block]) return false;
        blocks_[block] = true;
        whole = whole && (!plan_.touched || has_bytes_of(payload, plan_.payload, s.number, s.block));
    }
    return whole;
}

// Of several writers two may finish two events side by side, and tell of them in either order.
bool event_log::is_expected(int64_t number)
{
    if (plan_.writers == 1) return number == seen_;
    const auto at = static_cast<size_t>(number);
    if (at >= had_.size() || had_[at]) return false;
    had_[at] = true;
    return true;
}

bool event_log::note(std::span<const char* const> payloads, int64_t called_ns)
{
    const stamp s = stamp_of(payloads.front());
    if (!is_whole(payloads, s) || !is_expected(s.number)) ++wrong_;
    ++seen_;
    if (s.now == phase::warm_up) return false;
    if (counted_++ == 0) {
        first_ns_ = called_ns;
        used_before_ns_ = processor_time_ns();
    }
    last_ns_ = called_ns;
    if (plan_.one_at_a_time) microseconds_.push_back(static_cast<double>(called_ns - s.registered_ns) / 1e3);
    const bool last = plan_.writers == 1 ? s.now == phase::last : seen_ == plan_.warm_up + plan_.events;
    if (last) used_ns_ = processor_time_ns() - used_before_ns_;
    return last;
}

reader_report event_log::report() const
{
    return {wrong_,
            seen_,
            counted_ - 1,
            last_ns_ - first_ns_,
            used_ns_,
            quantile(microseconds_, 0.5),
            quantile(microseconds_, 0.99)};
}

reading combined(std::span<const reader_report> readers, int64_t others_used_ns)
{
    int64_t used_ns = others_used_ns;
    int64_t took_ns = 0;
    for (const reader_report& r : readers) {
        if (r.wrong != 0)
            throw std::runtime_error(std::to_string(r.wrong) + " events out of order, incomplete or with wrong bytes");
        used_ns += r.used_ns;
        took_ns = std::max(took_ns, r.took_ns);
    }
    const reader_report& first = readers.front();
    reading all;
    if (first.intervals > 0 && took_ns > 0) {
        all.events_per_second = static_cast<double>(first.intervals) * 1e9 / static_cast<double>(took_ns);
        all.processor_time = static_cast<double>(used_ns) / 1e3 / static_cast<double>(first.intervals);
    }
    all.p50 = first.p50;
    all.p99 = first.p99;
    return all;
}

} // namespace bench
