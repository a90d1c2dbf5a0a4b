// An event slot whose head counts more entries than its buffer holds: what reader programs call stays inside it.
#include <climits>
#include <cstring>

#include "bm_util.h"
#include "event_host.h"
#include "sub_blocks.h"

using namespace zrk4::test;

namespace {

/// In the slot behind it lies what the count makes an entry of: that of a sound block.
class EntriesCount : public EventHost {
  protected:
    EntriesCount() : EventHost({.event_length = GetParam() == generation::of_2010 ? 16388 : 16384})
    {
        const std::string bytes =
            block_of_2010({{"BAIT", ZRK4_BLOCK_1CHAN_2010}, {"D", ZRK4_ENV_DICT_BLOCK_2010}}).bytes();
        char* const at = bm.get_buffer_address(0, data_id);
        std::memcpy(at, bytes.data(), bytes.size());
        slot(used_slot()).put(&slot_layout::sbfilled, INT_MAX);
        put_first_behind();
        bm_util_init();
    }
    ~EntriesCount() override { clean_local_copies(); }

    char* head() { return bm.ev_buf.load()->buffer_addr(1); }
    zrk4_client_sblock_data* entries()
    {
        const size_t size = wide() ? sizeof(zrk4_event_slot_head_2024) : sizeof(zrk4_event_slot_head);
        return reinterpret_cast<zrk4_client_sblock_data*>(head() + size + 8 * static_cast<size_t>(slot(1).nclients()));
    }
    void set_type(int type) { slot(1).put(&slot_layout::evtype, type); }
    zrk4_serv_block_subhead_2010* find(char* channel)
    {
        if (wide()) {
            return get_fast_channel_data_2024(reinterpret_cast<zrk4_event_slot_head_2024*>(head()), entries(), nullptr,
                                              channel, &bm, nullptr, nullptr);
        }
        return get_fast_channel_data(reinterpret_cast<zrk4_event_slot_head*>(head()), entries(), nullptr, channel, &bm,
                                     nullptr);
    }
    bool update()
    {
        if (wide()) {
            return update_local_copies(reinterpret_cast<zrk4_event_slot_head_2024*>(head()), entries(), &bm, nullptr,
                                       nullptr);
        }
        return update_local_copies_2010(reinterpret_cast<zrk4_event_slot_head*>(head()), entries(), &bm, nullptr);
    }
    zrk4_client_sblock_data bait{};
    /// The entry that begins in the next buffer becomes the last one that has room in this.
    void move_bait_inside() { std::memcpy(last_inside(), last_inside() + 1, sizeof bait); }

  private:
    zrk4_client_sblock_data* last_inside()
    {
        const char* const end = head() + events_part.getBufferLength();
        return entries() + (end - reinterpret_cast<char*>(entries())) / static_cast<ptrdiff_t>(sizeof bait) - 1;
    }
    void put_first_behind()
    {
        put_name(bait.name, "SERVER");
        bait.shmid = data_id;
        bait.bnum = 0;
        std::memcpy(last_inside() + 1, &bait, sizeof bait);
    }
};
IN_BOTH_GENERATIONS(EntriesCount);

TEST_P(EntriesCount, ChannelIsNotSearchedBehindTheSlot)
{
    char channel[] = "BAIT";
    EXPECT_EQ(find(channel), nullptr);
    move_bait_inside();
    EXPECT_NE(find(channel), nullptr);
}

TEST_P(EntriesCount, SlotFullOfClientsHasNoRoomForAnEntry)
{
    const auto room = events_part.getBufferLength() - (reinterpret_cast<char*>(entries()) - head());
    ASSERT_EQ(room % 8, 0) << "they end where the slot ends";
    slot(1).put(&slot_layout::nclients, static_cast<int>(room / 8));
    std::memcpy(entries(), &bait, sizeof bait);
    char channel[] = "BAIT";
    EXPECT_EQ(find(channel), nullptr);
}

TEST_P(EntriesCount, ParametersAreNotReadBehindTheSlot)
{
    if (wide()) slot(1).put_first_word(EV_SLOT_PATTERN_2024);
    auto* either = reinterpret_cast<zrk4_event_slot_head_2024*>(head());
    char name[] = "SERVER";
    int nchan = -1;
    EXPECT_EQ(get_sb_param(either, entries(), name, &bm, nullptr, nullptr, nullptr, nullptr, nullptr, &nchan), 1);
    move_bait_inside();
    EXPECT_EQ(get_sb_param(either, entries(), name, &bm, nullptr, nullptr, nullptr, nullptr, nullptr, &nchan), 0);
    EXPECT_EQ(nchan, 2);
}

TEST_P(EntriesCount, RunBlocksAreNotTakenFromBehindTheSlot)
{
    set_type(ZRK4_EV_BOR);
    const captured_output unknown_blocks;
    EXPECT_FALSE(update()) << "false is success";
    EXPECT_EQ(local_dict_copy_, nullptr);
    move_bait_inside();
    EXPECT_FALSE(update()) << "false is success";
    EXPECT_NE(local_dict_copy_, nullptr);
}

} // namespace
