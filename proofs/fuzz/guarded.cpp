#include "guarded.h"

#include <sanitizer/asan_interface.h>

#include "target.h"

namespace fuzz {

open_buffer::open_buffer(char* at, size_t bytes) : at_(at), bytes_(bytes) { ASAN_UNPOISON_MEMORY_REGION(at, bytes); }
open_buffer::~open_buffer() { ASAN_POISON_MEMORY_REGION(at_, bytes_); }

void expect_readable(const void* at, size_t bytes)
{
    expect(__asan_region_is_poisoned(const_cast<void*>(at), bytes) == nullptr, "what was found may be read");
}

// The kernel maps whole pages.
void set_guard(const C_shm_buffer& part, guard what)
{
    constexpr size_t PAGE = 4096;
    const char* const first = part.buffer_addr(0);
    const char* const behind =
        first + static_cast<ptrdiff_t>(part.getBufferCount()) * static_cast<ptrdiff_t>(part.getBufferLength());
    const size_t rest = (PAGE - reinterpret_cast<uintptr_t>(behind) % PAGE) % PAGE;
    const char* const begin = what == guard::end ? behind : first;
    ASAN_POISON_MEMORY_REGION(begin, static_cast<size_t>(behind - begin) + rest);
}

data_partitions::data_partitions(BM& bm, guard what)
{
    for (const int length : {3, 283, 284, 303, 304, 551, 572, 1021, 4099}) {
        const int id = bm.add(("F_" + std::to_string(length)).c_str(), BUFFERS, length, /*sems=*/false);
        expect(id > 0, "a data partition can be made");
        parts_.push_back(bm.find_by_id(id));
        ids_.push_back(id);
        set_guard(*parts_.back(), what);
    }
}

data_partitions::place data_partitions::one(input& in) const
{
    const auto i = static_cast<size_t>(in.one_of(static_cast<int>(parts_.size())));
    const int bnum = in.one_of(BUFFERS);
    return {ids_[i], bnum, parts_[i]->buffer_addr(bnum), static_cast<size_t>(parts_[i]->getBufferLength())};
}

} // namespace fuzz
