#include "block_recipe.h"

#include <cstddef>

namespace fuzz {
namespace {

void append_record(input& in, int32_t type, std::string& to)
{
    switch (type) {
    case ZRK4_ENV_DICT_BLOCK_2010: {
        zrk4_dict_data_block_2010 r{};
        in.name(r.dict_ch_name);
        r.dict_ch_idx = in.number();
        return append(to, r);
    }
    case ZRK4_ENV_BLOCK_2010:
        return append(to, zrk4_env_data_block_2010{in.number(), in.one_of(3), {1, 2}, 1.5F});
    case ZRK4_UPD_BLOCK_2010: {
        zrk4_upd_data_block_2010 r{};
        in.name(r.upd_prop);
        r.upd_ch_status = in.one_of(3);
        r.upd_ch_data = 2.5F;
        return append(to, r);
    }
    default:
        to += static_cast<char>(in.byte());
    }
}

/// In front of `block`, where room for it was left.
template <class Head> void put_head(input& in, int parts, std::string& block)
{
    Head head{};
    if constexpr (sizeof(Head) == sizeof(zrk4_serv_block_head_2024)) head.pattern = SB_PATTERN_2024;
    const uint8_t lies = in.byte();
    in.name(head.server);
    head.time = {1700000000, 123456};
    head.mpulse = in.number();
    head.tmask = 0xF0;
    const auto all = static_cast<int64_t>(block.size());
    int64_t ltotal = all;
    if ((lies & 1) != 0) ltotal = (lies & 2) != 0 ? in.wide_number() : all + in.take<int8_t>();
    head.ltotal = static_cast<decltype(head.ltotal)>(ltotal);
    head.nchan = (lies & 4) != 0 ? in.number() : parts;
    std::memcpy(block.data(), &head, sizeof head);
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

void sub_block(input& in, int32_t type, bool& honest, std::string& to)
{
    zrk4_serv_block_subhead_2010 head{};
    in.name(head.chname);
    head.dtype = type;
    head.error = in.byte();
    const size_t at = to.size();
    append(to, head);
    const uint8_t shape = in.byte();
    for (int n = shape & 7; n > 0; --n) append_record(in, type, to);
    honest = (shape & 0x18) != 0x18;
    const int32_t ldata = honest ? static_cast<int32_t>(to.size() - at) : in.number();
    std::memcpy(&to[at + offsetof(zrk4_serv_block_subhead_2010, ldata)], &ldata, sizeof ldata);
}

const std::string& server_block(input& in, size_t room)
{
    static std::string bytes; // keeps its room: the heap of the sanitizer is slow
    const uint8_t shape = in.byte();
    const int parts = (shape >> 1) & 7;
    const bool wide = (shape & 1) != 0;
    const size_t head = wide ? sizeof(zrk4_serv_block_head_2024) : sizeof(zrk4_serv_block_head_2010);
    bytes.assign(head, '\0');
    for (int n = 0; n < parts && bytes.size() - head < room; ++n) {
        bool honest = true;
        sub_block(in, sub_block_type(in), honest, bytes);
    }
    wide ? put_head<zrk4_serv_block_head_2024>(in, parts, bytes)
         : put_head<zrk4_serv_block_head_2010>(in, parts, bytes);
    bytes.resize(std::min(bytes.size(), room));
    damage(in, bytes);
    return bytes;
}

} // namespace fuzz
