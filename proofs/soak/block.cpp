#include "block.h"

#include <cstring>

namespace soak {
namespace {

/// One channel; behind it comes the payload.
template <class Head> struct BM_PACKED block_head {
    Head head;
    zrk4_serv_block_subhead_2010 channel;
    int32_t writer;
    uint64_t serial;
    uint64_t sum; ///< of all bytes of the block, these eight taken as 0
};
using narrow_head = block_head<zrk4_serv_block_head_2010>;
using wide_head = block_head<zrk4_serv_block_head_2024>;

constexpr uint64_t SUM_OF_NOTHING = 14695981039346656037U;

uint64_t sum_of(const void* at, size_t bytes, uint64_t sum = SUM_OF_NOTHING)
{
    for (size_t i = 0; i < bytes; ++i) sum = (sum ^ static_cast<const unsigned char*>(at)[i]) * 1099511628211U;
    return sum;
}

template <class Block> uint64_t sum_of_block(Block head, const char* payload, size_t bytes)
{
    head.sum = 0;
    return sum_of(payload, bytes, sum_of(&head, sizeof head));
}

size_t payload_bytes(const label& what)
{
    return 256 + sum_of(&what.serial, sizeof what.serial) % (BUFFER_BYTES - sizeof(wide_head) - 256);
}

template <class Head> void write(char* at, const label& what)
{
    block_head<Head> block{};
    const size_t bytes = payload_bytes(what);
    if constexpr (requires { block.head.pattern; }) block.head.pattern = SB_PATTERN_2024;
    block.head.time = what.time;
    block.head.mpulse = static_cast<decltype(block.head.mpulse)>(what.id);
    block.head.ltotal = static_cast<decltype(block.head.ltotal)>(sizeof block + bytes);
    block.head.nchan = 1;
    block.head.tmask = 1;
    what.server.copy(block.head.server, sizeof block.head.server - 1);
    std::strcpy(block.channel.chname, "PAYLOAD");
    block.channel.ldata = static_cast<int32_t>(sizeof block - sizeof(Head) + bytes);
    block.writer = what.writer;
    block.serial = what.serial;
    uint64_t next = sum_of(&what.serial, sizeof what.serial) + static_cast<uint64_t>(what.writer);
    char* payload = at + sizeof block;
    for (size_t i = 0; i < bytes; ++i) {
        next = next * 6364136223846793005U + 1442695040888963407U;
        payload[i] = static_cast<char>(next >> 56U);
    }
    block.sum = sum_of_block(block, payload, bytes);
    std::memcpy(at, &block, sizeof block);
}

template <class Head> block_seen read(const char* at)
{
    block_head<Head> block{};
    std::memcpy(&block, at, sizeof block);
    const int64_t length = block.head.ltotal;
    block_seen seen;
    seen.says = {std::string(block.head.server, strnlen(block.head.server, sizeof block.head.server)), block.head.time,
                 block.head.mpulse, block.writer, block.serial};
    if (length < static_cast<int64_t>(sizeof block) || length > static_cast<int64_t>(BUFFER_BYTES)) return seen;
    seen.sound = block.sum == sum_of_block(block, at + sizeof block, static_cast<size_t>(length) - sizeof block);
    return seen;
}

} // namespace

void write_block(char* at, bool wide, const label& what)
{
    if (wide) {
        write<zrk4_serv_block_head_2024>(at, what);
    } else {
        write<zrk4_serv_block_head_2010>(at, what);
    }
}

block_seen read_block(const char* at)
{
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word == SB_PATTERN_2024 ? read<zrk4_serv_block_head_2024>(at) : read<zrk4_serv_block_head_2010>(at);
}

size_t payload_offset(bool wide) { return wide ? sizeof(wide_head) : sizeof(narrow_head); }

} // namespace soak
