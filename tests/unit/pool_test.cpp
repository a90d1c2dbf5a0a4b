// The set of partitions of a process: members, look-ups, reports.
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "C_shm_kill.h"
#include "C_shm_mpool.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

static_assert(!std::is_copy_constructible_v<C_shm_mpool> && !std::is_copy_assignable_v<C_shm_mpool>);
static_assert(!std::is_polymorphic_v<C_shm_mpool>, "the table of virtual operations begins with BM's");

class Pool : public CleanNamespace {
  protected:
    struct open_pool : C_shm_mpool {
        using C_shm_mpool::buffers_ids;
        using C_shm_mpool::buffers_names;
        using C_shm_mpool::buffers_sz;
    } pool;

    /// Made by another process and left for this one; the last user of it removes it.
    static int make_elsewhere(const char* name, int nbuf = 2, int lbuf = 100)
    {
        child maker([&] {
            C_shm part(name, nbuf, lbuf, false);
            part.keep(true);
        });
        EXPECT_EQ(maker.wait(), 0);
        const C_shm found(name);
        const int id = shmid_of(found);
        const_cast<C_shm&>(found).keep(true);
        return id;
    }
    static int strangers_segment(int key, size_t size, int version, int semid)
    {
        const int id = shmget(key, size, IPC_CREAT | 0600);
        live_segment raw(id, live_segment::WRITE);
        raw.put_int32(AT_VERSION, version);
        raw.put_int32(AT_SEMID, semid);
        return id;
    }
};

TEST_F(Pool, EmptyOneHasEverythingAndNothing)
{
    EXPECT_TRUE(pool.exists(1)) << "true while it is empty";
    EXPECT_TRUE(pool.exists("T_ANY"));
    EXPECT_EQ(pool.find_by_name("T_ANY"), nullptr);
    EXPECT_EQ(pool.find_by_id(1), nullptr);
    EXPECT_TRUE(pool.remove("T_ANY")) << "true is failure";
    EXPECT_TRUE(pool.remove(1));
    EXPECT_EQ(pool.nbuf(), 0);
    char nothing = 0;
    EXPECT_EQ(pool.get_buffer_from_pool(BM_NO_WAIT, 1, nullptr, nullptr), nullptr);
    EXPECT_EQ(pool.get_buffer_id_from_pool(&nothing, nullptr), -1);
    EXPECT_EQ(pool.get_buffer_address(0, 1, false), nullptr);
    EXPECT_TRUE(pool.return_buffer_in_pool(&nothing)) << "true is failure";
    EXPECT_TRUE(pool.return_buffer_in_pool(&nothing, 1));
    EXPECT_TRUE(pool.return_buffer_in_pool(0, 1));
    char name[] = "T_ANY";
    EXPECT_EQ(out_of([&] {
                  pool.bufmode(1, name);
                  pool.bufmode(1, 77);
              }),
              "");
}

TEST_F(Pool, EmptyOneNeverAttachesForAnAddress)
{
    const int id = make_elsewhere("T_THERE");
    EXPECT_EQ(pool.get_buffer_address(0, id, /*attach=*/true), nullptr);
    EXPECT_EQ(pool.find_by_id(id), nullptr);
    const C_shm_kill kill("T_THERE");
}

TEST_F(Pool, AddMakesAPartitionAndAnswersWithItsId)
{
    const int id = pool.add("T_MADE", 2, 100, /*sems=*/true);
    EXPECT_EQ(id, segment_at_key(32));
    C_shm_buffer* const part = pool.find_by_name("T_MADE");
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(pool.find_by_id(id), part);
    EXPECT_EQ(part->valid(), 1);
    EXPECT_TRUE(pool.exists(id));
    EXPECT_TRUE(pool.exists("T_MADE"));
    EXPECT_FALSE(pool.exists(id + 1));
    EXPECT_FALSE(pool.exists("T_MAD"));
    EXPECT_TRUE(part->ctrl(1, true));
    EXPECT_TRUE(part->ctrl(1, false));
    EXPECT_EQ(pool.nbuf(), 2);
}

TEST_F(Pool, ThreeArgumentAddMakesNoBufferLocks)
{
    pool.add("T_THREE", 2, 100);
    EXPECT_EQ(semaphores_in_set(semid_of(*pool.find_by_name("T_THREE"))), 4);
}

TEST_F(Pool, FailedAddSaysSo)
{
    captured_output captured;
    EXPECT_EQ(pool.add("T_NONE", -3, 100, false), -1);
    EXPECT_EQ(captured.out(), "C_shm_mpool::add() T_NONE -3 100  bf->valid():0\n");
    EXPECT_EQ(pool.find_by_name("T_NONE"), nullptr);
    EXPECT_EQ(segments_in_namespace(), 0);
    EXPECT_TRUE(pool.buffers_sz.empty());
}

