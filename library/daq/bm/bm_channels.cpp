// Parameters and channels of an event's server blocks.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>

#include "bm_util.h"
#include "event_blocks.h"
#include "evutl.h"
#include "local_copies.h"
#include "name_query.h"
#include "text_later.h"

namespace zrk4::impl {
namespace {

bool names_nothing(const char* name) { return name == nullptr || name[0] == '\0'; }

template <class Value, class Given> void store(Value* out, Given value)
{
    if (out != nullptr) *out = value;
}

/// Into the caller's 256 bytes: padded with NULs, without one behind a name of 256 characters.
void fill_name(char* to, const char* from) { std::strncpy(to, from, name_query::FIELD); }

// ---- data channels --------------------------------------------------------------------------------------------------

/// A channel's name as it is printed and as it is searched for.
class wanted_channel {
  public:
    explicit wanted_channel(const char* text) : text_(text) {}
    const char* text() const { return text_; }
    /// For one sub-block: a query costs more than it saves.
    bool is(const char* field) const { return std::strncmp(field, text_, name_query::FIELD) == 0; }
    name_query& query() { return query_ ? *query_ : query_.emplace(text_); }

  private:
    const char* text_;
    std::optional<name_query> query_;
};

// Not collected with other texts: those are cut, and a channel's name may have any length.
template <class PrintDetails> void report_corrupt(const wanted_channel& channel, PrintDetails print_details)
{
    text_later::write_now();
    std::printf("CHANNEL corrupted: %s\n", channel.text());
    print_details();
    std::fflush(nullptr);
}

/// What a walk needs to know of a block, and no more: it is handed on by value.
struct block_extent {
    char* at;
    int64_t room, head_size, ltotal;
    int32_t nchan;

    explicit block_extent(const found_block& block)
        : at(block.place.at),
          room(block.place.room()),
          head_size(block.head.head_size),
          ltotal(block.head.ltotal),
          nchan(block.head.nchan)
    {
    }
};

void report_outside(const wanted_channel& channel, int64_t ltotal, int c, int32_t nchan)
{
    report_corrupt(channel, [&] {
        std::printf("OUTSIDE  of the server block !!!: ltotal: %ld  channel:%d nchans:%d \n", ltotal, c, nchan);
    });
}

void report_negative(const wanted_channel& channel, int32_t ldata, int64_t left)
{
    report_corrupt(channel, [&] { std::printf("Corrupted data: ldata: %d   total_size (left): %ld\n", ldata, left); });
}

struct walk_result {
    zrk4_serv_block_subhead_2010* found = nullptr;
    bool corrupt = false; ///< reported; ends the search of the whole event
};

// Where a sub-head lies is known only from the one before it. Most sub-blocks of a block are of one length, though, so that
// the processor can be told early what it will be asked for. A guess that is wrong costs nothing: it reads nothing.
void fetch_ahead(const char* sub, int64_t ldata)
{
    constexpr int64_t STEPS = 8;
    const char* const ahead = sub + STEPS * ldata;
    __builtin_prefetch(ahead);
    __builtin_prefetch(ahead + offsetof(zrk4_serv_block_subhead_2010, ldata));
}

/// REQUIRES: the block counts a sub-block and has bytes behind its head.
template <class Matches>
__attribute__((always_inline)) inline walk_result walk_block(block_extent block, const wanted_channel& channel,
                                                             Matches matches)
{
    const int64_t last = block.ltotal - SUBHEAD_SIZE;
    // A block that claims more than its buffer holds is believed in what is reported, not in what is read.
    const int64_t readable = std::min(last, block.room - SUBHEAD_SIZE);
    int64_t at = block.head_size;
    int32_t c = 0;
    while (at <= readable) {
        auto* sub = reinterpret_cast<zrk4_serv_block_subhead_2010*>(block.at + at);
        const int32_t ldata = sub->ldata;
        if (ldata < 0) {
            report_negative(channel, ldata, block.ltotal - at);
            return {nullptr, true};
        }
        if (matches(sub->chname)) return {sub, false};
        fetch_ahead(block.at + at, ldata);
        if (ldata == 0) return {}; // would meet the same sub-head until the count is reached
        at += ldata;
        if (++c >= block.nchan) return {};
    }
    if (at <= last || at >= block.ltotal) return {}; // not to be read, or nothing left
    report_outside(channel, block.ltotal, c, block.nchan);
    return {nullptr, true};
}

// Never inlined: a block of a single channel is then looked at in registers.
__attribute__((noinline)) walk_result walk_many(block_extent block, wanted_channel& channel)
{
    name_query& name = channel.query();
    return walk_block(block, channel, [&](const char* field) { return name.matches(field); });
}

template <class Reading>
zrk4_serv_block_subhead_2010* find_channel(const event_blocks& event, char* name, const char* text, BM* bm,
                                           const head_outputs& out)
{
    if (names_nothing(text) || is_run_control(event.evtype)) return nullptr;
    wanted_channel channel(text);
    std::optional<name_query> block_name;
    if (!names_nothing(name)) block_name.emplace(name);
    for (const zrk4_client_sblock_data& entry : event.entries) {
        if (is_hole(entry) || (block_name && !block_name->matches(entry.name))) continue;
        const found_block block = find_block<Reading>(bm, entry);
        if (!block || block.head.nchan < 1 || block.head.ltotal <= block.head.head_size) continue;
        const block_extent extent(block);
        const walk_result walked =
            extent.nchan > 1 ? walk_many(extent, channel)
                             : walk_block(extent, channel, [&](const char* field) { return channel.is(field); });
        if (walked.corrupt) return nullptr;
        if (walked.found == nullptr) continue;
        out.store(block);
        if (name != nullptr && !block_name) fill_name(name, entry.name);
        return walked.found;
    }
    return nullptr;
}

// ---- slow channels --------------------------------------------------------------------------------------------------

bool carries_slow_channels(int32_t evtype) { return evtype == ZRK4_EV_HB || is_run_control(evtype); }

int answer(int32_t status, float data, float* value)
{
    if (status != 0) return 1;
    store(value, data);
    return 0;
}

int read_slow_channel(int32_t evtype, const char* channel, float* value)
{
    const std::lock_guard guard(mx_lcp);
    zrk4_upd_data_block_2010* updated = nullptr;
    if (evtype != ZRK4_EV_ENV && !find_upd_channel_2010(local_upd_copy_, channel, &updated)) {
        return answer(updated->upd_ch_status, updated->upd_ch_data, value);
    }
    zrk4_env_data_block_2010* record = nullptr;
    if (find_slow_channel_2010(local_env_copy_, local_dict_copy_, channel, &record)) return 1;
    return answer(record->env_ch_status, record->env_ch_data, value);
}

} // namespace
} // namespace zrk4::impl

