#include <gtest/gtest.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "child.h"
#include "clean_namespace.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "run_bm.h"

namespace bm::test {
namespace {

using namespace zrk4::test;

class Rm : public CleanNamespace {};

/// A process that has T_DATA as long as it lives; killed with the object.
class user_of_data {
  public:
    user_of_data() { made_.wait(); }
    pid_t pid() const { return process_.pid(); }

  private:
    latch made_;
    child process_{[this] {
        const C_shm_buffer part("T_DATA", 3, 100, false);
        made_.open();
        pause();
    }};
};

TEST_F(Rm, APartitionThatNobodyUsesGoesWithItsSemaphores)
{
    int id = -1, set = -1;
    {
        C_shm_buffer part("T_DATA", 3, 100, false);
        part.keep(true);
        id = shmid_of(part);
        set = semid_of(part);
    }
    const outcome seen = run_bm({"rm", "T_DATA"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_EQ(seen.out,
              "removed T_DATA: segment " + std::to_string(id) + " and semaphore set " + std::to_string(set) + "\n");
    EXPECT_FALSE(segment_exists(id));
    EXPECT_FALSE(semaphore_set_exists(set));
}

TEST_F(Rm, LiveUsersAreNamedAndKeepIt)
{
    const user_of_data user;
    const outcome seen = run_bm({"rm", "T_DATA"});
    EXPECT_EQ(seen.status, 2);
    EXPECT_EQ(seen.err.substr(0, 36), "bm: live processes use \"T_DATA\"\n  se");
    EXPECT_NE(seen.err.find(std::to_string(user.pid())), std::string::npos) << seen.err;
    EXPECT_NE(seen.err.find("--force --force"), std::string::npos);
    EXPECT_EQ(run_bm({"rm", "T_DATA", "--force"}).status, 2) << "told once is not enough";
    EXPECT_EQ(run_bm({"ls", "--json"}).document()["partitions"].size(), 1U);
    EXPECT_EQ(run_bm({"rm", "T_DATA", "--force", "--force"}).status, 0);
    EXPECT_EQ(run_bm({"ls", "--json"}).document()["partitions"].size(), 0U);
}

TEST_F(Rm, WhoIsKilledUsesItNoMore)
{
    {
        const user_of_data killed;
    }
    const outcome seen = run_bm({"rm", "T_DATA", "--json"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_EQ(seen.document()["name"], "T_DATA");
    EXPECT_EQ(seen.document()["semaphores_removed"], true);
}

TEST_F(Rm, NothingOfThatNameIsStatus3)
{
    const outcome seen = run_bm({"rm", "T_NONE"});
    EXPECT_EQ(seen.status, 3);
    EXPECT_EQ(seen.err, "bm: no partition has the name \"T_NONE\"\n  try:    bm ls\n");
    EXPECT_EQ(run_bm({"rm"}).status, 64);
}

TEST_F(Rm, OfSlotsTheOtherOneIsToldToo)
{
    {
        C_shm_buffer part("T_C", 3, 300, true);
        part.keep(true);
    }
    const outcome seen = run_bm({"rm", "T_C", "--names", "T_C,T_E"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_NE(seen.out.find("remove T_E as well"), std::string::npos) << seen.out;
}

TEST_F(Rm, ADamagedOneGoesAndAStrangersSetStays)
{
    int set = -1;
    {
        C_shm_buffer part("T_DATA", 3, 100, false);
        part.keep(true);
        set = semid_of(part);
        live_segment raw(shmid_of(part), live_segment::WRITE);
        raw.put_int32(AT_VERSION, 999);
    }
    const outcome seen = run_bm({"rm", "T_DATA"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_NE(seen.out.find("its semaphore set could not be told"), std::string::npos);
    EXPECT_TRUE(semaphore_set_exists(set));
    clear_ipc_namespace();
}

} // namespace
} // namespace bm::test
