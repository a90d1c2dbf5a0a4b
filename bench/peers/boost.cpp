// Boost's message queue in shared memory, one from every writer to every reader.
#include <memory>
#include <string>

#include <boost/interprocess/ipc/message_queue.hpp>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_messages.h"

namespace bench {
namespace {

namespace ipc = boost::interprocess;

/// Made by the conductor, and inherited.
class queue {
  public:
    queue(const std::string& name, size_t bytes)
        : name_(name), at_(ipc::create_only, name.c_str(), static_cast<size_t>(MESSAGES), bytes)
    {
        ipc::message_queue::remove(name_.c_str()); // it lives on with those who have it
    }
    ipc::message_queue& at() { return at_; }

  private:
    std::string name_;
    ipc::message_queue at_;
};

using queues = std::vector<std::unique_ptr<queue>>; // of writer w to reader k: at w * readers + k

struct queue_inbox {
    const queues& all;
    const plan& p;
    int index;
    std::vector<std::vector<char>> blocks =
        std::vector<std::vector<char>>(static_cast<size_t>(p.writers), std::vector<char>(p.payload));

    void join() {}
    const char* take(int writer)
    {
        std::vector<char>& block = blocks[static_cast<size_t>(writer)];
        size_t received = 0;
        unsigned priority = 0;
        all[static_cast<size_t>(writer * p.readers + index)]->at().receive(block.data(), block.size(), received,
                                                                           priority);
        return block.data();
    }
    void done() {}
};

struct queue_outbox {
    const queues& all;
    const plan& p;
    int index;
    std::vector<char> block = std::vector<char>(p.payload);

    char* take() { return block.data(); }
    void send()
    {
        for (int k = 0; k < p.readers; ++k)
            all[static_cast<size_t>(index * p.readers + k)]->at().send(block.data(), block.size(), 0);
    }
};

reading measure(const plan& p)
{
    queues all;
    for (int i = 0; i < p.writers * p.readers; ++i)
        all.push_back(
            std::make_unique<queue>("bm_bench-" + std::to_string(getpid()) + '-' + std::to_string(i), p.payload));
    return by_messages(
        p,
        [&](int k) {
            return queue_inbox{all, p, k};
        },
        [&](int i) {
            return queue_outbox{all, p, i};
        });
}

} // namespace

void add_boost(std::vector<peer>& all) { all.push_back({"boost_queue", takes_everything, measure}); }

} // namespace bench
