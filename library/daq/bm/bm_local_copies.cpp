// The process's own copies of the run-control blocks.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "bm_util.h"
#include "event_blocks.h"
#include "evutl.h"
#include "local_copies.h"
#include "text_later.h"

char* local_dict_copy_ = nullptr;
char* local_env_copy_ = nullptr;
char* local_upd_copy_ = nullptr;
char* local_bor_copy_ = nullptr;
char* local_eor_copy_ = nullptr;

namespace zrk4::impl {

std::mutex mx_lcp;

namespace {

/// A kind of run-control block.
struct run_block {
    int32_t type;
    char** copy;
    const char* no_memory;
    bool (*merge)(char* copy, char* fresh) = nullptr;
};

constexpr run_block DICT{ZRK4_ENV_DICT_BLOCK_2010, &local_dict_copy_,
                         "Failed to allocate memory for the local copy of DICT\n"};
constexpr run_block ENV{ZRK4_ENV_BLOCK_2010, &local_env_copy_, "Failed to allocate memory for the local copy of ENV\n",
                        copy_env_entries_2010};
constexpr run_block UPD{ZRK4_UPD_BLOCK_2010, &local_upd_copy_, "Failed to allocate memory for the local copy of UPD\n",
                        copy_upd_entries_2010};
constexpr run_block BOR{ZRK4_BOR_BLOCK_2010, &local_bor_copy_, "Failed to allocate memory for the local copy of BOR\n"};
constexpr run_block EOR{ZRK4_EOR_BLOCK_2010, &local_eor_copy_, "Failed to allocate memory for the local copy of EOR\n"};

/// What an event of one type does with a kind of block that it carries.
struct treatment {
    const run_block& block;
    const char* merge_failed = nullptr; ///< null: a copy that exists stays as it is
    bool needs_dictionary = false;
    bool no_memory_is_failure = true;
};

constexpr treatment IN_HB[] = {
    {DICT}, {ENV, "Failed to update the local copy of ENV\n", /*needs_dictionary=*/true}, {UPD}};
constexpr treatment IN_BOR[] = {{DICT}, {BOR}, {UPD}};
// Readers count on a run that ends well although its last values could not be kept.
constexpr treatment IN_EOR[] = {
    {UPD, "Failed to update UPD in EOR\n", /*needs_dictionary=*/false, /*no_memory_is_failure=*/false}, {EOR}};
constexpr treatment IN_ENV[] = {{ENV, "Failed to update the local copy of ENV\n", /*needs_dictionary=*/true}};
constexpr treatment IN_UPD[] = {{UPD, "Failed to update UPD in UPD\n"}, {DICT}};

enum class walk { all, first };
enum class flush { no, yes };

struct event_rules {
    std::span<const treatment> treatments;
    const char*
        name; ///< for the report of an unknown block; null: the first sub-block is taken whatever its type, even
              ///< from a block that counts none
    walk blocks = walk::all;
    flush unknown = flush::no;
};

constexpr event_rules RULES[] = {
    /* ZRK4_EV_HB */ {IN_HB, "HB"},
    /* ZRK4_EV_NORMAL */ {{}, ""},
    /* ZRK4_EV_BOR */ {IN_BOR, "BOR"},
    /* ZRK4_EV_EOR */ {IN_EOR, "EOR"},
    /* ZRK4_EV_ENV */ {IN_ENV, nullptr, walk::first},
    /* ZRK4_EV_UPD */ {IN_UPD, "UPD", walk::first, flush::yes},
};

bool carries_run_blocks(int32_t evtype)
{
    return evtype >= ZRK4_EV_HB && evtype <= ZRK4_EV_UPD && evtype != ZRK4_EV_NORMAL;
}

/// A sub-block in shared memory. Its length was read once: it may be anything, and may change.
struct sub_block {
    char* at;
    int32_t ldata;
    bool whole; ///< it lies inside its server block

