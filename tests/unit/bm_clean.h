/// @file
/// What cases of leaving the exchange look at.
#ifndef ZRK4_TEST_BM_CLEAN_H
#define ZRK4_TEST_BM_CLEAN_H

#include "bm_host.h"

namespace zrk4::test {

class clean_up_case : public CleanNamespace {
  protected:
    /// Uses up what a clean-up gives back.
    static void spend_budgets(seen_bm& bm)
    {
        bm.timed_blocks_debug = 1;
        bm.missed_blocks_debug = -2;
    }
    static void expect_budgets_are_back(const seen_bm& bm)
    {
        EXPECT_EQ(bm.timed_blocks_debug, 20);
        EXPECT_EQ(bm.missed_blocks_debug, 20);
    }
};

/// Both slot partitions, as somebody else holds them.
struct other_holder {
    C_shm_buffer clients{CLIENTS}, events{EVENTS};
    int counted(size_t offset) const
    {
        return live_segment(shmid_of(clients)).int32(300 + 48 * CLIENT_BUFFERS + offset);
    }
};
enum { TOTAL = 4, READERS = 8, WRITERS = 12 };

} // namespace zrk4::test

#endif
