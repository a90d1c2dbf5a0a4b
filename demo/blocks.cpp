#include "blocks.h"

#include <array>
#include <cstring>

namespace demo {
namespace {

constexpr const char* STAMP = "REGISTERED";
constexpr size_t STAMP_VALUES = 3; // seconds, nanoseconds, sum
constexpr size_t STAMP_BYTES = STAMP_VALUES * sizeof(double);
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

// 32 bits, which a double holds exactly; it depends on the place of every byte.
uint32_t sum_of(const char* from, const char* to)
{
    uint32_t sum = 2166136261U;
    for (; from < to; ++from) sum = (sum ^ static_cast<unsigned char>(*from)) * 16777619U;
    return sum;
}

} // namespace

block_writer::block_writer(char* at, size_t room, bool form_2024, const zrk4::sb_label& label)
    : at_(at),
      status_(label.status),
      block_(at, room, form_2024 ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010, label)
{
    block_.sub_block(STAMP, TYPE_OF_COUNT[STAMP_VALUES]);
    stamp_ = block_.reserve(STAMP_BYTES);
}

void block_writer::channel(std::string_view name, std::initializer_list<double> values, int error)
{
    if (values.size() >= TYPE_OF_COUNT.size()) {
        status_ |= CUT;
        return;
    }
    block_.sub_block(name, TYPE_OF_COUNT[values.size()], values.begin(), values.size() * sizeof(double), error);
}

size_t block_writer::seal(int64_t (*now_ns)())
{
    block_.set_status(block_.complete() ? status_ : status_ | CUT);
    const size_t bytes = block_.finish();
    if (stamp_ == nullptr) return bytes;
    const uint32_t sum = sum_of(stamp_ + STAMP_BYTES, at_ + bytes);
    const int64_t now = now_ns();
    const double stamp[STAMP_VALUES] = {static_cast<double>(now / NS_PER_S), static_cast<double>(now % NS_PER_S),
                                        static_cast<double>(sum)};
    std::memcpy(stamp_, stamp, sizeof stamp);
    return bytes;
}

std::optional<int64_t> registered_ns(const zrk4::sb_view& block)
{
    if (!block.sound() || block.begin() == block.end()) return std::nullopt;
    const zrk4::sb_sub stamp = *block.begin();
    if (stamp.name() != STAMP || stamp.bytes() != STAMP_BYTES) return std::nullopt;
    const uint32_t sum = sum_of(stamp.data() + STAMP_BYTES, block.data() + block.head().ltotal);
    if (stamp.value<double>(2) != static_cast<double>(sum)) return std::nullopt;
    return static_cast<int64_t>(stamp.value<double>(0)) * NS_PER_S + static_cast<int64_t>(stamp.value<double>(1));
}

} // namespace demo
