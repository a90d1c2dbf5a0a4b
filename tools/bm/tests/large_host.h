/// @file
/// 4,096 client slots and 3,200 event slots, all taken.
#ifndef ZRK4_TOOL_TEST_LARGE_HOST_H
#define ZRK4_TOOL_TEST_LARGE_HOST_H

#include <memory>
#include <string>
#include <vector>

#include "a_host.h"

namespace bm::test {

/// As a master sizes it for 64 clients, 32 blocks and a rate of 100. Every event has 64 clients and 28 of its 32 blocks.
class large_host : public host_by_hand {
  public:
    static constexpr int CLIENTS = 4096, EVENTS = 3200;

    explicit large_host(generation g)
        : host_by_hand(g, {CLIENTS, BLOCKS_OF_EVENT * 256 + 48, EVENTS, (100 * BLOCKS_OF_EVENT + 1) * 24})
    {
        subscribe_all();
        for (int n = 0; n < EVENTS; ++n) {
            const int at = event(BLOCKS_OF_EVENT, n % 4);
            for (int c = 1; c <= CLIENTS_OF_EVENT; ++c) slot(at).add_client(c, c % 4 == 0 ? DONE : WAIT);
            for (int b = 0; b < BLOCKS_OF_EVENT - MISSING; ++b) slot(at).add_entry(block_of(2 * b), 0, -1);
        }
    }

  private:
    static constexpr int CLIENTS_OF_EVENT = 64, BLOCKS_OF_EVENT = 32, MISSING = 4, PROCESSES = 32;

    static std::string block_of(int client) { return "SERVER_BLOCK_" + std::to_string(client); }
    static std::vector<std::string> first_blocks(size_t count)
    {
        std::vector<std::string> names(count);
        for (size_t b = 0; b < count; ++b) names[b] = block_of(2 * static_cast<int>(b));
        return names;
    }
    // Every other client is a writer of one block; readers want eight.
    void subscribe_all()
    {
        for (int i = 0; i < PROCESSES; ++i) others_.push_back(std::make_unique<child>([] { pause(); }));
        for (int c = 0; c < CLIENTS; ++c) {
            const pid_t pid = others_[static_cast<size_t>(c) % others_.size()]->pid();
            if (c % 2 == 0) {
                writer_slot({block_of(c)}, pid);
            } else {
                reader_slot(first_blocks(8), pid, 50000);
            }
        }
    }

    std::vector<std::unique_ptr<child>> others_;
};

} // namespace bm::test

#endif
