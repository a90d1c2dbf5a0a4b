#include "loops.h"

#include <cstring>

namespace bench {
namespace {

constexpr size_t NAME_SIZE = 256;

template <class Head> char* loop_behind(char* block, const char* name)
{
    return plain_loop(block + sizeof(Head), reinterpret_cast<const Head*>(block)->nchan, name);
}

char* address_of(const zrk4_client_sblock_data& entry, BM& bm)
{
    return bm.get_buffer_address(entry.bnum, entry.shmid, /*attach=*/true);
}

} // namespace

char* plain_loop(char* first, int count, const char* name)
{
    char* at = first;
    for (int c = 0; c < count; ++c) {
        const auto* sub = reinterpret_cast<const zrk4_serv_block_subhead_2010*>(at);
        if (std::strncmp(sub->chname, name, NAME_SIZE) == 0) return at;
        at += sub->ldata;
    }
    return nullptr;
}

char* plain_loop_2010(const zrk4_client_sblock_data* entries, BM& bm, const char* name)
{
    return loop_behind<zrk4_serv_block_head_2010>(address_of(*entries, bm), name);
}

char* plain_loop_2024(const zrk4_client_sblock_data* entries, BM& bm, const char* name)
{
    char* const block = address_of(*entries, bm);
    uint64_t pattern = 0;
    std::memcpy(&pattern, block, sizeof pattern);
    return pattern == SB_PATTERN_2024 ? loop_behind<zrk4_serv_block_head_2024>(block, name)
                                      : loop_behind<zrk4_serv_block_head_2010>(block, name);
}

int compare_names(const char* first, size_t step, int count, const char* name)
{
    int equal = 0;
    for (int i = 0; i < count; ++i) {
        if (std::strncmp(first + static_cast<size_t>(i) * step, name, NAME_SIZE) == 0) ++equal;
    }
    return equal;
}

} // namespace bench
