// Mode bits, pinning, keep.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include "C_shm.h"
#include "captured_output.h"
#include "clean_namespace.h"
#include "fault.h"
#include "live_segment.h"
#include "partition_ids.h"

using namespace zrk4::test;

namespace {

class PartitionModes : public CleanNamespace {
  protected:
    C_shm part{"T_MODES", 1, 10, false};
    live_segment raw{shmid_of(part), live_segment::WRITE};

    bool pinned() const
    {
        shmid_ds info{};
        EXPECT_EQ(shmctl(shmid_of(part), IPC_STAT, &info), 0);
        return (info.shm_perm.mode & SHM_LOCKED) != 0;
    }
};

TEST_F(PartitionModes, BufmodeSetsItsBitsAndKeepsSynch)
{
    const int bits[] = {1, 0, 2, 17};
    for (const int others : {0, 4, 4 + 8 + 64}) {
        for (int before = 0; before < 32; ++before) {
            for (int mode = 0; mode < 4; ++mode) {
                raw.put_int32(AT_STATUS, (before & 19) | others);
                part.bufmode(mode);
                ASSERT_EQ(raw.int32(AT_STATUS), bits[mode] | others) << "mode " << mode << " from " << before;
            }
        }
    }
}

TEST_F(PartitionModes, Mode1AfterMode3LeavesSynchAlone)
{
    part.rqsynch(true);
    part.bufmode(3);
    part.bufmode(1);
    EXPECT_EQ(part.getStat("pflags"), "synch");
}

TEST_F(PartitionModes, UnknownModeChangesNothingAndSaysSo)
{
    for (const int mode : {4, -1, 1 << 30}) {
        EXPECT_EQ(out_of([&] { part.bufmode(mode); }),
                  "C_shm::bufmode: Invalid mode " + std::to_string(mode) + " request\n");
        EXPECT_EQ(raw.int32(AT_STATUS), 3);
    }
}

TEST_F(PartitionModes, SynchIsSetAndClearedAlone)
{
    part.rqsynch(true);
    EXPECT_EQ(raw.int32(AT_STATUS), 7);
    part.rqsynch(true);
    EXPECT_EQ(raw.int32(AT_STATUS), 7);
    part.rqsynch(false);
    EXPECT_EQ(raw.int32(AT_STATUS), 3);
}

TEST_F(PartitionModes, ModesNeedNoGate)
{
    const long before = calls_of("semop");
    part.bufmode(0);
    part.rqsynch(true);
    EXPECT_EQ(calls_of("semop"), before);
}

TEST_F(PartitionModes, FlagIsSetWhenAnyBitOfTheMaskIs)
{
    EXPECT_TRUE(part.testFlag(1));
    EXPECT_TRUE(part.testFlag(2 + 4));
    EXPECT_FALSE(part.testFlag(4 + 16));
    EXPECT_FALSE(part.testFlag(0));
}

TEST_F(PartitionModes, DetachedHandleHasNoFlagsAndSetsNone)
{
    C_shm none;
    EXPECT_FALSE(none.testFlag(-1));
    none.bufmode(3);
    none.rqsynch(true);
    EXPECT_EQ(raw.int32(AT_STATUS), 3);
    part.release();
    EXPECT_FALSE(part.testFlag(-1));
}

TEST_F(PartitionModes, PinningADetachedHandleIsAnError)
{
    C_shm none("T_ABSENT");
    ASSERT_STREQ(none.Error(), "No error");
    none.lock(true);
    EXPECT_STREQ(none.Error(), "Partition not attached");
}

TEST_F(PartitionModes, PinningIsForTheSuperuserAlone)
{
    const fault ordinary = fault::returns("geteuid", 1000, 1, FOR_EVER);
    const long before = calls_of("shmctl");
    part.lock(true);
    EXPECT_STREQ(part.Error(), "No Priviledge for attempted operation");
    EXPECT_EQ(calls_of("shmctl"), before) << "not even asked for";
    EXPECT_FALSE(pinned());
}

TEST_F(PartitionModes, RefusedPinningIsAnError)
{
    const fault superuser = fault::returns("geteuid", 0, 1, FOR_EVER);
    const fault refused = fault::fails("shmctl", ENOMEM);
    part.lock(true);
    EXPECT_EQ(refused.fired(), 1);
    EXPECT_STREQ(part.Error(), "No Priviledge for attempted operation");
}

TEST_F(PartitionModes, SuperuserPinsAndUnpins)
{
    const fault superuser = fault::returns("geteuid", 0, 1, FOR_EVER); // the kernel lets the owner do so, too
    part.lock(true);
    EXPECT_STREQ(part.Error(), "No error");
    EXPECT_TRUE(pinned());
    part.lock(false);
    EXPECT_STREQ(part.Error(), "No error");
    EXPECT_FALSE(pinned());
}

} // namespace
