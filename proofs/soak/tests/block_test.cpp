// A block tells whether one byte of it has changed.
#include "block.h"

#include <vector>

#include <gtest/gtest.h>

using namespace soak;

namespace {

class SoakBlock : public testing::TestWithParam<bool> {
  protected:
    const bool wide = GetParam();
    std::vector<char> room = std::vector<char>(BUFFER_BYTES + 1, '\x5A');
    char* at = room.data() + 1;
    const label what{"SOAK.WRITER.2", {1700000000, 2000}, 77, 2, 123456};
};

TEST_P(SoakBlock, SaysWhatWasWritten)
{
    write_block(at, wide, what);
    const block_seen seen = read_block(at);
    EXPECT_TRUE(seen.sound);
    EXPECT_EQ(seen.says.server, "SOAK.WRITER.2");
    EXPECT_EQ(+seen.says.time.timeup, 1700000000U);
    EXPECT_EQ(+seen.says.time.timelow, 2000U);
    EXPECT_EQ(seen.says.id, 77);
    EXPECT_EQ(seen.says.writer, 2);
    EXPECT_EQ(seen.says.serial, 123456U);
}

TEST_P(SoakBlock, AnyChangedByteIsSeen)
{
    write_block(at, wide, what);
    const auto length = static_cast<size_t>(wide ? reinterpret_cast<zrk4_serv_block_head_2024*>(at)->ltotal
                                                 : reinterpret_cast<zrk4_serv_block_head_2010*>(at)->ltotal);
    ASSERT_GT(length, payload_offset(wide));
    for (size_t i = 0; i < length; ++i) {
        at[i] ^= 1;
        EXPECT_FALSE(read_block(at).sound) << "byte " << i;
        at[i] ^= 1;
    }
    EXPECT_TRUE(read_block(at).sound);
}

TEST_P(SoakBlock, AnotherSerialIsAnotherPayload)
{
    write_block(at, wide, what);
    const std::string first(at + payload_offset(wide), 200);
    label next = what;
    ++next.serial;
    write_block(at, wide, next);
    EXPECT_NE(first, std::string(at + payload_offset(wide), 200));
}

TEST_P(SoakBlock, ALengthBeyondTheBufferIsNotFollowed)
{
    write_block(at, wide, what);
    if (wide) {
        reinterpret_cast<zrk4_serv_block_head_2024*>(at)->ltotal = int64_t{1} << 40;
    } else {
        reinterpret_cast<zrk4_serv_block_head_2010*>(at)->ltotal = 1 << 30;
    }
    EXPECT_FALSE(read_block(at).sound);
}

INSTANTIATE_TEST_SUITE_P(BothForms, SoakBlock, testing::Bool(),
                         [](const auto& one) { return one.param ? "Of2024" : "Of2010"; });

} // namespace
