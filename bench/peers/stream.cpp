// A stream socket from every writer to every reader.
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_messages.h"

namespace bench {
namespace {

class stream {
  public:
    stream()
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    ~stream()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    stream(const stream&) = delete;
    stream& operator=(const stream&) = delete;

    void write_all(const char* from, size_t bytes) const
    {
        for (size_t at = 0; at < bytes;) at += moved(send(ends_[0], from + at, bytes - at, MSG_NOSIGNAL));
    }
    void read_all(char* to, size_t bytes) const
    {
        for (size_t at = 0; at < bytes;) at += moved(recv(ends_[1], to + at, bytes - at, 0));
    }

  private:
    static size_t moved(ssize_t bytes)
    {
        if (bytes <= 0) throw std::runtime_error("the stream has ended");
        return static_cast<size_t>(bytes);
    }
    int ends_[2]{};
};

using streams = std::vector<std::unique_ptr<stream>>; // of writer w to reader k: at w * readers + k

struct stream_inbox {
    const streams& all;
    const plan& p;
    int index;
    std::vector<std::vector<char>> blocks =
        std::vector<std::vector<char>>(static_cast<size_t>(p.writers), std::vector<char>(p.payload));

    void join() {}
    const char* take(int writer)
    {
        std::vector<char>& block = blocks[static_cast<size_t>(writer)];
        all[static_cast<size_t>(writer * p.readers + index)]->read_all(block.data(), block.size());
        return block.data();
    }
    void done() {}
};

struct stream_outbox {
    const streams& all;
    const plan& p;
    int index;
    std::vector<char> block = std::vector<char>(p.payload);

    char* take() { return block.data(); }
    void send()
    {
        for (int k = 0; k < p.readers; ++k)
            all[static_cast<size_t>(index * p.readers + k)]->write_all(block.data(), block.size());
    }
};

reading measure(const plan& p)
{
    streams all;
    for (int i = 0; i < p.writers * p.readers; ++i) all.push_back(std::make_unique<stream>());
    return by_messages(
        p,
        [&](int k) {
            return stream_inbox{all, p, k};
        },
        [&](int i) {
            return stream_outbox{all, p, i};
        });
}

} // namespace

void add_stream(std::vector<peer>& all) { all.push_back({"unix_stream", takes_everything, measure}); }

} // namespace bench
