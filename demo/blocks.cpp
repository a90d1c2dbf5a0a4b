#include "blocks.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace demo {
namespace {

constexpr size_t SUBHEAD = sizeof(zrk4_serv_block_subhead_2010);
constexpr std::string_view STAMP = "REGISTERED";
constexpr size_t STAMP_VALUES = 3; // seconds, nanoseconds, sum
constexpr int64_t NS_PER_S = 1'000'000'000;

constexpr std::array<int32_t, 9> TYPE_OF_COUNT{0,
                                               ZRK4_BLOCK_1CHAN_2010,
                                               ZRK4_BLOCK_2CHAN_2010,
                                               ZRK4_BLOCK_3CHAN_2010,
                                               ZRK4_BLOCK_4CHAN_2010,
                                               ZRK4_BLOCK_5CHAN_2010,
                                               ZRK4_BLOCK_6CHAN_2010,
                                               ZRK4_BLOCK_7CHAN_2010,
                                               ZRK4_BLOCK_8CHAN_2010};

size_t head_bytes(bool form_2024)
{
    return form_2024 ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
}

// The two forms share the names of their fields: `visit` is written once for both.
template <class Visit> void with_head(char* at, bool form_2024, Visit visit)
{
    if (form_2024) {
        visit(*reinterpret_cast<zrk4_serv_block_head_2024*>(at));
    } else {
        visit(*reinterpret_cast<zrk4_serv_block_head_2010*>(at));
    }
}

void copy_name(char (&to)[256], std::string_view name)
{
    std::memset(to, 0, sizeof to);
    std::memcpy(to, name.data(), std::min(name.size(), sizeof to - 1));
}

bool begins_as_2024(const char* at)
{
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word == SB_PATTERN_2024;
}

// 32 bits, which a double holds exactly; it depends on the place of every byte.
uint32_t sum_of(const char* at, size_t count)
{
    uint32_t sum = 2166136261U;
    for (size_t i = 0; i < count; ++i) sum = (sum ^ static_cast<unsigned char>(at[i])) * 16777619U;
    return sum;
}

} // namespace

block_writer::block_writer(char* at, size_t room, bool form_2024, const block_label& label)
    : at_(at), room_(room), form_2024_(form_2024), used_(head_bytes(form_2024)), status_(label.status)
{
    std::memset(at_, 0, used_);
    if (form_2024) std::memcpy(at_, &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
    with_head(at_, form_2024, [&](auto& head) {
        head.time = label.time;
        head.mpulse = static_cast<decltype(head.mpulse)>(label.id);
        head.tmask = label.trigger;
        copy_name(head.server, label.server);
    });
    channel(STAMP, {0, 0, 0});
    stamp_at_ = used_ - STAMP_VALUES * sizeof(double);
    summed_from_ = used_;
}

void block_writer::channel(std::string_view name, std::initializer_list<double> values, int error)
{
    if (used_ + SUBHEAD + values.size() * sizeof(double) > room_ || values.size() >= TYPE_OF_COUNT.size()) {
        status_ |= CUT;
        return;
    }
    put_subhead(name, values.size(), error);
    put({values.begin(), values.size()});
    ++channels_;
}

void block_writer::put_subhead(std::string_view name, size_t values, int error)
{
    auto& head = *reinterpret_cast<zrk4_serv_block_subhead_2010*>(at_ + used_);
    copy_name(head.chname, name);
    head.dtype = TYPE_OF_COUNT[values];
    head.error = error;
    head.ldata = static_cast<int32_t>(SUBHEAD + values * sizeof(double));
    used_ += SUBHEAD;
}

void block_writer::put(std::span<const double> values)
{
    std::memcpy(at_ + used_, values.data(), values.size_bytes());
    used_ += values.size_bytes();
}

size_t block_writer::seal(int64_t (*now_ns)())
{
    with_head(at_, form_2024_, [&](auto& head) {
        head.ltotal = static_cast<decltype(head.ltotal)>(used_);
        head.nchan = channels_;
        head.status = status_;
    });
    const uint32_t sum = sum_of(at_ + summed_from_, used_ - summed_from_);
    const int64_t now = now_ns();
    const int64_t seconds = now / NS_PER_S;
    const double stamp[STAMP_VALUES] = {static_cast<double>(seconds), static_cast<double>(now % NS_PER_S),
                                        static_cast<double>(sum)};
    std::memcpy(at_ + stamp_at_, stamp, sizeof stamp);
    return used_;
}

double channel_view::value(int i) const
{
    double number = 0;
    if (i >= 0 && i < count) std::memcpy(&number, values + static_cast<size_t>(i) * sizeof number, sizeof number);
    return number;
}

template <class Head> void block_view::read_head(const Head& head)
{
    label_ = {head.server, head.time, head.mpulse, head.tmask, head.status};
    bytes_ = static_cast<size_t>(std::max<int64_t>(head.ltotal, 0));
    channels_ = head.nchan;
    sound_ = std::memchr(head.server, 0, sizeof head.server) != nullptr;
}

block_view::block_view(const char* at, size_t room) : at_(at)
{
    const bool form_2024 = room >= sizeof(uint64_t) && begins_as_2024(at);
    head_ = head_bytes(form_2024);
    if (room < head_) return;
    with_head(const_cast<char*>(at), form_2024, [this](const auto& head) { read_head(head); });
    sound_ = sound_ && bytes_ >= head_ && bytes_ <= room && walk([](const channel_view&) {});
}

bool block_view::walk(const std::function<void(const channel_view&)>& visit) const
{
    size_t place = head_;
    for (int i = 0; i < channels_; ++i) {
        if (bytes_ - place < SUBHEAD) return false;
        const auto& head = *reinterpret_cast<const zrk4_serv_block_subhead_2010*>(at_ + place);
        const int64_t length = head.ldata;
        if (length < static_cast<int64_t>(SUBHEAD) || static_cast<size_t>(length) > bytes_ - place) return false;
        const size_t data = static_cast<size_t>(length) - SUBHEAD;
        visit({{head.chname, strnlen(head.chname, sizeof head.chname)},
               head.dtype,
               head.error,
               at_ + place + SUBHEAD,
               static_cast<int>(data / sizeof(double))});
        place += static_cast<size_t>(length);
    }
    return true;
}

void block_view::for_each(const std::function<void(const channel_view&)>& visit) const
{
    if (sound_) walk(visit);
}

std::optional<int64_t> block_view::registered_ns() const
{
    std::optional<int64_t> registered;
    for_each([&](const channel_view& channel) {
        if (channel.name != STAMP || channel.count != static_cast<int>(STAMP_VALUES)) return;
        const size_t from = static_cast<size_t>(channel.values - at_) + STAMP_VALUES * sizeof(double);
        if (channel.value(2) != static_cast<double>(sum_of(at_ + from, bytes_ - from))) return;
        registered = static_cast<int64_t>(channel.value(0)) * NS_PER_S + static_cast<int64_t>(channel.value(1));
    });
    return registered;
}

} // namespace demo
