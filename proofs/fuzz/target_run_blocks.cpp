// Run-control events one after the other, sound and damaged, into the process's local copies; slow channels between.
#include <sanitizer/asan_interface.h>

#include "reader_event.h"
#include "target.h"

namespace fuzz {
namespace {

struct host {
    BM bm;
    data_partitions data{bm, guard::all_buffers};
};
host* here = nullptr;

// All that reads a copy is bounded by the length in it.
void check_copies()
{
    for (char* copy : {local_dict_copy_, local_env_copy_, local_upd_copy_, local_bor_copy_, local_eor_copy_}) {
        if (copy == nullptr) continue;
        const int32_t ldata = reinterpret_cast<zrk4_serv_block_subhead_2010*>(copy)->ldata;
        const auto bytes = static_cast<size_t>(std::max<int32_t>(ldata, sizeof(zrk4_serv_block_subhead_2010)));
        expect(__asan_region_is_poisoned(copy, bytes) == nullptr, "a copy is as long as it says");
    }
}

void take_event(input& in, uint8_t shape)
{
    const int evtype = (shape & 0x80) != 0 ? in.number() : (shape >> 2) % 6;
    reader_event event(in, here->data, evtype, (shape >> 5) & 3);
    const std::string channel = in.name();
    float value = 0;
    zrk4_serv_block_head_2010* h10 = nullptr;
    zrk4_serv_block_head_2024* h24 = nullptr;
    BM* const bm = &here->bm;
    switch (shape & 3) {
    case 0:
        update_local_copies(&event.slot_2024, event.entries(), bm, &h10, &h24);
        break;
    case 1:
        update_local_copies_2010(&event.slot_2010, event.entries(), bm, &h10);
        break;
    case 2:
        get_slow_channel_data(&event.slot_2024, event.entries(), channel.c_str(), bm, &h10, &h24, &value);
        break;
    default:
        get_slow_channel_data_2010(&event.slot_2010, event.entries(), channel.c_str(), bm, nullptr, nullptr);
    }
    check_copies();
}

} // namespace

void prepare() { here = new host; }

void run(input& in)
{
    bm_util_init();
    for (int n = 0; n < 8 && !in.empty(); ++n) take_event(in, in.byte());
    clean_local_copies();
}

} // namespace fuzz
