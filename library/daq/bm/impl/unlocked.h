/// @file
/// Reads and writes of shared records that the protocol makes without a lock.
#ifndef ZRK4_IMPL_UNLOCKED_H
#define ZRK4_IMPL_UNLOCKED_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "bm_api.h"

namespace zrk4::impl {

/// A 32-bit word at any address, of whatever record: the compiler must not take it for another object than the record.
struct BM_PACKED __attribute__((may_alias)) shared_word {
    uint32_t value;
};

/// Copies `bytes` (a multiple of 4) word by word, in the order of their addresses. The copy may be torn: who uses it must
/// be able to live with that or test again under a lock. The thread sanitizer is told not to look, because the race is
/// meant.
/// `From` and `To` are words: volatile on the side that others see, and there alone, so that the other side may stay in
/// registers.
template <class To, class From>
__attribute__((no_sanitize("thread"))) inline void copy_words(To* to, From* from, size_t bytes)
{
    for (size_t i = 0; i < bytes / sizeof(shared_word); ++i) to[i].value = from[i].value;
}

/// The same out of shared memory, whatever stands there.
inline void copy_unlocked(void* to, const void* from, size_t bytes)
{
    copy_words(static_cast<shared_word*>(to), static_cast<const volatile shared_word*>(from), bytes);
}

/// A record, or one of its words, as it stands now.
template <class Record> Record read_unlocked(const Record* from)
{
    static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % sizeof(shared_word) == 0);
    Record copy;
    copy_words(reinterpret_cast<shared_word*>(&copy), reinterpret_cast<const volatile shared_word*>(from), sizeof copy);
    return copy;
}

/// The 32-bit word at `at` as it stands now.
inline int32_t word_unlocked(const void* at)
{
    uint32_t word;
    copy_words(reinterpret_cast<shared_word*>(&word), static_cast<const volatile shared_word*>(at), sizeof word);
    return static_cast<int32_t>(word);
}

/// Writes a record that others read without a lock.
template <class Record> void write_unlocked(Record* to, const Record& value)
{
    static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % sizeof(shared_word) == 0);
    copy_words(reinterpret_cast<volatile shared_word*>(to), reinterpret_cast<const shared_word*>(&value), sizeof value);
}

/// Writes a 4-byte field after everything that was written before it; the processor keeps the order by itself.
template <class Field> __attribute__((no_sanitize("thread"))) void store_released(void* to, Field value)
{
    static_assert(sizeof(Field) == sizeof(shared_word));
    std::atomic_signal_fence(std::memory_order_release);
    static_cast<volatile shared_word*>(to)->value = static_cast<uint32_t>(value);
}

/// Adds 1 to a counter that several count up under different locks: none of their steps is lost.
__attribute__((no_sanitize("alignment"))) inline void count_up(void* counter)
{
    __atomic_fetch_add(static_cast<uint32_t*>(counter), 1U, __ATOMIC_RELAXED);
}

} // namespace zrk4::impl

#endif
