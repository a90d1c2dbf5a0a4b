// Preloaded: every semaphore operation of the library takes some microseconds more, and nobody else's does.
#include <cstdint>
#include <cstring>
#include <ctime>

#include <link.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int64_t MORE_NS = 3000;

struct range {
    uintptr_t first = 0, end = 0;
};

int find_library(dl_phdr_info* object, size_t /*size*/, void* to)
{
    if (std::strstr(object->dlpi_name, "libZRK4bm.so") == nullptr) return 0;
    auto* const found = static_cast<range*>(to);
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& part = object->dlpi_phdr[i];
        if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
        found->first = object->dlpi_addr + part.p_vaddr;
        found->end = found->first + part.p_memsz;
    }
    return 1;
}

range library()
{
    range found;
    dl_iterate_phdr(find_library, &found);
    return found;
}

int64_t now_ns()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int semop(int id, sembuf* operations, size_t count) noexcept
{
    static const range slowed = library();
    const auto caller = reinterpret_cast<uintptr_t>(__builtin_return_address(0));
    if (caller >= slowed.first && caller < slowed.end) {
        for (const int64_t until = now_ns() + MORE_NS; now_ns() < until;) {}
    }
    return static_cast<int>(syscall(SYS_semtimedop, id, operations, count, nullptr));
}
