#include "walkers.h"

#include <string>

#include "guarded.h"
#include "sb_view.h"
#include "target.h"

namespace fuzz {
namespace {

void touch(const zrk4_serv_block_subhead_2010* found)
{
    if (found == nullptr) return;
    expect_readable(found, sizeof *found);
    expect(found->ldata >= 0, "a channel that is found has a length");
}

void look_for_channel(input& in, const walked_event& event)
{
    std::string channel = in.name();
    char name[256];
    in.name(name);
    char* filter = in.flag() ? name : nullptr;
    zrk4_serv_block_head_2010* h10 = nullptr;
    zrk4_serv_block_head_2024* h24 = nullptr;
    if (event.slot_2010 != nullptr) {
        touch(get_fast_channel_data(event.slot_2010, event.entries, filter, channel.data(), &event.bm, &h10));
    }
    if (event.slot_2024 == nullptr) return;
    auto* found =
        get_fast_channel_data_2024(event.slot_2024, event.entries, filter, channel.data(), &event.bm, &h10, &h24);
    touch(found);
    if (found != nullptr) expect((h10 == nullptr) != (h24 == nullptr), "one head is that of the block");
}

void ask_for_parameters(input& in, zrk4_event_slot_head_2024* slot, const walked_event& event)
{
    char name[256];
    in.name(name);
    time_stamp time{};
    int length = 0;
    int tmask = 0;
    int status = 0;
    int nchan = 0;
    long evid = 0;
    get_sb_param(slot, event.entries, name, &event.bm, &time, &length, &evid, &tmask, &status, &nchan);
    get_sb_param(slot, event.entries, name, &event.bm, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    expect(check_bad_sb_data(slot, event.entries, &event.bm) >= 0, "a number of blocks");
}

} // namespace

void walk(input& in, const walked_event& event)
{
    look_for_channel(in, event);
    look_for_channel(in, event);
    if (event.slot_2024 != nullptr) ask_for_parameters(in, event.slot_2024, event);
}

char* find_in_any(const walked_event& event, const std::string& channel)
{
    std::string name = channel;
    return reinterpret_cast<char*>(
        get_fast_channel_data_2024(event.slot_2024, event.entries, nullptr, name.data(), &event.bm, nullptr, nullptr));
}

} // namespace fuzz
