/// @file
/// A value that parent and child see alike.
#ifndef ZRK4_TEST_SHARED_H
#define ZRK4_TEST_SHARED_H

#include <cstdio>
#include <cstdlib>
#include <new>
#include <type_traits>

#include <sys/mman.h>

namespace zrk4::test {

/// Memory shared with the children forked after it was made.
///
///     shared<int> seen;
///     child reader([&] { *seen = read_something(); });
///     reader.wait();
///     EXPECT_EQ(*seen, 42);
///
/// Let the end of the child or a `latch` order the accesses; for anything else use `shared<std::atomic<int>>`.
template <class T> class shared {
  public:
    shared()
    {
        void* at = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (at == MAP_FAILED) {
            std::perror("mmap");
            std::abort();
        }
        value_ = new (at) T();
    }
    ~shared() { munmap(value_, sizeof(T)); }
    shared(const shared&) = delete;
    shared& operator=(const shared&) = delete;
    T& operator*() const { return *value_; }
    T* operator->() const { return value_; }

  private:
    static_assert(std::is_trivially_destructible_v<T>);
    T* value_;
};

} // namespace zrk4::test

#endif
