/// @file
/// The records of a run-control sub-block.
#ifndef ZRK4_EVUTL_RUN_RECORDS_H
#define ZRK4_EVUTL_RUN_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "event.h"

namespace zrk4::evutl {

template <class Record> inline constexpr int32_t KIND_OF = 0;
template <> inline constexpr int32_t KIND_OF<zrk4_upd_data_block_2010> = ZRK4_UPD_BLOCK_2010;
template <> inline constexpr int32_t KIND_OF<zrk4_dict_data_block_2010> = ZRK4_ENV_DICT_BLOCK_2010;
template <> inline constexpr int32_t KIND_OF<zrk4_env_data_block_2010> = ZRK4_ENV_BLOCK_2010;

/// Whether `sub_block` holds records of this kind, perhaps none.
template <class Record> bool has_records(const char* sub_block)
{
    if (sub_block == nullptr) return false;
    return reinterpret_cast<const zrk4_serv_block_subhead_2010*>(sub_block)->dtype == KIND_OF<Record>;
}

/// The whole records of `sub_block`; none when it is null, of another kind, or too short for its own sub-head.
template <class Record> std::span<Record> records_of(char* sub_block)
{
    constexpr int32_t HEAD = sizeof(zrk4_serv_block_subhead_2010);
    if (!has_records<Record>(sub_block)) return {};
    const int32_t ldata = reinterpret_cast<const zrk4_serv_block_subhead_2010*>(sub_block)->ldata;
    if (ldata < HEAD) return {};
    return {reinterpret_cast<Record*>(sub_block + HEAD), static_cast<size_t>(ldata - HEAD) / sizeof(Record)};
}

} // namespace zrk4::evutl

#endif
