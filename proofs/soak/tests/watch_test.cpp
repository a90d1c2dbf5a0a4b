// A process that comes to hold more is told from one that does not.
#include "watch.h"

#include <array>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace soak;

namespace {

TEST(SoakWatch, AnUnchangedProcessHoldsNoMore)
{
    const holdings first = holdings_of(getpid());
    EXPECT_GT(first.descriptors, 2);
    EXPECT_GT(first.mappings, 5);
    EXPECT_GT(first.private_kb, 100);
    EXPECT_FALSE(is_more(first, holdings_of(getpid())));
}

TEST(SoakWatch, ADescriptorMoreIsSeen)
{
    const holdings first = holdings_of(getpid());
    const int fd = dup(1);
    EXPECT_TRUE(is_more(first, holdings_of(getpid())));
    close(fd);
    EXPECT_FALSE(is_more(first, holdings_of(getpid())));
}

TEST(SoakWatch, MemoryOfItsOwnIsSeen)
{
    const holdings first = holdings_of(getpid());
    const std::vector<char> more(8 << 20, 1);
    EXPECT_TRUE(is_more(first, holdings_of(getpid())));
}

TEST(SoakWatch, MappingsThatPileUpAreSeen)
{
    const holdings first = holdings_of(getpid());
    std::array<void*, 20> maps{};
    int rights = PROT_READ;
    for (void*& at : maps) {
        at = mmap(nullptr, 4096, rights, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        rights = rights == PROT_READ ? PROT_NONE : PROT_READ; // neighbours with the same rights would become one
    }
    EXPECT_TRUE(is_more(first, holdings_of(getpid())));
    for (void* at : maps) munmap(at, 4096);
}

TEST(SoakWatch, AProcessThatIsGoneCannotBeAsked) { EXPECT_EQ(holdings_of(0).descriptors, -1); }

} // namespace
