/// @file
/// What the examples share: options, the sizes that all processes of a host agree on, and the two forms of a slot.
#ifndef ZRK4_EXAMPLES_COMMON_H
#define ZRK4_EXAMPLES_COMMON_H

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "BM.h"
#include "sb_view.h"
#include "sb_write.h"

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

/// The form of the blocks that a process writes: that of its slots.
inline zrk4::sb_form form_of(BM& bm)
{
    return bm.get_evid_64bit_mode() ? zrk4::sb_form::of_2024 : zrk4::sb_form::of_2010;
}
/// @return number of entries of the event that a handler was given.
inline int blocks_in(bool form_2024, const void* head)
{
    return form_2024 ? static_cast<const zrk4_event_slot_head_2024*>(head)->sbfilled
                     : static_cast<const zrk4_event_slot_head*>(head)->sbfilled;
}

inline int type_of(bool form_2024, const void* head)
{
    return form_2024 ? static_cast<const zrk4_event_slot_head_2024*>(head)->evtype
                     : static_cast<const zrk4_event_slot_head*>(head)->evtype;
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