using namespace zrk4::impl;

int get_sb_param(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, char* name, BM* bm,
                 time_stamp* time, int* length, long* evid, int* tmask, int* status, int* nchan)
{
    if (names_nothing(name)) return 1;
    name_query wanted(name);
    const auto list = blocks_of_either(slot, entries, bm).entries;
    const auto entry =
        std::find_if(list.begin(), list.end(), [&](const auto& e) { return !is_hole(e) && wanted.matches(e.name); });
    if (entry == list.end()) return 1;
    const found_block block = find_block<own_form>(bm, *entry);
    if (!block) return 1;
    const block_view& head = block.head;
    store(time, head.time);
    // Unsigned: whatever `ltotal` is, its low 32 bits count.
    store(length, static_cast<int>(static_cast<uint32_t>(head.ltotal) - static_cast<uint32_t>(head.head_size)));
    store(evid, head.mpulse);
    store(tmask, head.tmask);
    store(status, head.status);
    store(nchan, head.nchan);
    return 0;
}

int check_bad_sb_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm)
{
    const event_blocks event = blocks_of_either(slot, entries, bm);
    if (is_run_control(event.evtype)) return 0;
    return static_cast<int>(std::count_if(event.entries.begin(), event.entries.end(), [&](const auto& entry) {
        if (is_hole(entry)) return false;
        const found_block block = find_block<own_form>(bm, entry);
        return block && block.head.nchan == 0;
    }));
}

zrk4_serv_block_subhead_2010* get_fast_channel_data_2024(zrk4_event_slot_head_2024* slot,
                                                         zrk4_client_sblock_data* entries, char* name, char* channel,
                                                         BM* bm, zrk4_serv_block_head_2010** h10,
                                                         zrk4_serv_block_head_2024** h24)
{
    return find_channel<own_form>(blocks_of(slot, entries, bm), name, channel, bm, {h10, h24});
}

zrk4_serv_block_subhead_2010* get_fast_channel_data(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries,
                                                    char* name, char* channel, BM* bm, zrk4_serv_block_head_2010** h10)
{
    return find_channel<all_2010>(blocks_of(slot, entries, bm), name, channel, bm, {h10, nullptr});
}

int get_slow_channel_data(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, const char* channel,
                          BM* bm, zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24, float* value)
{
    const int32_t evtype = blocks_of(slot, entries, bm).evtype;
    if (!carries_slow_channels(evtype) || update_local_copies(slot, entries, bm, h10, h24)) return 1;
    return read_slow_channel(evtype, channel, value);
}

int get_slow_channel_data_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, const char* channel,
                               BM* bm, zrk4_serv_block_head_2010** h10, float* value)
{
    const int32_t evtype = blocks_of(slot, entries, bm).evtype;
    if (!carries_slow_channels(evtype) || update_local_copies_2010(slot, entries, bm, h10)) return 1;
    return read_slow_channel(evtype, channel, value);
}
