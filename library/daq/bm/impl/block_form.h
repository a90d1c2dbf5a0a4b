/// @file
/// The two forms of a server block as the library reads them.
///
/// A block's form is told by the block itself, never by the mode of the process. Blocks begin at any byte address: all
/// access goes through the packed records, whose loads need no alignment.
#ifndef ZRK4_IMPL_BLOCK_FORM_H
#define ZRK4_IMPL_BLOCK_FORM_H

#include <algorithm>
#include <cstdint>

#include "sb_view.h"

namespace zrk4::impl {

using block_view = sb_head;

/// The two forms: their heads. A block whose form is given by its caller is read by `view_block_as<Form>`.
struct block_2010 {
    using head = zrk4_serv_block_head_2010;
};
struct block_2024 {
    using head = zrk4_serv_block_head_2024;
};

inline bool is_2024(const char* block) { return sb_is_2024(block); }
template <class Form> block_view view_block_as(const char* block) { return sb_head_as<typename Form::head>(block); }
inline block_view view_block(const char* block) { return sb_head_of(block); }

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
