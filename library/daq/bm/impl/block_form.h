/// @file
/// What differs between the two forms of a server block, and a view that hides the difference.
///
/// A block's form is told by the block itself, never by the mode of the process. Blocks begin at any byte address: all
/// access goes through the packed records, whose loads need no alignment.
#ifndef ZRK4_IMPL_BLOCK_FORM_H
#define ZRK4_IMPL_BLOCK_FORM_H

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "event.h"

namespace zrk4::impl {

/// REQUIRES: 8 readable bytes at `block`.
inline bool is_2024(const char* block)
{
    uint64_t first = 0;
    std::memcpy(&first, block, sizeof first);
    return first == SB_PATTERN_2024;
}

/// The head of a server block of either form. It is a copy, taken once: another process may change the block meanwhile.
/// Only `server` points into the block.
struct block_view {
    time_stamp time;
    int64_t ltotal;     ///< as stored; may be anything
    int64_t mpulse;     ///< a 2010 id is widened with its sign
    const char* server; ///< 256 characters, perhaps without a NUL
    int32_t tmask;
    int32_t status;
    int32_t nchan;
    int64_t head_size; ///< offset of the first sub-head
};

/// The two forms: their heads. A block whose form is given by its caller is read by `view_block_as<Form>`.
struct block_2010 {
    using head = zrk4_serv_block_head_2010;
};
struct block_2024 {
    using head = zrk4_serv_block_head_2024;
};

/// REQUIRES: sizeof(Form::head) readable bytes at `block`.
template <class Form> block_view view_block_as(const char* block)
{
    const auto& h = *reinterpret_cast<const typename Form::head*>(block);
    return {h.time, h.ltotal, h.mpulse, h.server, h.tmask, h.status, h.nchan, sizeof h};
}

/// The same by the block's own form. REQUIRES: a whole head of that form.
inline block_view view_block(const char* block)
{
    return is_2024(block) ? view_block_as<block_2024>(block) : view_block_as<block_2010>(block);
}

/// Bytes of a sub-head, the smallest sub-block.
inline constexpr int64_t SUBHEAD_SIZE = sizeof(zrk4_serv_block_subhead_2010);

/// Calls `visit(char* sub_block, int32_t ldata, int64_t room)` for each sub-block of `block`: `ldata` as stored, `room`
/// the bytes from the sub-block to the end of what may be read. Every sub-head visited lies wholly inside the first
/// `bound` bytes and inside `ltotal`. Ends with the count, with the bytes, behind a sub-block whose length cannot be
/// right, or when `visit` returns false.
template <class Visit> void for_each_sub_block(char* block, const block_view& head, int64_t bound, Visit visit)
{
    const int64_t end = std::min(head.ltotal, bound);
    int64_t at = head.head_size;
    for (int32_t c = 0; c < head.nchan && at + SUBHEAD_SIZE <= end; ++c) {
        char* sub_block = block + at;
        const int32_t ldata = reinterpret_cast<const zrk4_serv_block_subhead_2010*>(sub_block)->ldata;
        const int64_t room = end - at;
        if (!visit(sub_block, ldata, room) || ldata < SUBHEAD_SIZE) return;
        at += ldata;
    }
}

} // namespace zrk4::impl

#endif
