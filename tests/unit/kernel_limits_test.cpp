// What a master says when the kernel does not grant a slot partition.
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/sysinfo.h>

#include "captured_output.h"
#include "clean_namespace.h"
#include "kernel_limits.h"

using namespace zrk4::test;

namespace {

constexpr int64_t MOST = std::numeric_limits<int64_t>::max();

class KernelLimits : public CleanNamespace {
  protected:
    static std::string explained(int64_t count, int64_t length)
    {
        captured_output captured;
        zrk4::impl::explain_limits("T_SLOTS", count, length, "set_this, set_that");
        EXPECT_EQ(captured.out(), "") << "standard output belongs to the required texts";
        return captured.err();
    }
    static std::string line(const std::string& what, int64_t wanted, int64_t limit)
    {
        return "T_SLOTS: " + what + ": " + std::to_string(wanted) + " wanted, " + std::to_string(limit) +
               " possible; reduce with set_this, set_that\n";
    }
    static std::string memory_line(int64_t wanted)
    {
        struct sysinfo host {};
        sysinfo(&host);
        return line("bytes of memory and swap", wanted,
                    static_cast<int64_t>((host.totalram + host.totalswap) * host.mem_unit));
    }
    static constexpr char OFFSETS[] = "bytes in one partition (32-bit offsets)";
    static constexpr char SEMS[] = "semaphores in one set (first value of kernel.sem)";
};

TEST_F(KernelLimits, NoneIsMetByASmallPartition)
{
    EXPECT_EQ(explained(65, 8240), "");
    EXPECT_EQ(explained(1, 0), "");
    EXPECT_EQ(explained(0, 1000), "");
}

TEST_F(KernelLimits, NegativeNumbersMeetNone)
{
    EXPECT_EQ(explained(-1, 100), "");
    EXPECT_EQ(explained(100, -1), "");
    EXPECT_EQ(explained(-MOST, -MOST), "");
}

TEST_F(KernelLimits, SemaphoresOfOneSetAreFourMoreThanTheBuffers)
{
    EXPECT_EQ(explained(31996, 1), "");
    EXPECT_EQ(explained(31997, 1), line(SEMS, 32001, 32000));
}

TEST_F(KernelLimits, OffsetsEndAt2GiB)
{
    EXPECT_EQ(explained(2, 2147483251).find(OFFSETS), std::string::npos) << "the last buffer begins at the last offset";
    EXPECT_EQ(explained(2, 2147483252).find(line(OFFSETS, 300 + 2 * 48 + 2 * 2147483252LL, 2147483647)), 0U);
    EXPECT_EQ(explained(1, 4000000000).find(OFFSETS), std::string::npos) << "one buffer has no second offset";
}

TEST_F(KernelLimits, MemoryOfTheHostIsOne)
{
    EXPECT_EQ(explained(2, int64_t{1} << 50),
              line(OFFSETS, 396 + (int64_t{1} << 51), 2147483647) + memory_line(396 + (int64_t{1} << 51)));
}

TEST_F(KernelLimits, NumbersDoNotWrap)
{
    EXPECT_EQ(explained(int64_t{1} << 40, int64_t{1} << 40),
              line(OFFSETS, MOST, 2147483647) + memory_line(MOST) + line(SEMS, (int64_t{1} << 40) + 4, 32000));
}

TEST_F(KernelLimits, NumberOfSegmentsIsOne)
{
    shminfo info{};
    shmctl(0, IPC_INFO, reinterpret_cast<shmid_ds*>(&info));
    ASSERT_LE(info.shmmni, 10000U) << "too many to fill up in a test";
    for (unsigned long i = 0; i < info.shmmni; ++i) ASSERT_GE(shmget(IPC_PRIVATE, 1, 0600), 0);
    EXPECT_EQ(explained(1, 1), line("segments left (kernel.shmmni)", 1, 0));
    clear_ipc_namespace();
}

TEST_F(KernelLimits, NumberOfSetsIsOne)
{
    seminfo info{};
    union {
        seminfo* of;
        void* unused;
    } argument{&info};
    semctl(0, 0, IPC_INFO, argument);
    ASSERT_LE(info.semmni, 100000) << "too many to fill up in a test";
    for (int i = 0; i < info.semmni; ++i) ASSERT_GE(semget(IPC_PRIVATE, 1, 0600), 0);
    EXPECT_EQ(explained(1, 1), line("semaphore sets left (fourth value of kernel.sem)", 1, 0));
    clear_ipc_namespace();
}

} // namespace
