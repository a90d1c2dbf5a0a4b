/// @file
/// What the examples share: options, the sizes that all processes of a host agree on, and the heads of a block.
#ifndef ZRK4_EXAMPLES_COMMON_H
#define ZRK4_EXAMPLES_COMMON_H

#include <chrono>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "BM.h"

/// "--name value" pairs of the command line.
class options {
  public:
    options(int argc, char** argv)
    {
        for (int i = 1; i + 1 < argc; i += 2) given_[argv[i]] = argv[i + 1];
    }
    std::string text(const std::string& name, const std::string& otherwise) const
    {
        const auto at = given_.find("--" + name);
        return at == given_.end() ? otherwise : at->second;
    }
    int number(const std::string& name, int otherwise) const
    {
        return std::stoi(text(name, std::to_string(otherwise)));
    }

  private:
    std::map<std::string, std::string> given_;
};

/// Generation, time mask and sizes: the same in every process that shares the slot partitions, and before `init`. The
/// default sizes are more than a stock kernel grants.
inline void configure(BM& bm, const options& given)
{
    bm.set_evid_64bit_mode(given.number("records", 2024) == 2024);
    bm.set_time_mask(1000); // microseconds: well below half the time between two events
    bm.set_nclients(16);
    bm.set_ncl_slots(64);
    bm.set_nblocks(16);
    bm.set_rate(20);
}

/// A block of the example programs: a head, the head of its one sub-block, and that one's data.
template <class Head> struct BM_PACKED one_channel {
    Head head;
    zrk4_serv_block_subhead_2010 channel;
};

/// Writes both heads in front of `bytes` of data. @return where the data go.
template <class Head>
char* put_heads(char* at, const std::string& server, time_stamp time, int64_t id, ZRK4_SUBBLOCK_TYPE type, size_t bytes)
{
    one_channel<Head> block{};
    if constexpr (requires { block.head.pattern; }) block.head.pattern = SB_PATTERN_2024;
    block.head.time = time;
    block.head.mpulse = static_cast<decltype(block.head.mpulse)>(id);
    block.head.ltotal = static_cast<decltype(block.head.ltotal)>(sizeof block + bytes);
    block.head.nchan = 1;
    block.head.tmask = 1;
    server.copy(block.head.server, sizeof block.head.server - 1);
    std::strcpy(block.channel.chname, "DATA");
    block.channel.dtype = type;
    block.channel.ldata = static_cast<int32_t>(sizeof block.channel + bytes);
    std::memcpy(at, &block, sizeof block);
    return at + sizeof block;
}
template <class... Rest> char* put_heads(bool form_2024, char* at, Rest... rest)
{
    return form_2024 ? put_heads<zrk4_serv_block_head_2024>(at, rest...)
                     : put_heads<zrk4_serv_block_head_2010>(at, rest...);
}
/// @return where the data of a block that `put_heads` began are, and in `*bytes` how many.
inline const char* data_of(char* block, int64_t* bytes)
{
    uint64_t word = 0;
    std::memcpy(&word, block, sizeof word);
    const size_t heads = word == SB_PATTERN_2024 ? sizeof(one_channel<zrk4_serv_block_head_2024>)
                                                 : sizeof(one_channel<zrk4_serv_block_head_2010>);
    *bytes = get_len_known(block) - static_cast<int64_t>(heads);
    return block + heads;
}
/// @return number of entries of the event that a handler was given.
inline int blocks_in(bool form_2024, const void* head)
{
    return form_2024 ? static_cast<const zrk4_event_slot_head_2024*>(head)->sbfilled
                     : static_cast<const zrk4_event_slot_head*>(head)->sbfilled;
}

inline void pause_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

/// Returns when no buffer of the partition is in an event any more: when all of them can be had at once. A writer does
/// so before it leaves: a partition goes with its last user, and a reader becomes one when the first block comes to it.
inline void wait_until_all_are_back(BM& bm, int partition, int buffers)
{
    std::vector<int> taken(static_cast<size_t>(buffers), -1);
    for (int& number : taken) {
        while (bm.get_buffer_from_pool(BM_NO_WAIT, 0, &partition, &number) == nullptr) pause_ms(1);
    }
    for (const int number : taken) bm.return_buffer_in_pool(number, partition);
}

#endif
