#include "model/event_text.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <fmt/format.h>

#include "evutl.h"
#include "sb_view.h"

namespace bm {
namespace {

template <class Value> json numbers(const zrk4::sb_sub& sub, size_t most)
{
    json all = json::array();
    for (size_t i = 0; i < std::min(most, sub.count<Value>()); ++i) all.push_back(sub.value<Value>(i));
    return all;
}

json bytes_of(const zrk4::sb_sub& sub, size_t most)
{
    std::string text;
    for (size_t i = 0; i < std::min(most * 8, sub.bytes()); ++i)
        text += fmt::format("{:02x}", static_cast<unsigned char>(sub.data()[i]));
    return json::array({text});
}

json values_in(const zrk4::sb_sub& sub, const event_view& event)
{
    switch (event.shown) {
    case values::f64:
        return numbers<double>(sub, event.most);
    case values::f32:
        return numbers<float>(sub, event.most);
    case values::i32:
        return numbers<int32_t>(sub, event.most);
    case values::i16:
        return numbers<int16_t>(sub, event.most);
    default:
        return bytes_of(sub, event.most);
    }
}

std::string name_in(const char (&field)[256]) { return {field, strnlen(field, sizeof field)}; }

/// Records of the run-control blocks: the name or index of a slow channel, and its value.
json records_in(const zrk4::sb_sub& sub, size_t most)
{
    json all = json::array();
    for (size_t i = 0; i < most; ++i) {
        if (sub.type() == ZRK4_ENV_DICT_BLOCK_2010) {
            const auto* r = sub.record<zrk4_dict_data_block_2010>(i);
            if (r == nullptr) break;
            all.push_back({{"index", +r->dict_ch_idx}, {"name", name_in(r->dict_ch_name)}});
        } else if (sub.type() == ZRK4_ENV_BLOCK_2010) {
            const auto* r = sub.record<zrk4_env_data_block_2010>(i);
            if (r == nullptr) break;
            all.push_back({{"index", +r->env_ch_idx}, {"status", +r->env_ch_status}, {"value", +r->env_ch_data}});
        } else {
            const auto* r = sub.record<zrk4_upd_data_block_2010>(i);
            if (r == nullptr) break;
            all.push_back({{"name", name_in(r->upd_prop)}, {"status", +r->upd_ch_status}, {"value", +r->upd_ch_data}});
        }
    }
    return all;
}

bool has_records(int32_t type)
{
    return type == ZRK4_ENV_DICT_BLOCK_2010 || type == ZRK4_ENV_BLOCK_2010 || type == ZRK4_UPD_BLOCK_2010;
}

json channel_document(const zrk4::sb_sub& sub, const event_view& event)
{
    json one{{"name", std::string(sub.name())}, {"type", sub.type()}, {"error", sub.error()}, {"bytes", sub.bytes()}};
    if (has_records(sub.type())) {
        one["records"] = records_in(sub, event.most);
    } else {
        one["values"] = values_in(sub, event);
    }
    return one;
}

std::string stamp_text(const time_stamp& t) { return fmt::format("{}.{:06}", +t.timeup, +t.timelow); }

json block_document(const zrk4_client_sblock_data& entry, const event_view& event)
{
    json one{{"name", name_in(entry.name)}, {"partition", +entry.shmid}, {"buffer", +entry.bnum}};
    const zrk4::sb_view block = zrk4::sb_of(event.manager, entry);
    one["there"] = static_cast<bool>(block);
    if (!block) return one;
    const zrk4::sb_head& head = block.head();
    one["server"] = std::string(block.server());
    one["records"] = zrk4::sb_is_2024(block.data()) ? 2024 : 2010;
    one["time"] = stamp_text(head.time);
    one["bytes"] = head.ltotal;
    one["id"] = head.mpulse;
    one["mask"] = head.tmask;
    one["status"] = head.status;
    one["sound"] = block.sound();
    one["channels"] = json::array();
    for (const zrk4::sb_sub& sub : block) one["channels"].push_back(channel_document(sub, event));
    return one;
}

template <class Head> json head_document(const Head& head)
{
    return {{"type", static_cast<int>(head.evtype)},
            {"type_name", event_name_itoa(head.evtype)},
            {"time", stamp_text(head.time)},
            {"id", static_cast<int64_t>(head.eventid)},
            {"mask", +head.tmask},
            {"expected", +head.nsblocks},
            {"filled", +head.sbfilled}};
}

std::string channel_text(const json& channel)
{
    std::string text =
        fmt::format("    {}  type {}, error {}, {} bytes:", printable(channel["name"].get<std::string>()),
                    channel["type"].get<int>(), channel["error"].get<int>(), channel["bytes"].get<size_t>());
    const json& shown = channel.contains("records") ? channel["records"] : channel["values"];
    for (const json& value : shown)
        text += " " + printable(value.is_string() ? value.get<std::string>()
                                                  : value.dump(-1, ' ', false, json::error_handler_t::replace));
    return text + "\n";
}

std::string block_text(const json& block)
{
    const std::string name = printable(block["name"].get<std::string>());
    if (!block["there"].get<bool>()) return fmt::format("  {}  not delivered\n", name);
    std::string text = fmt::format(
        "  {}  server {}, {} records, time {}, id {}, mask {:#x}, status {}, {}{}\n", name,
        printable(block["server"].get<std::string>()), block["records"].get<int>(), block["time"].get<std::string>(),
        block["id"].get<int64_t>(), static_cast<uint32_t>(block["mask"].get<int>()), block["status"].get<int>(),
        size_text(static_cast<uint64_t>(std::max<int64_t>(block["bytes"].get<int64_t>(), 0))),
        block["sound"].get<bool>() ? "" : ", DAMAGED");
    for (const json& channel : block["channels"]) text += channel_text(channel);
    return text;
}

} // namespace

values values_named(const std::string& name)
{
    if (name == "f32") return values::f32;
    if (name == "i32") return values::i32;
    if (name == "i16") return values::i16;
    return name == "hex" ? values::hex : values::f64;
}

json event_document(const event_view& event)
{
    const bool wide = event.manager.get_evid_64bit_mode();
    json one = wide ? head_document(*static_cast<zrk4_event_slot_head_2024*>(event.head))
                    : head_document(*static_cast<zrk4_event_slot_head*>(event.head));
    one["blocks"] = json::array();
    for (int i = 0; i < one["filled"].get<int>(); ++i) one["blocks"].push_back(block_document(event.entries[i], event));
    return one;
}

std::string event_text(const json& event)
{
    std::string text = fmt::format(
        "event {} {} ({}) id {}, mask {:#x}, {} of {} blocks\n", event["time"].get<std::string>(),
        event["type_name"].get<std::string>(), event["type"].get<int>(), event["id"].get<int64_t>(),
        static_cast<uint32_t>(event["mask"].get<int>()), event["filled"].get<int>(), event["expected"].get<int>());
    for (const json& block : event["blocks"]) text += block_text(block);
    return text;
}

} // namespace bm
