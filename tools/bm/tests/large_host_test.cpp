// 4,096 client slots and 3,200 event slots, all taken: what a look costs.
#include <algorithm>
#include <memory>

#include "a_host.h"

namespace bm::test {
namespace {

constexpr int CLIENTS_OF_HOST = 4096, EVENTS_OF_HOST = 3200, CLIENTS_OF_EVENT = 64, BLOCKS_OF_EVENT = 32, MISSING = 4;

// Built without the optimiser, or with a sanitizer, the same work takes longer.
#ifdef BM_OPTIMISED
constexpr double SLOWER = 1;
#else
constexpr double SLOWER = 30;
#endif

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
    /// Processor time of the best of some runs: the others were held up.
    static double cost_of(const std::vector<std::string>& arguments)
    {
        double best = 1e9;
        for (int run = 0; run < 5; ++run) {
            const outcome seen = run_bm(arguments);
            EXPECT_LE(seen.status, 1) << seen.err;
            best = std::min(best, seen.processor_s);
        }
        return best;
    }

    std::vector<std::unique_ptr<child>> others_;
};
IN_BOTH_GENERATIONS(LargeHost);

// 89,600 entries of events, and 204,800 clients of them, take longer than 50 ms on a slow processor.
TEST_P(LargeHost, ALookTakesMilliseconds)
{
    for (const auto& [command, limit] : {std::pair("ls", 0.050), {"clients", 0.050}, {"events", 0.100}}) {
        const double cost = cost_of({command});
        RecordProperty(command, std::to_string(cost));
        std::printf("%s: %.1f ms\n", command, cost * 1e3);
        EXPECT_LT(cost, limit * SLOWER) << command;
    }
}

TEST_P(LargeHost, ALineOfStatTakesMilliseconds)
{
    constexpr int LINES = 10;
    const double cost = cost_of({"stat", "-i", "0.05", "-n", std::to_string(LINES)}) / LINES;
    std::printf("a line: %.2f ms\n", cost * 1e3);
    EXPECT_LT(cost, 0.020 * SLOWER);
}

} // namespace
} // namespace bm::test