    int32_t type() const { return reinterpret_cast<const zrk4_serv_block_subhead_2010*>(at)->dtype; }
};

// A copy is never shorter than a sub-head: whoever reads it reads that first.
char* copy_of(const sub_block& fresh)
{
    if (!fresh.whole) return nullptr;
    const auto bytes = static_cast<size_t>(fresh.ldata);
    auto* copy = static_cast<char*>(std::calloc(std::max(bytes, sizeof(zrk4_serv_block_subhead_2010)), 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, fresh.at, bytes);
    // All that is read of a copy is bounded by its length, so it must be the one that was allocated.
    if (fresh.ldata >= SUBHEAD_SIZE) reinterpret_cast<zrk4_serv_block_subhead_2010*>(copy)->ldata = fresh.ldata;
    return copy;
}

void say_and_flush(const char* text)
{
    say_plain("%s", text);
    flush_all_later();
}

/// REQUIRES: mx_lcp. @return true on failure.
bool create(const treatment& how, const sub_block& fresh)
{
    if (how.needs_dictionary && local_dict_copy_ == nullptr) return false;
    *how.block.copy = copy_of(fresh);
    if (*how.block.copy != nullptr) return false;
    say_and_flush(how.block.no_memory);
    return how.no_memory_is_failure;
}

/// REQUIRES: mx_lcp. @return true on failure.
bool merge(const treatment& how, const sub_block& fresh)
{
    if (how.merge_failed == nullptr) return false;
    if (fresh.whole && !how.block.merge(*how.block.copy, fresh.at)) return false;
    say_and_flush(how.merge_failed);
    return true;
}

bool create_or_merge(const treatment& how, const sub_block& fresh)
{
    const text_later texts; // speaks when the lock is given back
    const std::lock_guard guard(mx_lcp);
    return *how.block.copy == nullptr ? create(how, fresh) : merge(how, fresh);
}

/// @return true on failure; a block of an unknown type is none.
bool take(const event_rules& rules, const sub_block& fresh)
{
    const int32_t type = fresh.type();
    for (const treatment& how : rules.treatments) {
        if (rules.name == nullptr || how.block.type == type) return create_or_merge(how, fresh);
    }
    say_plain("UNKNOWN BLOCK: in %s: %d \n", rules.name, type);
    if (rules.unknown == flush::yes) flush_all_later();
    return false;
}

bool take_all(const event_rules& rules, const found_block& block)
{
    bool failed = false;
    block_view head = block.head;
    if (rules.name == nullptr) head.nchan = 1;
    // What the sub-blocks say of themselves is believed as far as the buffer goes; the block's own length is not asked.
    head.ltotal = block.place.room();
    for_each_sub_block(block.place.at, head, block.place.room(), [&](char* at, int32_t ldata, int64_t room) {
        failed |= take(rules, {at, ldata, ldata >= 0 && ldata <= room});
        return rules.blocks == walk::all;
    });
    return failed;
}

template <class Reading> bool update(const event_blocks& event, BM* bm, const head_outputs& out)
{
    bool failed = false;
    found_block last;
    for (const zrk4_client_sblock_data& entry : event.entries) {
        if (is_hole(entry)) continue;
        if (!carries_run_blocks(event.evtype)) return true;
        const found_block block = find_block<Reading>(bm, entry);
        if (!block) continue;
        last = block;
        failed |= take_all(RULES[event.evtype], block);
    }
    out.store(last);
    return failed;
}

void drop(char*& copy)
{
    std::free(copy);
    copy = nullptr;
}

} // namespace
} // namespace zrk4::impl

using namespace zrk4::impl;

void bm_util_init() { clean_local_copies(); }

void clean_local_copies()
{
    const std::lock_guard guard(mx_lcp);
    drop(local_bor_copy_);
    drop(local_env_copy_);
    drop(local_upd_copy_);
    drop(local_eor_copy_);
    drop(local_dict_copy_);
}

bool update_local_copies(zrk4_event_slot_head_2024* slot, zrk4_client_sblock_data* entries, BM* bm,
                         zrk4_serv_block_head_2010** h10, zrk4_serv_block_head_2024** h24)
{
    return update<own_form>(blocks_of(slot, entries, bm), bm, {h10, h24});
}

bool update_local_copies_2010(zrk4_event_slot_head* slot, zrk4_client_sblock_data* entries, BM* bm,
                              zrk4_serv_block_head_2010** h10)
{
    return update<all_2010>(blocks_of(slot, entries, bm), bm, {h10, nullptr});
}