TEST_F(Pool, AddOfATooSmallPartitionSaysSo)
{
    const C_shm made("T_SMALL", 1, 10, false);
    captured_output captured;
    EXPECT_EQ(pool.add("T_SMALL", 2, 10, false), -1);
    EXPECT_EQ(captured.out(), "C_shm_mpool::add() T_SMALL 2 10  bf->valid():0\n");
}

TEST_F(Pool, AddByNameAttachesWhatIsThere)
{
    const int id = make_elsewhere("T_THERE");
    EXPECT_FALSE(pool.add("T_THERE")) << "false is success";
    C_shm_buffer* const part = pool.find_by_id(id);
    ASSERT_NE(part, nullptr);
    EXPECT_FALSE(pool.add("T_THERE")) << "false is success: it is there already";
    EXPECT_FALSE(pool.add(id));
    EXPECT_EQ(pool.find_by_name("T_THERE"), part) << "the same object";
    EXPECT_EQ(use_count_of(*part), 1);
}

TEST_F(Pool, AddByIdAttachesWhatIsThere)
{
    const int id = make_elsewhere("T_BY_ID");
    EXPECT_FALSE(pool.add(id)) << "false is success";
    EXPECT_NE(pool.find_by_name("T_BY_ID"), nullptr);
}

TEST_F(Pool, AddOfWhatIsNotThereFails)
{
    EXPECT_TRUE(pool.add("T_ABSENT")) << "true is failure";
    EXPECT_TRUE(pool.add(static_cast<const char*>(nullptr)));
    captured_output captured;
    EXPECT_TRUE(pool.add(4711));
    EXPECT_EQ(captured.out(), "SYSERROR: 22\n");
    EXPECT_TRUE(pool.buffers_sz.empty());
}

TEST_F(Pool, PartitionWithoutAccessIsNotAdded)
{
    const int id = make_elsewhere("T_OLD");
    live_segment(id, live_segment::WRITE).put_int32(AT_VERSION, 101);
    EXPECT_TRUE(pool.add("T_OLD")) << "true is failure";
    EXPECT_FALSE(segment_exists(id)) << "released at once, and nobody else uses it";
}

TEST_F(Pool, IndexesAreInOrder)
{
    const int a = pool.add("T_B", 1, 4000, false);
    const int b = pool.add("T_A", 1, 1000, false);
    const int c = pool.add("T_C", 1, 4000, false);
    std::vector<std::string> names;
    for (const auto& [name, part] : pool.buffers_names) names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::string>{"T_A", "T_B", "T_C"}));
    std::vector<std::pair<int, std::string>> sizes;
    for (const auto& [size, part] : pool.buffers_sz) sizes.emplace_back(size, part->getStat("name"));
    EXPECT_EQ(sizes, (std::vector<std::pair<int, std::string>>{{1000, "T_A"}, {4000, "T_B"}, {4000, "T_C"}}));
    EXPECT_EQ(pool.buffers_ids.begin()->first, std::min({a, b, c}));
}

TEST_F(Pool, RemoveReleasesThePartition)
{
    const int id = pool.add("T_GONE", 1, 10, false);
    const int other = pool.add("T_OTHER", 1, 10, false);
    EXPECT_FALSE(pool.remove("T_GONE")) << "false is success";
    EXPECT_FALSE(segment_exists(id));
    EXPECT_EQ(pool.find_by_id(id), nullptr);
    EXPECT_TRUE(pool.remove("T_GONE")) << "true is failure";
    EXPECT_TRUE(pool.remove(id));
    EXPECT_FALSE(pool.remove(other)) << "false is success";
    EXPECT_FALSE(segment_exists(other));
    EXPECT_TRUE(pool.exists(4711)) << "empty again";
}

TEST_F(Pool, DestructorReleasesEveryPartitionAndTheirCurrentBuffers)
{
    const C_shm user("T_ONE", 2, 10, false);
    {
        C_shm_mpool other;
        other.add("T_ONE", 2, 10, false);
        other.add("T_TWO", 2, 10, false);
        ASSERT_NE(other.find_by_name("T_ONE")->get_buffer(BM_NO_WAIT, false), nullptr);
        EXPECT_EQ(segments_in_namespace(), 2);
    }
    EXPECT_EQ(segments_in_namespace(), 1);
    EXPECT_EQ(use_count_of(user), 1);
    EXPECT_EQ(user.getStat("freebuf"), "2");
}

