// Slow channels by name.
#include <algorithm>

#include "evutl.h"
#include "impl/name_query.h"
#include "run_records.h"

namespace {

using namespace zrk4::evutl;
using zrk4::impl::name_query;

/// First record of `sub_block` that is `wanted`, null when there is none.
template <class Record, class Wanted> Record* first_of(char* sub_block, Wanted wanted)
{
    const auto records = records_of<Record>(sub_block);
    const auto at = std::find_if(records.begin(), records.end(), wanted);
    return at == records.end() ? nullptr : &*at;
}

template <class Record> bool answer(Record* found, Record** record)
{
    if (found == nullptr) return true;
    if (record != nullptr) *record = found;
    return false;
}

bool names_nothing(const char* channel) { return channel == nullptr || channel[0] == '\0'; }

} // namespace

bool find_upd_channel_2010(char* upd, const char* channel, zrk4_upd_data_block_2010** record)
{
    using record_t = zrk4_upd_data_block_2010;
    if (names_nothing(channel)) return true;
    name_query name(channel);
    return answer(first_of<record_t>(upd, [&](const record_t& r) { return name.matches(r.upd_prop); }), record);
}

bool find_slow_channel_2010(char* env, char* dict, const char* channel, zrk4_env_data_block_2010** record)
{
    using entry_t = zrk4_dict_data_block_2010;
    using record_t = zrk4_env_data_block_2010;
    if (names_nothing(channel)) return true;
    name_query name(channel);
    const auto* entry = first_of<entry_t>(dict, [&](const entry_t& e) { return name.matches(e.dict_ch_name); });
    if (entry == nullptr) return true;
    const int32_t index = entry->dict_ch_idx;
    return answer(first_of<record_t>(env, [&](const record_t& r) { return r.env_ch_idx == index; }), record);
}
