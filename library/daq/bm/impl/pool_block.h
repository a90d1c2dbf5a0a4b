/// @file
/// A server block where an event, or its writer, says that it lies.
#ifndef ZRK4_IMPL_POOL_BLOCK_H
#define ZRK4_IMPL_POOL_BLOCK_H

#include "C_shm_mpool.h"
#include "block_form.h"
#include "geometry.h"
#include "partition_state.h"

namespace zrk4::impl {

/// Whether the head of a block at `offset` in a segment of `part` can be read. The kernel maps whole pages, and what lies
/// behind a short buffer is the next one: only the end of the last page is an end.
inline bool has_readable_head(const C_shm_buffer& part, const char* at)
{
    constexpr int64_t PAGE = 4096;
    const int64_t offset = at - reinterpret_cast<const char*>(&control_of(part));
    const auto size = static_cast<int64_t>(segment_size(part.getBufferCount(), part.getBufferLength()));
    const int64_t left = (size + PAGE - 1) / PAGE * PAGE - offset;
    if (offset < 0 || left < static_cast<int64_t>(sizeof(uint64_t))) return false;
    const size_t head = is_2024(at) ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
    return left >= static_cast<int64_t>(head);
}

/// Where a block lies; a null address when it cannot be had.
struct block_place {
    char* at = nullptr;
    C_shm_buffer* part = nullptr;

    /// Length of its buffer; what the block says about itself may be wrong.
    int64_t room() const { return at == nullptr ? 0 : part->getBufferLength(); }
};

/// Buffer `bnum` of partition `shmid`, which is attached when it is not yet in the pool. One that is known, as nearly
/// always, is searched for once.
inline block_place place_of(C_shm_mpool& pool, int bnum, int shmid)
{
    C_shm_buffer* part = pool.find_by_id(shmid);
    if (part == nullptr && pool.get_buffer_address(bnum, shmid, true) != nullptr) part = pool.find_by_id(shmid);
    return part == nullptr ? block_place{} : block_place{address_of(*part, bnum), part};
}

/// The same, of a block whose head can be read.
inline block_place block_in_pool(C_shm_mpool& pool, int bnum, int shmid)
{
    const block_place place = place_of(pool, bnum, shmid);
    return place.at != nullptr && has_readable_head(*place.part, place.at) ? place : block_place{};
}

} // namespace zrk4::impl

#endif
