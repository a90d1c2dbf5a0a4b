// Boost's message queue in shared memory, one from every writer to every reader.
#include <string>

#include <boost/interprocess/ipc/message_queue.hpp>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_copies.h"

namespace bench {
namespace {

namespace ipc = boost::interprocess;

class queue {
  public:
    queue(const std::string& name, const plan& p)
        : name_(name), at_(ipc::create_only, name.c_str(), static_cast<size_t>(p.on_the_way), p.payload)
    {
        ipc::message_queue::remove(name_.c_str()); // it lives on with those who have it
    }
    void write_all(const char* from, size_t bytes) { at_.send(from, bytes, 0); }
    void read_all(char* to, size_t bytes)
    {
        size_t received = 0;
        unsigned priority = 0;
        at_.receive(to, bytes, received, priority);
    }

  private:
    std::string name_;
    ipc::message_queue at_;
};

reading measure(const plan& p)
{
    return by_copies<queue>(p, [&](int i) {
        return std::make_unique<queue>("bm_bench-" + std::to_string(getpid()) + '-' + std::to_string(i), p);
    });
}

} // namespace

void add_boost(std::vector<peer>& all) { all.push_back({"boost_queue", takes_everything, measure}); }

} // namespace bench
