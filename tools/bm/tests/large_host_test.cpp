// 4,096 client slots and 3,200 event slots, all taken.
#include <algorithm>
#include <memory>

#include "a_host.h"

namespace bm::test {
namespace {

constexpr int CLIENTS_OF_HOST = 4096, EVENTS_OF_HOST = 3200, CLIENTS_OF_EVENT = 64, BLOCKS_OF_EVENT = 32, MISSING = 4;

class LargeHost : public AHost {
  protected:
    // As a master sizes it for 64 clients, 32 blocks and a rate of 100.
    LargeHost() : AHost({CLIENTS_OF_HOST, 32 * 256 + 48, EVENTS_OF_HOST, (100 * 32 + 1) * 24})
    {
        subscribe_all();
        for (int n = 0; n < EVENTS_OF_HOST; ++n) {
            const int at = event(BLOCKS_OF_EVENT, n % 4);
            for (int c = 1; c <= CLIENTS_OF_EVENT; ++c) slot(at).add_client(c, c % 4 == 0 ? DONE : WAIT);
            for (int b = 0; b < BLOCKS_OF_EVENT - MISSING; ++b) slot(at).add_entry(block_of(2 * b), 0, -1);
        }
    }
    static std::string block_of(int client) { return "SERVER_BLOCK_" + std::to_string(client); }
    // Every other client is a writer of one block; readers want eight.
    void subscribe_all()
    {
        for (int i = 0; i < 32; ++i) others_.push_back(std::make_unique<child>([] { pause(); }));
        for (int c = 0; c < CLIENTS_OF_HOST; ++c) {
            const pid_t pid = others_[static_cast<size_t>(c) % others_.size()]->pid();
            if (c % 2 == 0) {
                writer_slot({block_of(c)}, pid);
            } else {
                std::vector<std::string> names;
                for (int b = 0; b < 8; ++b) names.push_back(block_of(2 * b));
                reader_slot(names, pid, 50000);
            }
        }
    }
    /// What the command prints; its processor time stands in the report of the test, and is measured as a release build.
    static long lines_of(const std::vector<std::string>& arguments)
    {
        const outcome seen = run_bm(arguments);
        EXPECT_LE(seen.status, 1) << seen.err;
        RecordProperty(arguments.front() + "_processor_ms", std::to_string(seen.processor_s * 1e3));
        return std::count(seen.out.begin(), seen.out.end(), '\n');
    }

    std::vector<std::unique_ptr<child>> others_;
};
IN_BOTH_GENERATIONS(LargeHost);

TEST_P(LargeHost, EveryClientAndEveryEventIsTold)
{
    EXPECT_GE(lines_of({"ls"}), 2);
    EXPECT_GE(lines_of({"clients"}), CLIENTS_OF_HOST);
    EXPECT_GE(lines_of({"events"}), EVENTS_OF_HOST);
}

TEST_P(LargeHost, StatPrintsItsLines) { EXPECT_GE(lines_of({"stat", "-i", "0.05", "-n", "3"}), 3); }

} // namespace
} // namespace bm::test
