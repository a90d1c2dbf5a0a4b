// The reference program: a writer and a reader that make the demanded calls and keep no books beside them. With one of
// each, events come in order: their numbers tell slots and buffers.
#include <atomic>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "C_shm_int.h"
#include "event.h"
#include "process.h"
#include "reference_calls.h"
#include "sides.h"

namespace bench {
namespace {

/// The buffers, where a partition of the library has them: head and payload behind control block and descriptors, so
/// that both programs fill memory of the same alignment.
class buffers {
  public:
    buffers(int count, size_t payload)
        : count_(count),
          stride_(HEAD + payload),
          first_(sizeof(C_shm_global) + sizeof(C_shm_buf) * static_cast<size_t>(count)),
          size_(first_ + stride_ * static_cast<size_t>(count) + sizeof(std::atomic<int64_t>) * 2)
    {
        void* at = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (at == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
        at_ = static_cast<char*>(at);
        over_ = new (at) std::atomic<int64_t>(0);
    }
    ~buffers() { munmap(at_, size_); }
    buffers(const buffers&) = delete;
    buffers& operator=(const buffers&) = delete;

    char* payload_of(int64_t number) const
    {
        return at_ + first_ + static_cast<size_t>(number % count_) * stride_ + HEAD;
    }
    /// Number of events that are over; in the place of the control block, which the reference does not need.
    std::atomic<int64_t>& over() const { return *over_; }

  private:
    static constexpr size_t HEAD = sizeof(zrk4_serv_block_head_2024);

    int count_;
    size_t stride_;
    size_t first_;
    size_t size_;
    char* at_;
    std::atomic<int64_t>* over_;
};

class datagram_socket {
  public:
    datagram_socket() : fd_(socket(AF_INET, SOCK_DGRAM, 0))
    {
        if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "socket");
    }
    ~datagram_socket() { close(fd_); }
    datagram_socket(const datagram_socket&) = delete;
    datagram_socket& operator=(const datagram_socket&) = delete;
    int fd() const { return fd_; }

    /// @return the port that it listens on from now on.
    uint16_t listen_somewhere() const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        socklen_t length = sizeof address;
        if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::system_error(errno, std::generic_category(), "bind");
        return ntohs(address.sin_port);
    }

  private:
    int fd_;
};

/// Where the reader can be reached.
struct reader_address {
    pid_t pid;
    uint16_t port;
};

class reference_writer {
  public:
    reference_writer(const exchange_sets& sets, const buffers& room, int slots, reader_address reader)
        : sets_(sets), buffers_(room), slots_(slots), reader_(reader)
    {
    }
    char* take(int64_t number)
    {
        take_buffer(sets_);
        return buffers_.payload_of(number);
    }
    void hand_over(int64_t number)
    {
        datagram m{};
        m.mtype = reader_.pid;
        m.evslot = static_cast<int32_t>(1 + number % slots_);
        m.clslot = READERS_SLOT;
        m.event = static_cast<uint64_t>(number);
        register_block(sets_, socket_.fd(), reader_.port, m);
    }
    bool is_over(int64_t number) const { return buffers_.over().load(std::memory_order_acquire) > number; }

  private:
    const exchange_sets& sets_;
    const buffers& buffers_;
    int slots_;
    reader_address reader_;
    datagram_socket socket_;
};

void read_events(const exchange_sets& sets, const buffers& room, int socket, event_log& log)
{
    for (bool last = false; !last;) {
        const datagram m = receive(socket);
        const auto number = static_cast<int64_t>(m.event);
        begin_reading(sets, m);
        last = log.note(room.payload_of(number), now_ns());
        end_reading(sets, m);
        room.over().store(number + 1, std::memory_order_release);
    }
}

void be_reader(const exchange_sets& sets, const buffers& room, const plan& p, const line_end& line)
{
    const datagram_socket socket;
    line.say(reader_address{getpid(), socket.listen_somewhere()});
    event_log log(p);
    read_events(sets, room, socket.fd(), log);
    line.say(log.result(line.hear<int64_t>()));
    line.await_nod();
}

void be_writer(const exchange_sets& sets, const buffers& room, const plan& p, int slots, const line_end& line)
{
    reference_writer writer(sets, room, slots, line.hear<reader_address>());
    line.say(write_events(writer, p));
    line.await_nod();
}

} // namespace

reading measure_reference(const plan& p, const limits& room)
{
    const semaphore_set data(room.buffers, /*locks=*/false);
    const semaphore_set clients(room.client_slots + 1, /*locks=*/true);
    const semaphore_set events(room.event_slots + 1, /*locks=*/true);
    const exchange_sets sets{data, clients, events};
    const buffers memory(room.buffers, p.payload);

    process reader("reference reader", p.reader_processor, [&](line_end& line) { be_reader(sets, memory, p, line); });
    process writer("reference writer", p.writer_processor,
                   [&](line_end& line) { be_writer(sets, memory, p, room.event_slots, line); });
    writer.say(reader.hear<reader_address>());
    reader.say(writer.hear<int64_t>());
    const auto result = reader.hear<reading>();
    writer.end();
    reader.end();
    return result;
}

} // namespace bench
