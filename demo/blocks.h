/// @file
/// Server blocks of the demonstration: written in place into a pool buffer, walked in place by the readers.
#ifndef ZRK4_DEMO_BLOCKS_H
#define ZRK4_DEMO_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

#include "event.h"

namespace demo {

/// What stands in the head of a block, whatever its form.
struct block_label {
    const char* server = "";
    time_stamp time{};
    int64_t id = 0;
    int32_t trigger = 0;
    int32_t status = 0;
};

/// Builds one block in a buffer, which may begin at any address. Channels hold 1 to 8 numbers, which the type of their
/// sub-block tells. The first sub-block is the stamp: when the block was registered, and the sum of all bytes behind it.
class block_writer {
  public:
    /// @param room  bytes of the buffer; a channel that does not fit any more is left out and marks the block as cut
    block_writer(char* at, size_t room, bool form_2024, const block_label& label);
    void channel(std::string_view name, std::initializer_list<double> values, int error = 0);
    /// Writes the counts, the length and the stamp, whose time is taken last. @return bytes of the block
    size_t seal(int64_t (*now_ns)());

    static constexpr int32_t CUT = 1; ///< status bit: not every channel had room
    static constexpr int32_t LATE = 2;

  private:
    void put_subhead(std::string_view name, size_t values, int error);
    void put(std::span<const double> values);

    char* at_;
    size_t room_;
    bool form_2024_;
    size_t used_;
    size_t stamp_at_;
    size_t summed_from_;
    int32_t channels_ = 0;
    int32_t status_;
};

/// A channel as it lies in a block. The values have no alignment: take them with `value`.
struct channel_view {
    std::string_view name;
    int32_t type;
    int32_t error;
    const char* values;
    int count;
    double value(int i) const;
};

/// Reads a block where it lies, and nothing outside its first `room` bytes, whatever its fields say.
class block_view {
  public:
    block_view(const char* at, size_t room);
    /// @return false: shorter than its head, longer than its room, or a sub-block that does not end inside it.
    bool sound() const { return sound_; }
    const block_label& label() const { return label_; }
    size_t bytes() const { return bytes_; }
    int channels() const { return channels_; }
    void for_each(const std::function<void(const channel_view&)>& visit) const;
    /// Monotonic nanoseconds of the stamp; nothing when there is no stamp or the bytes behind it are not those written.
    std::optional<int64_t> registered_ns() const;

  private:
    template <class Head> void read_head(const Head& head);
    bool walk(const std::function<void(const channel_view&)>& visit) const;

    const char* at_;
    block_label label_;
    size_t head_ = 0;
    size_t bytes_ = 0;
    int channels_ = 0;
    bool sound_ = false;
};

} // namespace demo

#endif
