#include "block_recipe.h"

namespace fuzz {
namespace {

std::string record_of(input& in, int32_t type)
{
    switch (type) {
    case ZRK4_ENV_DICT_BLOCK_2010: {
        zrk4_dict_data_block_2010 r{};
        in.name(r.dict_ch_name);
        r.dict_ch_idx = in.number();
        return bytes_of(r);
    }
    case ZRK4_ENV_BLOCK_2010:
        return bytes_of(zrk4_env_data_block_2010{in.number(), in.one_of(3), {1, 2}, 1.5F});
    case ZRK4_UPD_BLOCK_2010: {
        zrk4_upd_data_block_2010 r{};
        in.name(r.upd_prop);
        r.upd_ch_status = in.one_of(3);
        r.upd_ch_data = 2.5F;
        return bytes_of(r);
    }
    default:
        return {static_cast<char>(in.byte())};
    }
}

template <class Head> std::string head_bytes(input& in, int parts, size_t behind)
{
    Head head{};
    if constexpr (sizeof(Head) == sizeof(zrk4_serv_block_head_2024)) head.pattern = SB_PATTERN_2024;
    const uint8_t lies = in.byte();
    in.name(head.server);
    head.time = {1700000000, 123456};
    head.mpulse = in.number();
    head.tmask = 0xF0;
    const auto all = static_cast<int64_t>(sizeof head + behind);
    int64_t ltotal = all;
    if ((lies & 1) != 0) ltotal = (lies & 2) != 0 ? in.wide_number() : all + in.take<int8_t>();
    head.ltotal = static_cast<decltype(head.ltotal)>(ltotal);
    head.nchan = (lies & 4) != 0 ? in.number() : parts;
    return bytes_of(head);
}

// Anywhere, also in the pattern.
void damage(input& in, std::string& bytes)
{
    for (int n = in.byte() & 3; n > 0 && !bytes.empty(); --n) {
        const size_t at = in.take<uint16_t>() % bytes.size();
        bytes[at] = static_cast<char>(in.byte());
    }
}

} // namespace

int32_t sub_block_type(input& in)
{
    const uint8_t kind = in.byte();
    return kind < 0xE0 ? ZRK4_UPD_BLOCK_2010 + kind % 7 : in.number();
}

std::string sub_block(input& in, int32_t type, bool& honest)
{
    zrk4_serv_block_subhead_2010 head{};
    in.name(head.chname);
    head.dtype = type;
    head.error = in.byte();
    std::string data;
    const uint8_t shape = in.byte();
    for (int n = shape & 7; n > 0; --n) data += record_of(in, type);
    honest = (shape & 0x18) != 0x18;
    head.ldata = honest ? static_cast<int32_t>(sizeof head + data.size()) : in.number();
    return bytes_of(head) + data;
}

std::string server_block(input& in, size_t room)
{
    const uint8_t shape = in.byte();
    const int parts = (shape >> 1) & 7;
    std::string behind;
    for (int n = 0; n < parts && behind.size() < room; ++n) {
        bool honest = true;
        behind += sub_block(in, sub_block_type(in), honest);
    }
    std::string bytes = (shape & 1) != 0 ? head_bytes<zrk4_serv_block_head_2024>(in, parts, behind.size())
                                         : head_bytes<zrk4_serv_block_head_2010>(in, parts, behind.size());
    bytes += behind;
    bytes.resize(std::min(bytes.size(), room));
    damage(in, bytes);
    return bytes;
}

} // namespace fuzz
