/// @file
/// Server blocks for writer programs: heads, sub-blocks and run-control records, written in place into a pool buffer,
/// in either form, and never behind its end.
///
///     zrk4::sb_write block(buffer, bytes, zrk4::sb_form::of_2024, {"ADC", now, pulse});
///     block.sub_block("ADC.CH0", ZRK4_BLOCK_1CHAN_2010, samples, sizeof samples);
///     block.finish();
///
/// What has no room any more is left out, whole sub-block or record, and `complete` says so: the block stays sound.
/// Thread-safety: one thread per block. No locks, no allocation.
#ifndef ZRK4_SB_WRITE_H
#define ZRK4_SB_WRITE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "event.h"

namespace zrk4 {

enum class sb_form { of_2010, of_2024 };

/// What stands in the head of a block, whatever its form. Names are cut to 255 characters.
struct sb_label {
    std::string_view server; ///< name under which readers ask for the block
    time_stamp time{};       ///< the event's key in time mode
    int64_t event_id = 0;    ///< the event's key in event-id mode; its low 32 bits in a 2010 block
    int32_t trigger_mask = 0;
    int32_t status = 0;
};

/// Builds one block. It can be read from the constructor on; `finish` makes it tell its length and number of sub-blocks.
class sb_write {
  public:
    /// @param at    the buffer; it may begin at any byte
    /// @param room  its bytes; too few for a head: nothing is ever written
    sb_write(char* at, size_t room, sb_form form, const sb_label& label) : at_(at), form_(form)
    {
        const size_t head =
            form == sb_form::of_2024 ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
        // Lengths are 32-bit numbers, but for that of a whole 2024 block.
        room_ = form == sb_form::of_2010 ? std::min(room, LARGEST) : room;
        complete_ = at != nullptr && room_ >= head;
        if (!complete_) {
            room_ = 0;
            return;
        }
        std::memset(at_, 0, head);
        if (form == sb_form::of_2024) std::memcpy(at_, &SB_PATTERN_2024, sizeof SB_PATTERN_2024);
        with_head([&](auto& h) {
            h.time = label.time;
            h.mpulse = static_cast<decltype(h.mpulse)>(label.event_id);
            h.tmask = label.trigger_mask;
            h.status = label.status;
            put_name(h.server, label.server);
        });
        used_ = head;
        finish();
    }

    /// Begins a sub-block without data. What follows is appended to it, until the next one begins.
    /// @param type  a ZRK4_SUBBLOCK_TYPE
    void sub_block(std::string_view name, int32_t type, int32_t error = 0)
    {
        open_ = nullptr;
        char* head = take(sizeof *open_);
        if (head == nullptr) return;
        open_ = reinterpret_cast<zrk4_serv_block_subhead_2010*>(head);
        put_name(open_->chname, name);
        open_->dtype = type;
        open_->error = error;
        open_->ldata = sizeof *open_;
        ++nchan_;
    }

    /// A sub-block with all of its data, or none of it.
    void sub_block(std::string_view name, int32_t type, const void* data, size_t bytes, int32_t error = 0)
    {
        if (bytes > room_ - used_ || sizeof *open_ > room_ - used_ - bytes) {
            open_ = nullptr;
            complete_ = false;
            return;
        }
        sub_block(name, type, error);
        append(data, bytes);
    }

    /// More data of the sub-block, to be filled in place. @return null when they have no room or there is no sub-block.
    char* reserve(size_t bytes)
    {
        if (open_ == nullptr || bytes > LARGEST - static_cast<size_t>(open_->ldata)) {
            complete_ = false;
            return nullptr;
        }
        char* place = take(bytes);
        if (place != nullptr) open_->ldata += static_cast<int32_t>(bytes);
        return place;
    }
    void append(const void* data, size_t bytes)
    {
        char* place = reserve(bytes);
        if (place != nullptr && bytes != 0) std::memcpy(place, data, bytes);
    }

    /// A dictionary, and its entries: the name of a slow channel, and the index under which its values come.
    void dictionary(std::string_view name) { sub_block(name, ZRK4_ENV_DICT_BLOCK_2010); }
    void dictionary_entry(std::string_view channel, int32_t index)
    {
        zrk4_dict_data_block_2010 entry{{}, index};
        put_name(entry.dict_ch_name, channel);
        append_record(ZRK4_ENV_DICT_BLOCK_2010, entry);
    }

    /// Values of slow channels by their index. A status of 0 says that the value is valid.
    void environment(std::string_view name) { sub_block(name, ZRK4_ENV_BLOCK_2010); }
    void environment_value(int32_t index, time_stamp taken, float value, int32_t status = 0)
    {
        append_record(ZRK4_ENV_BLOCK_2010, zrk4_env_data_block_2010{index, status, taken, value});
    }

    /// Values of properties by their name. A status of 0 says that the value is valid.
    void update(std::string_view name) { sub_block(name, ZRK4_UPD_BLOCK_2010); }
    void update_value(std::string_view property, time_stamp taken, float value, int32_t status = 0)
    {
        zrk4_upd_data_block_2010 entry{{}, status, taken, value};
        put_name(entry.upd_prop, property);
        append_record(ZRK4_UPD_BLOCK_2010, entry);
    }

    /// Begin and end of a run; what the site says of it is appended.
    void begin_of_run(std::string_view name) { sub_block(name, ZRK4_BOR_BLOCK_2010); }
    void end_of_run(std::string_view name) { sub_block(name, ZRK4_EOR_BLOCK_2010); }

    void set_status(int32_t status)
    {
        if (room_ != 0) with_head([&](auto& h) { h.status = status; });
    }

    /// Writes length and number of sub-blocks into the head; may be called again after more was added.
    /// @return bytes of the block; 0 when not even a head had room.
    size_t finish()
    {
        if (room_ != 0) {
            with_head([&](auto& h) {
                h.ltotal = static_cast<decltype(h.ltotal)>(used_);
                h.nchan = nchan_;
            });
        }
        return used_;
    }
    /// Whether everything had room, and every record stood in a sub-block of its kind.
    bool complete() const { return complete_; }

  private:
    static constexpr size_t LARGEST = std::numeric_limits<int32_t>::max();

    // The two heads share the names of their fields.
    template <class Work> void with_head(Work work)
    {
        if (form_ == sb_form::of_2024) {
            work(*reinterpret_cast<zrk4_serv_block_head_2024*>(at_));
        } else {
            work(*reinterpret_cast<zrk4_serv_block_head_2010*>(at_));
        }
    }

    static void put_name(char (&to)[256], std::string_view name)
    {
        std::memset(to, 0, sizeof to);
        name.copy(to, sizeof to - 1);
    }

    char* take(size_t bytes)
    {
        if (bytes > room_ - used_) {
            complete_ = false;
            return nullptr;
        }
        char* place = at_ + used_;
        used_ += bytes;
        return place;
    }

    template <class Record> void append_record(int32_t type, const Record& record)
    {
        if (open_ != nullptr && open_->dtype == type) return append(&record, sizeof record);
        complete_ = false;
    }

    char* at_;
    sb_form form_;
    size_t room_ = 0;
    size_t used_ = 0;
    int32_t nchan_ = 0;
    bool complete_ = false;
    zrk4_serv_block_subhead_2010* open_ = nullptr; // the sub-block that grows
};

} // namespace zrk4

#endif
