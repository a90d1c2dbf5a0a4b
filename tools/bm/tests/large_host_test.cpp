// A host whose slots are all taken is told whole. How long that takes is measured by large_host_times.cpp.
#include <algorithm>

#include "large_host.h"

namespace bm::test {
namespace {

class LargeHost : public BothGenerations, public large_host {
  protected:
    LargeHost() : large_host(GetParam()) {}

    static long lines_of(const std::vector<std::string>& arguments)
    {
        const outcome seen = run_bm(arguments);
        EXPECT_LE(seen.status, 1) << seen.err;
        return std::count(seen.out.begin(), seen.out.end(), '\n');
    }
};
IN_BOTH_GENERATIONS(LargeHost);

TEST_P(LargeHost, EveryClientAndEveryEventIsTold)
{
    EXPECT_GE(lines_of({"ls"}), 2);
    EXPECT_GE(lines_of({"clients"}), CLIENTS);
    EXPECT_GE(lines_of({"events"}), EVENTS);
}

TEST_P(LargeHost, StatPrintsItsLines) { EXPECT_GE(lines_of({"stat", "-i", "0.05", "-n", "3"}), 3); }

} // namespace
} // namespace bm::test
