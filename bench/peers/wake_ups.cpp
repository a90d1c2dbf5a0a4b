// What waking another process costs without any exchange: a bare datagram, and a futex beside shared memory.
#include <climits>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_messages.h"
#include "udp.h"

namespace bench {
namespace {

struct udp_inbox {
    const udp_socket& socket;
    std::vector<char> block;

    void join() {}
    const char* take(int /*writer*/)
    {
        socket.receive(block.data(), block.size());
        return block.data();
    }
    void done() {}
};

struct udp_outbox {
    const udp_socket& socket;
    uint16_t port;
    std::vector<char> block;

    char* take() { return block.data(); }
    void send() { socket.send_to(port, block.data(), block.size()); }
};

reading measure_udp(const plan& p)
{
    const udp_socket receiver;
    const udp_socket sender;
    const uint16_t port = receiver.listen_somewhere();
    const std::vector<char> block(p.payload);
    return by_messages(
        p,
        [&](int) {
            return udp_inbox{receiver, block};
        },
        [&](int) {
            return udp_outbox{sender, port, block};
        });
}

/// One block, and its number.
struct futex_line {
    std::atomic<uint32_t> sent{0};
    static constexpr size_t ROOM = 64 * 1024;
    char block[ROOM];
};

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value)
{
    return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

struct futex_inbox {
    futex_line& line;
    uint32_t had = 0;

    void join() {}
    const char* take(int /*writer*/)
    {
        while (line.sent.load(std::memory_order_acquire) == had) futex(line.sent, FUTEX_WAIT, had);
        ++had;
        return line.block;
    }
    void done() {}
};

struct futex_outbox {
    futex_line& line;

    char* take() { return line.block; }
    void send()
    {
        line.sent.fetch_add(1, std::memory_order_release);
        futex(line.sent, FUTEX_WAKE, INT_MAX);
    }
};

reading measure_futex(const plan& p)
{
    const shared_memory<futex_line> line(1);
    return by_messages(
        p, [&](int) { return futex_inbox{line[0]}; }, [&](int) { return futex_outbox{line[0]}; });
}

} // namespace

void add_wake_ups(std::vector<peer>& all)
{
    const auto fits = [](const plan& p) { return takes_one_at_a_time(p) && p.payload < futex_line::ROOM - 1024; };
    all.push_back({"udp", fits, measure_udp});
    all.push_back({"futex", fits, measure_futex});
}

} // namespace bench
