// Partitions that vanish while somebody subscribes or unsubscribes.
#include <string>

#include <gtest/gtest.h>
#include <sys/sem.h>

#include "bm_host.h"

using namespace zrk4::test;

namespace {

constexpr auto TYPE = ZRK4_EV_NORMAL;

class BmSubscribeFailure : public CleanNamespace {};

/// Runs `operation` on a subscribed master whose partitions vanish before the k-th semaphore operation, for every k,
/// each in a process of its own. The operation answers -2, and the same object can begin again.
template <class Prepare, class Operation> void expect_minus_2(int semops, Prepare prepare, Operation operation)
{
    for (int k = 1; k <= semops; ++k) {
        SCOPED_TRACE(k);
        child master([&] {
            const captured_output quiet;
            const long threads = threads_now();
            still_master bm;
            ASSERT_FALSE(bm.init()) << "false is success";
            prepare(bm);
            {
                const fault vanish = fault::preceded("semop", clear_ipc_namespace, k);
                EXPECT_EQ(operation(bm), -2);
                EXPECT_EQ(vanish.fired(), 1);
            }
            EXPECT_TRUE(bm.detached());
            EXPECT_EQ(bm.nbuf(), 0) << "the pool is empty";
            EXPECT_TRUE(threads_become(threads)) << "no reader is left";
            EXPECT_EQ(operation(bm), -1) << "not attached";
            EXPECT_FALSE(bm.init()) << "false is success";
            EXPECT_EQ(subscribed(bm, CLI_T_READER), 1);
            EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_READER), 1);
            bm.all_clean_up();
        });
        EXPECT_EQ(master.wait(), 0);
        EXPECT_EQ(segments_in_namespace() + semaphore_sets_in_namespace(), 0);
    }
}

// The count, the gate, the slot's lock, the control lock, and both given back.
TEST_F(BmSubscribeFailure, WriterWhosePartitionsVanishGetsMinus2)
{
    expect_minus_2(
        7, [](BM&) {}, [](BM& bm) { return subscribed(bm, CLI_T_WRITER); });
}

TEST_F(BmSubscribeFailure, ReaderWhosePartitionsVanishGetsMinus2)
{
    expect_minus_2(
        7, [](BM&) {}, [](BM& bm) { return subscribed(bm, CLI_T_READER); });
}

TEST_F(BmSubscribeFailure, UnsubscribingFromWhatVanishesGivesMinus2)
{
    expect_minus_2(
        7, [](BM& bm) { subscribed(bm, CLI_T_READER); }, [](BM& bm) { return bm.unsubscribe(TYPE, CLI_T_READER); });
}

TEST_F(BmSubscribeFailure, RemovedSemaphoresAreReported)
{
    in_own_process([] {
        still_master bm;
        ASSERT_FALSE(quiet_init(bm)) << "false is success";
        ASSERT_EQ(subscribed(bm, CLI_T_WRITER), 1);
        const int semid = semid_of(*bm.cl_buf);
        semctl(semid, 0, IPC_RMID);
        EXPECT_EQ(out_of([&] { EXPECT_EQ(bm.unsubscribe(TYPE, CLI_T_WRITER), -2); }),
                  "throw C_shm::ctrl UP sem: 4   errno: 22  semid: " + std::to_string(semid) + "\n");
        EXPECT_TRUE(bm.detached());
    });
}

} // namespace
