#include "record.h"

#include <cerrno>
#include <new>
#include <system_error>

#include <sys/mman.h>

namespace demo {

static_assert(sizeof(run_head) % alignof(tick_record) == 0);

// Anonymous memory is zero, which is how every record begins; pages that no tick reaches are never touched.
run_record::run_record(int64_t ticks)
    : bytes_(sizeof(run_head) + static_cast<size_t>(ticks) * sizeof(tick_record)),
      memory_(mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
{
    if (memory_ == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    new (memory_) run_head();
    auto* first = reinterpret_cast<tick_record*>(static_cast<char*>(memory_) + sizeof(run_head));
    ticks_ = {first, static_cast<size_t>(ticks)};
}

run_record::~run_record() { munmap(memory_, bytes_); }

} // namespace demo
