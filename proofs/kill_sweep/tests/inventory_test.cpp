// Each thing that can be missing is seen, and said in words; nothing is said of a host where nothing is.
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include "BM.h"
#include "actor.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "inventory.h"
#include "partition_ids.h"

using namespace sweep;
using namespace zrk4::test;

namespace {

class Inventory : public CleanNamespace {
  protected:
    Inventory()
    {
        bm.set_nclients(8);
        bm.set_nblocks(4);
        bm.set_rate(1);
        bm.set_ncl_slots(6);
        bm.set_nev_slots(6);
        bm.set_master(true);
        EXPECT_FALSE(bm.init());
        bm.stop_monitor();
        EXPECT_GT(bm.add(DATA_NAME, 4, 100, false), 0);
        host.partitions = {DATA_NAME};
    }

    C_shm_buffer& part(const char* name) { return *bm.find_by_name(name); }
    C_shm_buffer& data() { return part(DATA_NAME); }
    C_shm_buffer& events() { return part("ZRK4_EVENT_SLOTS"); }
    C_shm_buffer& clients() { return part("ZRK4_CLIENT_SLOTS"); }
    void change_semaphore(C_shm_buffer& of, int number, short by)
    {
        sembuf operation{static_cast<unsigned short>(number), by, 0};
        ASSERT_EQ(semop(semid_of(of), &operation, 1), 0);
    }
    /// Whether exactly these texts are said, in this order.
    void expect_missing(const std::vector<std::string>& texts) { EXPECT_EQ(missing_from(host), texts); }
    std::string owner() const { return ", owner " + std::to_string(getpid()); }

    captured_output captured;
    BM bm;
    expected host;
};

TEST_F(Inventory, SaysNothingOfAHostAtRest) { expect_missing({}); }

TEST_F(Inventory, SeesABufferThatIsOut)
{
    data().get_buffer(BM_NO_WAIT, true);
    expect_missing({std::string(DATA_NAME) + ": buffer 0 is out" + owner()});
    data().return_buffer(0);
}

TEST_F(Inventory, SeesACountThatIsNotTheQueuesLength)
{
    change_semaphore(data(), gbl_empty, 1);
    expect_missing({std::string(DATA_NAME) + ": count of free buffers is 5 instead of 4"});
}

TEST_F(Inventory, SeesAFlagThatDoesNotAgreeWithTheQueue)
{
    data().get_bufptr()[2].status = 0;
    expect_missing({std::string(DATA_NAME) + ": buffer 2 is in the queue but not flagged"});
}

TEST_F(Inventory, SeesACycle)
{
    data().get_bufptr()[3].link = 1;
    const auto missing = missing_from(host);
    ASSERT_FALSE(missing.empty());
    EXPECT_EQ(missing[0], std::string(DATA_NAME) + ": free queue has a cycle or a wild link at 1");
}

TEST_F(Inventory, SeesATailThatLagsBehind)
{
    auto* global = reinterpret_cast<C_shm_global*>(reinterpret_cast<char*>(data().get_bufptr()) - sizeof(C_shm_global));
    global->free.tail = 2;
    expect_missing({std::string(DATA_NAME) + ": free queue ends at 3, its tail is 2"});
}

TEST_F(Inventory, SeesALockThatIsHeld)
{
    change_semaphore(events(), gbl_gate, -1);
    change_semaphore(events(), gbl_nsems + 3, -1);
    expect_missing({"ZRK4_EVENT_SLOTS: gate is 0 instead of 1", "ZRK4_EVENT_SLOTS: lock 3 is 0 instead of 1"});
    change_semaphore(events(), gbl_gate, 1);
    change_semaphore(events(), gbl_nsems + 3, 1);
}

TEST_F(Inventory, SeesAnEventSlotThatIsInUse)
{
    reinterpret_cast<zrk4_event_ctrl_block*>(events().buffer_addr(0))[1].status = EVT_C_USED;
    expect_missing({"ZRK4_EVENT_SLOTS: control entry of event slot 2 is used"});
}

TEST_F(Inventory, SeesAControlRecordInTheFreeQueue)
{
    events().return_buffer(0);
    expect_missing({"ZRK4_EVENT_SLOTS: buffer 0 is in the free queue"});
}

TEST_F(Inventory, KnowsWhoHoldsAClientSlot)
{
    zrk4_client all{};
    ASSERT_EQ(bm.subscribe(ZRK4_EV_NORMAL, CLI_T_WRITER, &all, nullptr), 1);
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(missing_from(host).at(0),
              "ZRK4_CLIENT_SLOTS: client slot 1 is out" + owner() + ", pid in its head " + pid);
    host.clients = {getpid()};
    expect_missing({});
    host.clients = {getpid(), 1};
    expect_missing({"ZRK4_CLIENT_SLOTS: process 1 has lost its client slot"});
}

TEST_F(Inventory, RecountsTheClients)
{
    reinterpret_cast<zrk4_client_ctrl_block*>(clients().buffer_addr(0))->cliwriter = 2;
    expect_missing({"ZRK4_CLIENT_SLOTS: client counts are 0/0/2, a recount gives 0/0/0"});
}

TEST_F(Inventory, SeesAPartitionThatIsNotThere)
{
    host.partitions.insert("OTHER");
    expect_missing({"OTHER: is not there"});
}

TEST_F(Inventory, SeesWhatBelongsToNoPartition)
{
    const int segment = shmget(40, 400, IPC_CREAT | 0600);
    const int set = semget(IPC_PRIVATE, 4, 0600);
    expect_missing({"segment " + std::to_string(segment) + " is no partition",
                    "semaphore set " + std::to_string(set) + " belongs to no partition"});
    shmctl(segment, IPC_RMID, nullptr);
    semctl(set, 0, IPC_RMID);
}

TEST_F(Inventory, ListsWhatIsLeftWhenAllHaveGone)
{
    EXPECT_EQ(leftovers().size(), 6U) << "three segments and three sets";
    bm.all_clean_up();
    EXPECT_TRUE(leftovers().empty());
}

} // namespace
