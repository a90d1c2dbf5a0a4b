// The address of "localhost" that the first buffer manager of a process looks up.
#include <cerrno>

#include <gtest/gtest.h>

#include "bm_host.h"

using namespace zrk4::test;

namespace {

class BmLocalhost : public CleanNamespace {};

// First in this file: it needs a process that has not found the address yet.
TEST_F(BmLocalhost, UnknownOneIsReportedAndTheObjectLives)
{
    const fault unknown = fault::fails("gethostbyname_r", 11);
    captured_output captured;
    errno = ENOENT;
    seen_bm bm;
    EXPECT_EQ(unknown.fired(), 1);
    EXPECT_EQ(captured.err(), "gethostbyname_r() failed to resolve hostname [localhost]"
                              "gethostbyname: No such file or directory\n");
    EXPECT_EQ(captured.out(), "Failed to get 'localhost' address error: 11\n");
    bm.master = true;
    make_small(bm);
    EXPECT_FALSE(quiet_init(bm)) << "false is success";
}

TEST_F(BmLocalhost, IsLookedUpOncePerProcess)
{
    {
        const BM first;
    }
    const long looked_up = calls_of("gethostbyname_r");
    {
        const BM second;
    }
    const BM third;
    EXPECT_EQ(calls_of("gethostbyname_r"), looked_up);
    EXPECT_GE(looked_up, 1);
}

} // namespace
