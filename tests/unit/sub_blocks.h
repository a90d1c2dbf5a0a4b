/// @file
/// Server blocks and sub-blocks as bytes, sound ones and others.
#ifndef ZRK4_TEST_SUB_BLOCKS_H
#define ZRK4_TEST_SUB_BLOCKS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "event.h"

namespace zrk4::test {

inline constexpr int32_t SUBHEAD = sizeof(zrk4_serv_block_subhead_2010);
inline constexpr int32_t HEAD_2010 = sizeof(zrk4_serv_block_head_2010);
inline constexpr int32_t HEAD_2024 = sizeof(zrk4_serv_block_head_2024);

/// `name` in 256 bytes. Behind its NUL stands what an earlier, longer name left.
inline void put_name(char* field, const std::string& name)
{
    std::memset(field, '~', 256);
    std::memcpy(field, name.c_str(), name.size() < 256 ? name.size() + 1 : 256);
}

template <class Record> std::string bytes_of(const Record& record)
{
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

inline std::string env_record(int32_t index, float value, int32_t status = 0)
{
    return bytes_of(zrk4_env_data_block_2010{index, status, {7, 8}, value});
}

inline std::string upd_record(const std::string& name, float value, int32_t status = 0)
{
    zrk4_upd_data_block_2010 r{};
    put_name(r.upd_prop, name);
    r.upd_ch_status = status;
    r.upd_ch_time = {7, 8};
    r.upd_ch_data = value;
    return bytes_of(r);
}

inline std::string dict_record(const std::string& name, int32_t index)
{
    zrk4_dict_data_block_2010 r{};
    put_name(r.dict_ch_name, name);
    r.dict_ch_idx = index;
    return bytes_of(r);
}

/// A sub-block. `ldata` is what its head says, for a sound one its real length.
struct sub_block {
    std::string name;
    int32_t type;
    std::string data;
    int32_t ldata;

    sub_block(std::string name_, int32_t type_, std::string data_ = {})
        : name(std::move(name_)),
          type(type_),
          data(std::move(data_)),
          ldata(SUBHEAD + static_cast<int32_t>(data.size()))
    {
    }
    sub_block says(int32_t length) const
    {
        sub_block other = *this;
        other.ldata = length;
        return other;
    }
    std::string bytes() const
    {
        zrk4_serv_block_subhead_2010 head{};
        put_name(head.chname, name);
        head.dtype = type;
        head.error = 5;
        head.ldata = ldata;
        return bytes_of(head) + data;
    }
};

/// A server block. `ltotal` and `nchan` are set for a sound one; change them before `bytes` for another.
template <class Head> struct server_block {
    Head head{};
    std::string behind;

    explicit server_block(const std::vector<sub_block>& parts)
    {
        if constexpr (sizeof(Head) == HEAD_2024) head.pattern = SB_PATTERN_2024;
        head.time = {1700000000, 123456};
        head.mpulse = -42;
        put_name(head.server, "SERVER");
        head.tmask = 0xF0;
        head.status = 3;
        for (const sub_block& part : parts) behind += part.bytes();
        head.nchan = static_cast<int32_t>(parts.size());
        head.ltotal = static_cast<int32_t>(sizeof head + behind.size());
    }
    std::string bytes() const { return bytes_of(head) + behind; }
};
using block_of_2010 = server_block<zrk4_serv_block_head_2010>;
using block_of_2024 = server_block<zrk4_serv_block_head_2024>;

/// Bytes on the heap that begin `shift` bytes behind an address divisible by 8 and end where the sanitizer's guard does.
class placed_bytes {
  public:
    placed_bytes(const std::string& bytes, size_t shift) : memory_(shift + bytes.size()), at_(memory_.data() + shift)
    {
        std::memcpy(at_, bytes.data(), bytes.size());
    }
    char* at() { return at_; }

  private:
    std::vector<char> memory_;
    char* at_;
};

} // namespace zrk4::test

#endif
