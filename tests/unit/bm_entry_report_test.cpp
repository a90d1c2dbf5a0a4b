// Reports of events that got more blocks than they expect: nine in the life of a process.
//
// A block is refused before it would be one too many, so an event gets there only when its head changes in between: here
// the reader of the block's name changes it. The count is the process's: one case, in a program of its own.
#include "event_host.h"

using namespace zrk4::test;

namespace {

slot_bytes* changed = nullptr;

char* lower_the_count(char* block)
{
    changed->put(&slot_layout::nsblocks, 0);
    return get_bname_known(block);
}

/// Enters a block into an event that expects none any more when it is entered.
void enter_one_too_many(event_host& host, int i)
{
    slot_bytes slot = host.slot(1);
    changed = &slot;
    slot.put(&slot_layout::nsblocks, 1000);
    host.bm.ev_update(host.TYPE, host.data_id, host.put({.server = std::to_string(i)}), 1);
    EXPECT_EQ(slot.sbfilled(), i + 1);
}

class BmEntryReport : public CleanNamespace {};

TEST_F(BmEntryReport, IsMadeNineTimesInAProcessWhateverTheForm)
{
    const std::string line = "DATE print_out_event(): Failed to find event slot: 1 \n";
    {
        event_host host(generation::of_2010);
        host.bm.set_get_name_func(host.TYPE, lower_the_count);
        host.used_slot();
        for (int i = 0; i < 4; ++i) EXPECT_EQ(said([&] { enter_one_too_many(host, i); }), line) << i;
    }
    event_host host(generation::of_2024);
    host.bm.set_get_name_func(host.TYPE, lower_the_count);
    host.used_slot();
    // The fifth entry of the process needs no report: it counts all the same.
    host.bm.set_get_name_func(host.TYPE, get_bname_known);
    slot_bytes slot = host.slot(1);
    slot.put(&slot_layout::nsblocks, 1000);
    EXPECT_EQ(said([&] { EXPECT_FALSE(host.bm.ev_update(host.TYPE, host.data_id, host.put({.server = "0"}), 1)); }),
              "");
    host.bm.set_get_name_func(host.TYPE, lower_the_count);
    for (int i = 1; i < 20; ++i) EXPECT_EQ(said([&] { enter_one_too_many(host, i); }), i < 5 ? line : "") << i;
}

} // namespace
