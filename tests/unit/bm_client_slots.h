/// @file
/// A host whose client slots a test takes and looks at.
#ifndef ZRK4_TEST_BM_CLIENT_SLOTS_H
#define ZRK4_TEST_BM_CLIENT_SLOTS_H

#include <string>

#include "bm_host.h"
#include "client_slot.h"

namespace zrk4::test {

/// A master that has made its partitions, and what they count.
class client_slots : public CleanNamespace {
  protected:
    client_slots() { EXPECT_FALSE(quiet_init(bm)) << "false is success"; }
    ~client_slots() override { EXPECT_EQ(locks_held(bm), "") << "locks were not given back"; }

    static std::string locks_held(const seen_bm& of)
    {
        std::string held;
        if (of.cl_buf == nullptr) return held;
        const int semid = semid_of(*of.cl_buf);
        for (int i = 0; i < semaphores_in_set(semid); ++i) {
            if ((i == 0 || i >= 4) && semaphore_value(semid, i) != 1) held += std::to_string(i - 4) + ", ";
        }
        return held;
    }
    /// Total, readers, writers, and both counts of one type.
    struct counts {
        int total = 0, readers = 0, writers = 0, type_readers = 0, type_writers = 0;
        bool operator==(const counts&) const = default;
    };
    counts counted(int type = ZRK4_EV_NORMAL) const
    {
        const zrk4_client_ctrl_block& c = *bm.clictrl;
        return {c.clitotal, c.clireader, c.cliwriter, c.evtyper[type], c.evtypew[type]};
    }
    zrk4::impl::client_slot slot(int n) const { return {*bm.cl_buf, n}; }
    char* address(int n) const { return bm.cl_buf.load()->buffer_addr(n); }
    bool slot_is_zero(int n) const
    {
        return std::string(address(n), CLIENT_LENGTH).find_first_not_of('\0') == std::string::npos;
    }
    int free_buffers() const { return stat_of(*bm.cl_buf, "freebuf"); }
    bool is_queued(int n) const { return (bm.cl_buf.load()->get_bufptr()[n].status & BUF_QUEUED) != 0; }
    /// Somebody else frees a slot, as a monitor does.
    void take_away(int n)
    {
        ASSERT_TRUE(bm.cl_buf.load()->ctrl(0, true));
        EXPECT_EQ(bm.free_cl_slot(n, nullptr), 0);
        ASSERT_TRUE(bm.cl_buf.load()->ctrl(0, false));
    }

    still_master bm;
};

} // namespace zrk4::test

#endif
