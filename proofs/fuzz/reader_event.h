/// @file
/// An event as a reader program is given it: blocks in guarded buffers, entries, and a slot of either form.
#ifndef ZRK4_FUZZ_READER_EVENT_H
#define ZRK4_FUZZ_READER_EVENT_H

#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include "block_recipe.h"
#include "bm_util.h"
#include "guarded.h"

namespace fuzz {

class reader_event {
  public:
    static constexpr int MOST_BLOCKS = 3;

    reader_event(input& in, const data_partitions& data, int32_t evtype, int blocks)
        : entries_(static_cast<size_t>(blocks))
    {
        slot_2024.pattern = EV_SLOT_PATTERN_2024;
        slot_2010.evtype = slot_2024.evtype = static_cast<ZRK4_EVTYPE>(evtype);
        slot_2010.sbfilled = slot_2024.sbfilled = blocks;
        size_t opened = 0;
        for (auto& entry : entries_) put(in, data, entry, opened_.at(opened++));
    }
    zrk4_client_sblock_data* entries() { return entries_.data(); }
    size_t blocks() const { return entries_.size(); }

    zrk4_event_slot_head slot_2010{};
    zrk4_event_slot_head_2024 slot_2024{};

  private:
    static void put(input& in, const data_partitions& data, zrk4_client_sblock_data& entry,
                    std::optional<open_buffer>& opened)
    {
        const auto place = data.one(in);
        opened.emplace(place.at, place.bytes);
        std::memset(place.at, in.flag() ? 0xFF : 0, place.bytes);
        const std::string& bytes = server_block(in, place.bytes);
        std::memcpy(place.at, bytes.data(), bytes.size());
        in.name(entry.name);
        entry.shmid = place.id;
        entry.bnum = place.bnum;
    }

    std::vector<zrk4_client_sblock_data> entries_;
    std::array<std::optional<open_buffer>, MOST_BLOCKS> opened_;
};

/// What a caller of 2010 passes where either form is taken: as large as the other one.
class slot_of_either {
  public:
    explicit slot_of_either(const zrk4_event_slot_head& slot)
    {
        std::memset(bytes_, 0x55, sizeof bytes_);
        std::memcpy(bytes_, &slot, sizeof slot);
    }
    zrk4_event_slot_head_2024* get() { return reinterpret_cast<zrk4_event_slot_head_2024*>(bytes_); }

  private:
    char bytes_[sizeof(zrk4_event_slot_head_2024)];
};

} // namespace fuzz

#endif
