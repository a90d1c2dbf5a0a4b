/// @file
/// Server blocks of the demonstration: what stands in them beside the channels, and that nothing of it was lost.
#ifndef ZRK4_DEMO_BLOCKS_H
#define ZRK4_DEMO_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "sb_view.h"
#include "sb_write.h"

namespace demo {

/// Builds one block in a buffer. Channels hold 1 to 8 numbers, which the type of their sub-block tells. The first
/// sub-block is the stamp: when the block was registered, and the sum of all bytes behind it.
class block_writer {
  public:
    /// @param room  bytes of the buffer; a channel that does not fit any more is left out and marks the block as cut
    block_writer(char* at, size_t room, bool form_2024, const zrk4::sb_label& label);
    void channel(std::string_view name, std::initializer_list<double> values, int error = 0);
    /// Writes the counts, the length and the stamp, whose time is taken last. @return bytes of the block
    size_t seal(int64_t (*now_ns)());

    static constexpr int32_t CUT = 1; ///< status bit: not everything had room
    static constexpr int32_t LATE = 2;

  private:
    char* at_;
    int32_t status_;
    zrk4::sb_write block_;
    char* stamp_; ///< null when not even the stamp had room
};

/// Monotonic nanoseconds of the stamp of a sound block; nothing when there is no stamp, or the bytes behind it are not
/// those that were written.
std::optional<int64_t> registered_ns(const zrk4::sb_view& block);

} // namespace demo

#endif
