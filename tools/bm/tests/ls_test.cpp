#include <gtest/gtest.h>
#include <sys/shm.h>

#include "C_shm_buffer.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "run_bm.h"

namespace bm::test {
namespace {

using namespace zrk4::test;

class Ls : public CleanNamespace {};

TEST_F(Ls, AHostWithoutPartitionsIsNoTrouble)
{
    const outcome seen = run_bm({"ls"});
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out, "no partitions in this IPC namespace\n");
    EXPECT_EQ(run_bm({"ls", "--json"}).document()["partitions"], nlohmann::json::array());
}

TEST_F(Ls, ShowsWhatIsFreeAndWhatIsOut)
{
    C_shm_buffer part("T_DATA", 5, 1000, false);
    ASSERT_NE(part.get_buffer(4, true), nullptr);
    ASSERT_NE(part.get_buffer(4, true), nullptr);
    const outcome seen = run_bm({"ls", "--json"});
    EXPECT_EQ(seen.status, 0) << seen.err;
    const nlohmann::json one = seen.document()["partitions"].at(0);
    EXPECT_EQ(one["name"], "T_DATA");
    EXPECT_EQ(one["id"], shmid_of(part));
    EXPECT_EQ(one["state"], "sound");
    EXPECT_EQ(one["buffers"], 5);
    EXPECT_EQ(one["length"], 1000);
    EXPECT_EQ(one["free"], 3);
    EXPECT_EQ(one["out"], 2);
    EXPECT_EQ(one["full"], 0);
    EXPECT_EQ(one["users"], 1);
    EXPECT_EQ(one["modes"], "release,scavage");
    EXPECT_EQ(one["locks"], false);
    EXPECT_EQ(one["bytes"], 300 + 5 * 1048);
    EXPECT_EQ(one["complaint"], "");
}

TEST_F(Ls, TextHasALinePerPartitionInTheOrderOfTheKeys)
{
    const C_shm_buffer one("T_ONE", 2, 100, true), two("T_TWO", 3, 1000, false);
    const outcome seen = run_bm({"ls"});
    EXPECT_EQ(seen.status, 0);
    const std::string owner = run_bm({"ls", "--json"}).document()["partitions"][0]["owner"];
    const auto id = [](const C_shm& part) { return std::to_string(shmid_of(part)); };
    EXPECT_EQ(words_of(seen.out), "NAME ID BUFFERS FREE OUT FULL USERS MODES SIZE OWNER REMARK\n"
                                  "T_ONE " +
                                      id(one) + " 2 x 100 2 0 0 1 release,scavage 596 B " + owner +
                                      "\n"
                                      "T_TWO " +
                                      id(two) + " 3 x 1000 3 0 0 1 release,scavage 3.44 kB " + owner + "\n");
}

// What is found is told, and the others are shown all the same.
class LsDamaged : public Ls {
  protected:
    void expect(const std::string& state, const std::string& complaint)
    {
        const outcome seen = run_bm({"ls", "--json"});
        EXPECT_EQ(seen.status, 1);
        const nlohmann::json all = seen.document()["partitions"];
        ASSERT_EQ(all.size(), 2U);
        EXPECT_EQ(all[0]["state"], state);
        EXPECT_EQ(all[0]["complaint"], complaint);
        EXPECT_EQ(all[1]["state"], "sound");
        EXPECT_EQ(run_bm({"ls"}).status, 1);
    }
    void TearDown() override { clear_ipc_namespace(); }

    C_shm_buffer part_{"T_DATA", 5, 1000, false};
    C_shm_buffer other_{"T_OTHER", 1, 100, false};
    live_segment bytes_{shmid_of(part_), live_segment::WRITE};
};

TEST_F(LsDamaged, OfAnotherVersion)
{
    bytes_.put_int32(AT_VERSION, 103);
    expect("other version", "layout version 103, this command reads 102");
    bytes_.put_int32(AT_VERSION, 102);
}

TEST_F(LsDamaged, WithoutAName)
{
    bytes_.put_byte(AT_NAME, 0);
    expect("no partition", "it has no name: half made, half removed or not ours");
    bytes_.put_byte(AT_NAME, 'T');
}

TEST_F(LsDamaged, WithMoreBuffersThanItHasRoomFor)
{
    bytes_.put_int32(AT_NBUF, 6);
    expect("damaged", "6 buffers of 1000 bytes do not fit into its 5540 bytes");
    bytes_.put_int32(AT_NBUF, 5);
}

TEST_F(LsDamaged, WithNegativeNumbers)
{
    bytes_.put_int32(AT_NBUF, -1);
    expect("damaged", "-1 buffers of 1000 bytes do not fit into its 5540 bytes");
    bytes_.put_int32(AT_NBUF, 5);
}

TEST_F(LsDamaged, WithAQueueThatLeadsNowhere)
{
    bytes_.put_int32(at_descriptor(2, IN_LINK), 77);
    expect("sound", "the free queue leads from 2 to buffer 77, which does not exist");
    bytes_.put_int32(at_descriptor(2, IN_LINK), 3);
}

TEST_F(LsDamaged, WithoutItsSemaphores)
{
    const int set = bytes_.int32(AT_SEMID);
    bytes_.put_int32(AT_SEMID, 999999);
    expect("sound", "semaphore set 999999: not there, needed 4");
    bytes_.put_int32(AT_SEMID, set);
}

TEST_F(Ls, AStrangersSegmentAtAKeyOfPartitionsIsNamedAsSuch)
{
    const int tiny = shmget(40, 16, IPC_CREAT | 0600);
    const int blank = shmget(41, 4096, IPC_CREAT | 0600);
    const nlohmann::json all = run_bm({"ls", "--json"}).document()["partitions"];
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0]["complaint"], "its segment is shorter than a control block");
    EXPECT_EQ(all[1]["state"], "no partition");
    shmctl(tiny, IPC_RMID, nullptr);
    shmctl(blank, IPC_RMID, nullptr);
}

} // namespace
} // namespace bm::test
