/// @file
/// Events with run blocks in them, and what the local copies become by them.
#ifndef ZRK4_TEST_RUN_BLOCK_EVENT_H
#define ZRK4_TEST_RUN_BLOCK_EVENT_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "captured_output.h"
#include "reader_event.h"

namespace zrk4::test {

inline const sub_block DICT("DICT", ZRK4_ENV_DICT_BLOCK_2010, dict_record("TEMP", 7) + dict_record("VOLT", 9));
inline const sub_block ENV("ENV", ZRK4_ENV_BLOCK_2010, env_record(9, 1.F) + env_record(7, 2.F));
inline const sub_block UPD("UPD", ZRK4_UPD_BLOCK_2010, upd_record("VOLT", 3.F));
inline const sub_block BOR("BOR", ZRK4_BOR_BLOCK_2010, "begin");
inline const sub_block EOR("EOR", ZRK4_EOR_BLOCK_2010, "end!");
inline const sub_block DATA("DATA", ZRK4_BLOCK_1CHAN_2010, "data");

inline const sub_block LATER_DICT("DICT2", ZRK4_ENV_DICT_BLOCK_2010, dict_record("TEMP", 9));
inline const sub_block LATER_ENV("ENV2", ZRK4_ENV_BLOCK_2010, env_record(7, 20.F) + env_record(8, 80.F));
inline const sub_block LATER_UPD("UPD2", ZRK4_UPD_BLOCK_2010, upd_record("TEMP", 40.F) + upd_record("VOLT", 30.F));
inline const sub_block LATER_BOR("BOR2", ZRK4_BOR_BLOCK_2010, "begin again");
inline const sub_block LATER_EOR("EOR2", ZRK4_EOR_BLOCK_2010, "end again");

// What a merge leaves: the copy's own sub-head and size, the records that it held brought up to date.
inline const std::string MERGED_ENV =
    sub_block("ENV", ZRK4_ENV_BLOCK_2010, env_record(9, 1.F) + env_record(7, 20.F)).bytes();
inline const std::string MERGED_UPD = sub_block("UPD", ZRK4_UPD_BLOCK_2010, upd_record("VOLT", 30.F)).bytes();

inline std::string unknown(const char* event, int type)
{
    return std::string("UNKNOWN BLOCK: in ") + event + ": " + std::to_string(type) + " \n";
}

/// A copy as bytes; "none" when there is none.
inline std::string bytes_of_copy(const char* copy)
{
    if (copy == nullptr) return "none";
    return {copy, static_cast<size_t>(reinterpret_cast<const zrk4_serv_block_subhead_2010*>(copy)->ldata)};
}

/// Updates and queries of either generation.
class run_block_reader : public reader_event {
  protected:
    bool update_as(reader r)
    {
        if (r == reader::of_2010) return update_local_copies_2010(&slot_2010, entries.data(), &bm, &h10);
        return update_local_copies(&slot_2024, entries.data(), &bm, &h10, &h24);
    }
    int query_as(reader r, const char* channel, float* value)
    {
        if (r == reader::of_2010) {
            return get_slow_channel_data_2010(&slot_2010, entries.data(), channel, &bm, &h10, value);
        }
        return get_slow_channel_data(&slot_2024, entries.data(), channel, &bm, &h10, &h24, value);
    }
};

class run_block_event : public run_block_reader, public testing::WithParamInterface<reader> {
  protected:
    /// @return false on success.
    bool update() { return update_as(GetParam()); }
    /// An event of one block, which must go well. @return what was printed.
    std::string event(int type, const std::vector<sub_block>& parts)
    {
        next_event(type);
        put(block_of_2010(parts).bytes());
        return out_of([&] { EXPECT_FALSE(update()) << "false is success"; });
    }
    /// The same with a failure.
    std::string failing_event(int type, const std::vector<sub_block>& parts)
    {
        next_event(type);
        put(block_of_2010(parts).bytes());
        return out_of([&] { EXPECT_TRUE(update()) << "true is failure"; });
    }
};

inline const auto GENERATIONS = testing::Values(reader::of_2010, reader::of_2024);
inline std::string name_of(const testing::TestParamInfo<reader>& r)
{
    return r.param == reader::of_2010 ? "Readers2010" : "Readers2024";
}

} // namespace zrk4::test

#define EXPECT_COPIES(dict, env, upd, bor, eor)                                                                        \
    EXPECT_EQ(bytes_of_copy(local_dict_copy_), dict);                                                                  \
    EXPECT_EQ(bytes_of_copy(local_env_copy_), env);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_upd_copy_), upd);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_bor_copy_), bor);                                                                    \
    EXPECT_EQ(bytes_of_copy(local_eor_copy_), eor)

#endif
