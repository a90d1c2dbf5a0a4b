// A stream socket from every writer to every reader.
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_copies.h"

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

reading measure(const plan& p)
{
    return by_copies<stream>(p, [](int) { return std::make_unique<stream>(); });
}

} // namespace

void add_stream(std::vector<peer>& all) { all.push_back({"unix_stream", takes_everything, measure}); }

} // namespace bench
