#include "zero_fill.h"

#include <cstdint>
#include <cstring>

#include <sys/mman.h>

namespace zrk4::impl {
namespace {

constexpr size_t PAGE = 4096;
constexpr size_t WORTH_A_CALL = 16 * PAGE;

} // namespace

void zero_fill(char* at, size_t bytes)
{
    const size_t lead = (PAGE - reinterpret_cast<uintptr_t>(at) % PAGE) % PAGE;
    if (bytes >= lead + WORTH_A_CALL) {
        const size_t pages = (bytes - lead) / PAGE * PAGE;
        // Refused for a segment that is pinned in memory.
        if (madvise(at + lead, pages, MADV_REMOVE) == 0) {
            std::memset(at, 0, lead);
            std::memset(at + lead + pages, 0, bytes - lead - pages);
            return;
        }
    }
    std::memset(at, 0, bytes);
}

bool all_zero(const char* at, size_t bytes)
{
    return bytes == 0 || (*at == 0 && std::memcmp(at, at + 1, bytes - 1) == 0); // each byte is like the one before it
}

} // namespace zrk4::impl