TEST_F(Pool, UnmapTakesOutWithoutDestroying)
{
    const int id = pool.add("T_OUT", 2, 10, false);
    const std::unique_ptr<C_shm_buffer> part(pool.find_by_id(id));
    pool.unmap_buffer(part.get());
    EXPECT_EQ(pool.find_by_id(id), nullptr);
    EXPECT_EQ(pool.find_by_name("T_OUT"), nullptr);
    EXPECT_TRUE(pool.buffers_sz.empty());
    EXPECT_EQ(part->valid(), 1);
    pool.unmap_buffer(part.get()); // not there: nothing
}

TEST_F(Pool, MapIsDoneOncePerObjectInTheLengthIndex)
{
    pool.add("T_IN", 2, 10, false);
    pool.map_buffer(pool.find_by_name("T_IN"));
    EXPECT_EQ(pool.buffers_sz.size(), 1U);
}

// The new object takes over name and id; the old one serves searches by length alone, and nobody destroys it.
TEST_F(Pool, AddOfAPresentNameAddsASecondObject)
{
    const int id = pool.add("T_TWICE", 2, 10, false);
    const std::unique_ptr<C_shm_buffer> old(pool.find_by_id(id));
    EXPECT_EQ(pool.add("T_TWICE", 2, 10, false), id);
    C_shm_buffer* const fresh = pool.find_by_id(id);
    EXPECT_NE(fresh, old.get());
    EXPECT_EQ(pool.find_by_name("T_TWICE"), fresh);
    EXPECT_EQ(pool.buffers_sz.size(), 2U);
    EXPECT_EQ(use_count_of(*fresh), 2);
    EXPECT_EQ(registered(id), 2);
    EXPECT_FALSE(pool.remove("T_TWICE")) << "false is success";
    EXPECT_EQ(pool.buffers_sz.size(), 1U);
    EXPECT_EQ(pool.buffers_sz.begin()->second, old.get());
    EXPECT_EQ(use_count_of(*old), 1) << "still a user";
    pool.unmap_buffer(old.get());
}

TEST_F(Pool, UnmapOfTheOldObjectTakesNameAndIdOfTheNewOneToo)
{
    const int id = pool.add("T_TWICE", 2, 10, false);
    const std::unique_ptr<C_shm_buffer> old(pool.find_by_id(id));
    pool.add("T_TWICE", 2, 10, false);
    const std::unique_ptr<C_shm_buffer> fresh(pool.find_by_id(id));
    pool.unmap_buffer(old.get());
    EXPECT_EQ(pool.find_by_id(id), nullptr);
    EXPECT_EQ(pool.find_by_name("T_TWICE"), nullptr);
    EXPECT_EQ(pool.buffers_sz.begin()->second, fresh.get());
    pool.unmap_buffer(fresh.get());
}

// A killed partition has neither name nor id any more, by which an object is taken out.
TEST_F(Pool, RemoveAfterAKillLeavesNoTraceOfTheObject)
{
    const int id = pool.add("T_KILLED", 2, 10, false);
    {
        const C_shm_kill kill("T_KILLED");
    }
    EXPECT_FALSE(pool.exists(id)) << "present, but without access";
    EXPECT_FALSE(pool.remove("T_KILLED")) << "false is success";
    EXPECT_EQ(pool.find_by_id(id), nullptr);
    EXPECT_EQ(pool.find_by_name("T_KILLED"), nullptr);
    EXPECT_TRUE(pool.buffers_sz.empty());
}

TEST_F(Pool, BufmodeReachesThePartitionByNameAndById)
{
    const int id = pool.add("T_MODE", 2, 10, false);
    char name[] = "T_MODE";
    pool.bufmode(3, name);
    EXPECT_EQ(pool.find_by_id(id)->getStat("pflags"), "release,expose");
    pool.bufmode(2, id);
    EXPECT_EQ(pool.find_by_id(id)->getStat("pflags"), "scavage");
    EXPECT_EQ(out_of([&] { pool.bufmode(7, id); }), "C_shm::bufmode: Invalid mode 7 request\n");
}

TEST_F(Pool, BufmodeOfAnAbsentPartitionSaysSoByIdOnly)
{
    pool.add("T_MODE", 2, 10, false);
    char absent[] = "T_ABSENT";
    EXPECT_EQ(out_of([&] { pool.bufmode(1, absent); }), "");
    EXPECT_EQ(out_of([&] { pool.bufmode(1, 4711); }), "Partition not found: 4711\n ") << "the blank comes last";
}

TEST_F(Pool, DumpOfAnEmptyPoolSaysSo)
{
    std::ostringstream os;
    pool.pooldump(os);
    EXPECT_EQ(os.str(), "C_shm_mpool::dump() No partition in the pool\n");
    EXPECT_EQ(out_of([&] { pool.pooldump(); }), os.str());
}

