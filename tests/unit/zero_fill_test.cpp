// Clearing, with and without whole pages to give back.
#include "zero_fill.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "C_shm_buffer.h"
#include "clean_namespace.h"

using namespace zrk4::impl;
using namespace zrk4::test;

namespace {

constexpr size_t PAGE = 4096;

// Clears `bytes` at every kind of offset in a page and looks at both neighbours.
void clear_and_look(char* area, size_t room)
{
    for (const size_t shift : {size_t{1}, size_t{4}, PAGE - 1, PAGE, PAGE + 7}) {
        for (const size_t bytes : {size_t{0}, size_t{1}, PAGE, 16 * PAGE - 1, 16 * PAGE, 17 * PAGE + 1, 20 * PAGE}) {
            std::memset(area, 0x5A, room);
            zero_fill(area + shift, bytes);
            EXPECT_TRUE(all_zero(area + shift, bytes)) << shift << " + " << bytes;
            EXPECT_EQ(area[shift - 1], 0x5A) << shift << " + " << bytes;
            EXPECT_EQ(area[shift + bytes], 0x5A) << shift << " + " << bytes;
        }
    }
}

using ZeroFill = CleanNamespace;

TEST_F(ZeroFill, ClearsASegmentExactly)
{
    constexpr int ROOM = 24 * PAGE;
    const C_shm_buffer part("T_SLOTS", 1, ROOM, false);
    clear_and_look(part.buffer_addr(0), ROOM);
}

// The kernel refuses to take pages of such memory back.
TEST_F(ZeroFill, ClearsOtherMemoryExactly)
{
    std::vector<char> memory(24 * PAGE);
    clear_and_look(memory.data(), memory.size());
}

TEST_F(ZeroFill, ClearsAPinnedSegmentExactly)
{
    constexpr int ROOM = 24 * PAGE;
    const C_shm_buffer part("T_SLOTS", 1, ROOM, false);
    char* at = part.buffer_addr(0);
    char* page = at + (PAGE - reinterpret_cast<uintptr_t>(at) % PAGE);
    ASSERT_EQ(mlock(page, 20 * PAGE), 0);
    clear_and_look(at, ROOM);
    munlock(page, 20 * PAGE);
}

TEST(AllZero, LooksAtEveryByteAndNoFurther)
{
    std::string bytes(100, '\0');
    EXPECT_TRUE(all_zero(bytes.data(), bytes.size()));
    EXPECT_TRUE(all_zero(bytes.data(), 0));
    for (const size_t i : {size_t{0}, size_t{50}, size_t{99}}) {
        bytes[i] = 1;
        EXPECT_FALSE(all_zero(bytes.data(), bytes.size())) << i;
        EXPECT_TRUE(all_zero(bytes.data(), i)) << i;
        bytes[i] = 0;
    }
}

} // namespace
