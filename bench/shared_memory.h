/// @file
/// Memory that a conductor shares with the processes it starts.
#ifndef ZRK4_BENCH_SHARED_MEMORY_H
#define ZRK4_BENCH_SHARED_MEMORY_H

#include <cerrno>
#include <cstddef>
#include <new>
#include <system_error>
#include <type_traits>

#include <sys/mman.h>

namespace bench {

/// `count` records, zero at first.
template <class Record> class shared_memory {
  public:
    /// @throws std::system_error
    explicit shared_memory(size_t count) : bytes_(count * sizeof(Record))
    {
        static_assert(std::is_trivially_destructible_v<Record>);
        void* at = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (at == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
        at_ = static_cast<Record*>(at);
        if constexpr (sizeof(Record) > 1) {
            for (size_t i = 0; i < count; ++i) new (at_ + i) Record{};
        }
    }
    ~shared_memory() { munmap(at_, bytes_); }
    shared_memory(const shared_memory&) = delete;
    shared_memory& operator=(const shared_memory&) = delete;

    Record& operator[](size_t i) const { return at_[i]; }
    Record* operator->() const { return at_; }

  private:
    size_t bytes_;
    Record* at_;
};

} // namespace bench

#endif
