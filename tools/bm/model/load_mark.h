/// @file
/// What the generator puts into its blocks, and the consumer finds there.
#ifndef ZRK4_TOOL_LOAD_MARK_H
#define ZRK4_TOOL_LOAD_MARK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "sb_view.h"

namespace bm {

inline constexpr char LOAD_CHANNEL[] = "BM.LOAD";

/// Begins the data of the channel; a pattern made of it fills the rest.
struct load_mark {
    uint64_t magic;
    uint64_t run;    ///< the same in all blocks of one generator
    int64_t event;   ///< counted from 0, without gaps
    int64_t sent_us; ///< wall clock, when the block was filled
    uint64_t bytes;  ///< of the pattern
};
inline constexpr uint64_t LOAD_MAGIC = 0x62'6d'2e'6c'6f'61'64'31;

/// Word `i` of the pattern: every word of every block differs from its neighbours'.
inline uint64_t pattern_word(const load_mark& mark, uint64_t i)
{
    uint64_t x = mark.run + static_cast<uint64_t>(mark.event) * 0x9E3779B97F4A7C15 + i;
    x ^= x >> 31;
    x *= 0xBF58476D1CE4E5B9;
    return x ^ (x >> 29);
}

inline void fill_pattern(const load_mark& mark, char* at)
{
    for (uint64_t done = 0; done < mark.bytes; done += sizeof(uint64_t)) {
        const uint64_t word = pattern_word(mark, done / sizeof word);
        std::memcpy(at + done, &word, std::min<uint64_t>(sizeof word, mark.bytes - done));
    }
}

/// What a consumer says of one block.
struct load_found {
    std::optional<load_mark> mark; ///< empty: no block of a generator
    bool whole = false;            ///< its pattern is as it was written
};

inline bool pattern_holds(const load_mark& mark, const zrk4::sb_sub& data)
{
    if (data.bytes() != sizeof mark + mark.bytes) return false;
    const char* at = data.data() + sizeof mark;
    for (uint64_t done = 0; done < mark.bytes; done += sizeof(uint64_t)) {
        const uint64_t word = pattern_word(mark, done / sizeof word);
        if (std::memcmp(at + done, &word, std::min<uint64_t>(sizeof word, mark.bytes - done)) != 0) return false;
    }
    return true;
}

inline load_found load_in(const zrk4::sb_view& block)
{
    for (const zrk4::sb_sub& sub : block) {
        const auto mark = sub.value<load_mark>(0);
        if (sub.name() != LOAD_CHANNEL || mark.magic != LOAD_MAGIC) continue;
        return {mark, block.sound() && pattern_holds(mark, sub)};
    }
    return {};
}

} // namespace bm

#endif
