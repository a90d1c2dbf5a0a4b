#include "slow_reader.h"

#include <cstring>

#include "bm_util.h"

namespace demo {
namespace {

std::string text_of(const char (&name)[256]) { return {name, strnlen(name, sizeof name)}; }

} // namespace

slow_reader::slow_reader(BM& bm, bool records_2024, run_control_record& mine, live_table& table)
    : bm_(bm), records_2024_(records_2024), mine_(mine), table_(table)
{
    bm_util_init();
}

void slow_reader::event(void* head, zrk4_client_sblock_data* first, const event_facts& facts, bool was_due)
{
    const auto kind = run_event_of(facts.type);
    if (!kind || !was_due) {
        ++mine_.strangers;
        return;
    }
    const asked event{head, first};
    if (!copy(event)) ++mine_.not_copied;
    bool whole = facts.blocks == 1;
    for (int i = 0; i < facts.blocks; ++i) {
        const zrk4::sb_view block = zrk4::sb_of(bm_, first[i]);
        whole = whole && block.sound();
        for (const zrk4::sb_sub& records : block) take(event, records);
    }
    if (whole) ++mine_.received[*kind];
}

bool slow_reader::copy(const asked& event)
{
    if (records_2024_) {
        auto* slot = static_cast<zrk4_event_slot_head_2024*>(event.head);
        return !update_local_copies(slot, event.first, &bm_, nullptr, nullptr);
    }
    return !update_local_copies_2010(static_cast<zrk4_event_slot_head*>(event.head), event.first, &bm_, nullptr);
}

void slow_reader::take(const asked& event, const zrk4::sb_sub& records)
{
    switch (records.type()) {
    case ZRK4_ENV_DICT_BLOCK_2010:
        return take_dictionary(records);
    case ZRK4_ENV_BLOCK_2010:
        return take_environment(event, records);
    case ZRK4_UPD_BLOCK_2010:
        return take_update(event, records);
    case ZRK4_BOR_BLOCK_2010:
        return take_mark(local_bor_copy_, records);
    case ZRK4_EOR_BLOCK_2010:
        return take_mark(local_eor_copy_, records);
    default:
        ++mine_.mistaken;
    }
}

void slow_reader::take_dictionary(const zrk4::sb_sub& records)
{
    using record = zrk4_dict_data_block_2010;
    for (size_t i = 0; i < records.count<record>(); ++i) {
        const auto* one = records.record<record>(i);
        dictionary_.emplace(one->dict_ch_idx, text_of(one->dict_ch_name));
    }
}

void slow_reader::take_environment(const asked& event, const zrk4::sb_sub& records)
{
    using record = zrk4_env_data_block_2010;
    for (size_t i = 0; i < records.count<record>(); ++i) {
        const auto* one = records.record<record>(i);
        const auto named = dictionary_.find(one->env_ch_idx);
        if (named == dictionary_.end()) {
            ++mine_.mistaken;
            continue;
        }
        if (ask(event, named->second, one->env_ch_data, one->env_ch_status)) read_.insert(named->first);
    }
    mine_.by_name = read_.size();
}

void slow_reader::take_update(const asked& event, const zrk4::sb_sub& records)
{
    using record = zrk4_upd_data_block_2010;
    for (size_t i = 0; i < records.count<record>(); ++i) {
        const auto* one = records.record<record>(i);
        ask(event, text_of(one->upd_prop), one->upd_ch_data, one->upd_ch_status);
    }
}

// The begin and the end of a run are kept as they came.
void slow_reader::take_mark(const char* copied, const zrk4::sb_sub& records)
{
    const char* head = records.data() - sizeof(zrk4_serv_block_subhead_2010);
    const size_t bytes = records.bytes() + sizeof(zrk4_serv_block_subhead_2010);
    if (copied == nullptr || std::memcmp(copied, head, bytes) != 0) ++mine_.not_copied;
}

/// What was sent as valid must come back by its name as it was sent, and nothing else.
/// @return whether a value came.
bool slow_reader::ask(const asked& event, const std::string& name, float sent, int32_t status)
{
    float value = 0;
    const char* channel = name.c_str();
    const bool found = [&] {
        if (records_2024_) {
            auto* slot = static_cast<zrk4_event_slot_head_2024*>(event.head);
            return get_slow_channel_data(slot, event.first, channel, &bm_, nullptr, nullptr, &value) == 0;
        }
        auto* slot = static_cast<zrk4_event_slot_head*>(event.head);
        return get_slow_channel_data_2010(slot, event.first, channel, &bm_, nullptr, &value) == 0;
    }();
    ++mine_.values;
    if (found != (status == 0) || (found && value != sent)) ++mine_.mistaken;
    if (found) table_.slow(name, value);
    return found;
}

} // namespace demo