TEST_F(Pool, DumpListsPartitionsByAscendingId)
{
    const int a = pool.add("T_Z", 1, 10, false);
    const int b = pool.add("T_Y", 2, 20, false);
    ASSERT_LT(a, b);
    std::ostringstream expected;
    expected << "Partition 0\n";
    pool.find_by_id(a)->dump(expected);
    expected << "Partition 1\n";
    pool.find_by_id(b)->dump(expected);
    std::ostringstream os;
    os << std::hex;
    pool.pooldump(os);
    EXPECT_EQ(os.str(), expected.str());
    EXPECT_EQ(out_of([&] { pool.pooldump(); }), expected.str());
}

TEST_F(Pool, DumpCountsPartitionsInDecimalWhateverTheStreamWasSetTo)
{
    for (int k = 0; k <= 10; ++k) ASSERT_GE(pool.add(("T_" + std::to_string(k)).c_str(), 1, 1, false), 1);
    std::ostringstream os;
    os << std::hex;
    pool.pooldump(os);
    EXPECT_NE(os.str().find("\nPartition 10\n"), std::string::npos);
}

TEST_F(Pool, CountsTheBuffersOfAllPartitions)
{
    pool.add("T_FIVE", 5, 10, false);
    pool.add("T_TWO", 2, 10, false);
    EXPECT_EQ(pool.nbuf(), 7);
}

// --- addresses

TEST_F(Pool, AddressOfABuffer)
{
    const int id = pool.add("T_DATA", 2, 10, false);
    C_shm_buffer* const part = pool.find_by_id(id);
    EXPECT_EQ(pool.get_buffer_address(1, id), part->get_buffer_addr(1));
    EXPECT_EQ(pool.get_buffer_address(1, id, false), part->get_buffer_addr(1));
    EXPECT_EQ(pool.get_buffer_address(2, id), nullptr);
    EXPECT_EQ(pool.get_buffer_address(-1, id), nullptr);
    EXPECT_EQ(pool.get_buffer_address(0, id + 1), nullptr);
}

TEST_F(Pool, AddressAttachesAPartitionOnFirstUseWhenAsked)
{
    pool.add("T_MINE", 1, 10, false);
    const int id = make_elsewhere("T_THEIRS", 2, 10);
    EXPECT_EQ(pool.get_buffer_address(1, id), nullptr) << "not asked";
    EXPECT_EQ(pool.get_buffer_address(1, id, false), nullptr);
    char* const addr = pool.get_buffer_address(1, id, /*attach=*/true);
    ASSERT_NE(addr, nullptr);
    EXPECT_EQ(addr, pool.find_by_name("T_THEIRS")->get_buffer_addr(1));
    EXPECT_EQ(pool.get_buffer_address(2, id, true), nullptr);
    EXPECT_EQ(use_count_of(*pool.find_by_id(id)), 1);
}

TEST_F(Pool, AddressOfAPartitionThatCannotBeAttachedFailsAsAddDoes)
{
    pool.add("T_MINE", 1, 10, false);
    for (const int id : {4711, -1}) {
        captured_output captured;
        EXPECT_EQ(pool.get_buffer_address(0, id), nullptr);
        EXPECT_EQ(captured.out() + captured.err(), "") << "not asked";
        EXPECT_EQ(pool.get_buffer_address(0, id, /*attach=*/true), nullptr);
        EXPECT_EQ(captured.err(), "C_shm_find - shmget: Invalid argument\n");
        EXPECT_EQ(captured.out(), "SYSERROR: 22\n");
    }
}

// A stale id in an event slot may be a stranger's by now; a handle on it would remove it, and a semaphore set with it.
TEST_F(Pool, AddressNeverTouchesASegmentThatIsNoPartition)
{
    pool.add("T_MINE", 1, 10, false);
    const int set = semget(IPC_PRIVATE, 1, 0600);
    const int strangers[] = {strangers_segment(IPC_PRIVATE, 4096, 102, set), strangers_segment(5000, 4096, 102, set),
                             strangers_segment(100, 299, 102, set), strangers_segment(101, 4096, 101, set),
                             strangers_segment(102, 4096, 0, set)};
    captured_output captured;
    for (const int id : strangers) {
        EXPECT_EQ(pool.get_buffer_address(0, id, /*attach=*/true), nullptr);
        EXPECT_TRUE(segment_exists(id));
        EXPECT_EQ(attachments(id), 0);
        EXPECT_EQ(pool.find_by_id(id), nullptr);
    }
    EXPECT_TRUE(semaphore_set_exists(set));
    EXPECT_EQ(captured.out() + captured.err(), "");
    for (const int id : strangers) shmctl(id, IPC_RMID, nullptr);
    semctl(set, 0, IPC_RMID);
}

} // namespace
