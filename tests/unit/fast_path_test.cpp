// What reader programs call for every event takes nothing from the heap, and what it finds lies where the writer put it.
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "evutl.h"
#include "reader_event.h"

using namespace zrk4::test;

// Counted: what is taken from the heap, by `new` as by `malloc`. The sanitizers have a `malloc` of their own.
static long allocations = 0;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static void* taken(size_t size) { return std::malloc(size); }
#else
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* at, size_t size)
{
    ++allocations;
    return __libc_realloc(at, size);
}
}
static void* taken(size_t size) { return __libc_malloc(size); }
#endif

// Not inlined, or the compiler takes new and free for a mismatched pair.
__attribute__((noinline)) void* operator new(size_t size)
{
    ++allocations;
    if (void* at = taken(size)) return at;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* at) noexcept { std::free(at); }
__attribute__((noinline)) void operator delete(void* at, size_t) noexcept { std::free(at); }

namespace {

const sub_block A("A", ZRK4_BLOCK_1CHAN_2010, "aaaa");
const sub_block B("B", ZRK4_BLOCK_2CHAN_2010, "bbbbbbbb");

/// Blocks of both forms in all buffers; the last one alone has channel B.
class FastPath : public reader_event {
  protected:
    FastPath()
    {
        for (int i = 0; i < BUFFERS - 2; i += 2) {
            put(block_of_2010({A}).bytes());
            put(block_of_2024({A}).bytes());
        }
        last_2010 = put(block_of_2010({A, B}).bytes());
    }
    template <class Work> static long taken_by(Work work)
    {
        const long before = allocations;
        work();
        return allocations - before;
    }
    /// The compiler must believe that somebody looks at it.
    template <class Pointer> static Pointer used(Pointer at)
    {
        asm volatile("" : "+r"(at) : : "memory");
        return at;
    }
    char* last_2010 = nullptr;
    char a[2] = "A", b[2] = "B", c[2] = "C";
    char name[256] = "";
};

} // namespace

TEST_F(FastPath, AllocationsAreCounted)
{
    EXPECT_EQ(taken_by([] { delete used(new int); }), 1);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(taken_by([] {
                  std::free(used(std::realloc(used(std::malloc(1)), 1000)));
                  std::free(used(std::calloc(1, 1)));
              }),
              3);
#endif
}

TEST_F(FastPath, SearchOfADataChannelTakesNothingAndCopiesNothing)
{
    char* found[4] = {};
    EXPECT_EQ(taken_by([&] {
                  found[0] =
                      reinterpret_cast<char*>(get_fast_channel_data(&slot_2010, entries.data(), nullptr, b, &bm, &h10));
                  found[1] = reinterpret_cast<char*>(
                      get_fast_channel_data_2024(&slot_2024, entries.data(), name, b, &bm, &h10, &h24));
                  found[2] =
                      reinterpret_cast<char*>(get_fast_channel_data(&slot_2010, entries.data(), nullptr, c, &bm, &h10));
                  found[3] = reinterpret_cast<char*>(
                      get_fast_channel_data_2024(&slot_2024, entries.data(), name, c, &bm, &h10, &h24));
              }),
              0);
    EXPECT_EQ(found[0], last_2010 + HEAD_2010 + A.ldata) << "inside the block";
    EXPECT_EQ(found[1], found[0]);
    EXPECT_EQ(reinterpret_cast<char*>(h10), last_2010) << "the block itself";
    EXPECT_EQ(found[2], nullptr);
    EXPECT_EQ(found[3], nullptr);
    std::memset(found[0] + SUBHEAD, 'x', 8);
    EXPECT_EQ(std::string(last_2010 + HEAD_2010 + A.ldata + SUBHEAD, 8), "xxxxxxxx") << "and no copy of it";
}

TEST_F(FastPath, ParametersAndTheCountOfEmptyBlocksTakeNothing)
{
    int nchan = 0;
    char server[] = "SERVER";
    EXPECT_EQ(taken_by([&] {
                  EXPECT_EQ(get_sb_param(&slot_2024, entries.data(), server, &bm, nullptr, nullptr, nullptr, nullptr,
                                         nullptr, &nchan),
                            0);
                  EXPECT_EQ(check_bad_sb_data(&slot_2024, entries.data(), &bm), 0);
              }),
              0);
    EXPECT_EQ(nchan, 1);
}

TEST_F(FastPath, QueryOfASlowChannelTakesNothingOnceTheCopiesAreMade)
{
    next_event(ZRK4_EV_HB);
    put(block_of_2010(
            {{"D", ZRK4_ENV_DICT_BLOCK_2010, dict_record("TEMP", 7)}, {"E", ZRK4_ENV_BLOCK_2010, env_record(7, 2.F)}})
            .bytes());
    float value = 0;
    ASSERT_EQ(get_slow_channel_data(&slot_2024, entries.data(), "TEMP", &bm, &h10, &h24, &value), 0);
    next_event(ZRK4_EV_UPD);
    EXPECT_EQ(taken_by([&] {
                  value = 0;
                  EXPECT_EQ(get_slow_channel_data(&slot_2024, entries.data(), "TEMP", &bm, &h10, &h24, &value), 0);
                  EXPECT_EQ(get_slow_channel_data_2010(&slot_2010, entries.data(), "NONE", &bm, &h10, &value), 1);
              }),
              0);
    EXPECT_EQ(value, 2.F);
}
