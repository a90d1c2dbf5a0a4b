/// @file
/// An event as a reader's callback gets it: a slot head and entries, with the blocks in a partition of the pool.
#ifndef ZRK4_TEST_READER_EVENT_H
#define ZRK4_TEST_READER_EVENT_H

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BM.h"
#include "bm_util.h"
#include "sub_blocks.h"

namespace zrk4::test {

/// Which generation's functions are called.
enum class reader { of_2010, of_2024 };

class reader_event : public testing::Test {
  protected:
    static constexpr int BUFFERS = 16;
    static constexpr int LENGTH = 8193; ///< odd: the buffers begin at all eight alignments in turn

    reader_event()
    {
        slot_2024.pattern = EV_SLOT_PATTERN_2024;
        slot_2010.time = slot_2024.time = {1700000000, 123456};
        set_type(ZRK4_EV_NORMAL);
        bm_util_init();
    }
    ~reader_event() override { clean_local_copies(); }

    void set_type(int type) { slot_2010.evtype = slot_2024.evtype = static_cast<ZRK4_EVTYPE>(type); }
    /// The next blocks go into buffer `n` and on.
    void start_at_buffer(int n) { next_ = n; }

    char* put(const std::string& bytes, const std::string& name = "SERVER")
    {
        char* const at = bm.get_buffer_address(next_, id);
        std::memset(at, 0, LENGTH);
        std::memcpy(at, bytes.data(), bytes.size());
        add_entry(name, id, next_++);
        return at;
    }
    void add_entry(const std::string& name, int shmid, int bnum)
    {
        zrk4_client_sblock_data entry{};
        put_name(entry.name, name);
        entry.shmid = shmid;
        entry.bnum = bnum;
        entries.push_back(entry);
        set_filled(static_cast<int>(entries.size()));
    }
    void set_filled(int n) { slot_2010.sbfilled = slot_2024.sbfilled = n; }
    /// A new event; the blocks of the old one stay where they are.
    void next_event(int type)
    {
        entries.clear();
        set_filled(0);
        set_type(type);
        next_ = 0;
    }
    /// A 2010 slot under the address of the other form, as programs of both generations pass it.
    zrk4_event_slot_head_2024* either_2010() { return reinterpret_cast<zrk4_event_slot_head_2024*>(slot_2010_bytes()); }

    BM bm;
    const int id = bm.add("T_DATA", BUFFERS, LENGTH, /*sems=*/false);
    zrk4_event_slot_head slot_2010{};
    zrk4_event_slot_head_2024 slot_2024{};
    std::vector<zrk4_client_sblock_data> entries;
    zrk4_serv_block_head_2010* h10 = nullptr;
    zrk4_serv_block_head_2024* h24 = nullptr;

  private:
    // As large as the other form, so that a wrong read shows as a wrong value.
    char* slot_2010_bytes()
    {
        std::memset(as_2024_, 0x55, sizeof as_2024_);
        std::memcpy(as_2024_, &slot_2010, sizeof slot_2010);
        return as_2024_;
    }

    int next_ = 0;
    char as_2024_[sizeof(zrk4_event_slot_head_2024)];
};

} // namespace zrk4::test

#endif
