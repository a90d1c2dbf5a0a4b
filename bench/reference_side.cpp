// The reference programs: writers and readers that make the demanded calls and keep no more books than they need.
#include <vector>

#include <unistd.h>

#include "C_shm_int.h"
#include "conductor.h"
#include "event.h"
#include "reference_calls.h"
#include "sides.h"

namespace bench {
namespace {

/// The buffers of a writer, where a partition of the library has them: head and payload behind control block and
/// descriptors, so that both programs fill memory of the same alignment.
class data_buffers {
  public:
    data_buffers(int count, size_t payload)
        : stride_(HEAD + payload),
          first_(sizeof(C_shm_global) + sizeof(C_shm_buf) * static_cast<size_t>(count)),
          memory_(first_ + stride_ * static_cast<size_t>(count))
    {
    }
    char* payload_of(int buffer) const { return &memory_[first_ + static_cast<size_t>(buffer) * stride_ + HEAD]; }

  private:
    static constexpr size_t HEAD = sizeof(zrk4_serv_block_head_2024);

    size_t stride_;
    size_t first_;
    shared_memory<char> memory_;
};

using all_buffers = std::vector<std::unique_ptr<data_buffers>>; // of each writer

class reference_writer {
  public:
    reference_writer(const reference_host& host, const all_buffers& buffers, int index)
        : host_(host), buffers_(*buffers[static_cast<size_t>(index)]), index_(index)
    {
    }
    char* take(int64_t /*number*/, int /*block*/)
    {
        buffer_ = host_.take_buffer(index_);
        return buffers_.payload_of(buffer_);
    }
    void hand_over(int64_t number, int block) { host_.register_block(index_, block, number, buffer_, socket_); }
    bool is_over(int64_t number) const { return host_.over() > number; }

  private:
    const reference_host& host_;
    const data_buffers& buffers_;
    int index_;
    int buffer_ = -1;
    udp_socket socket_;
};

void read_events(const reference_host& host, const all_buffers& buffers, const udp_socket& socket, event_log& log,
                 int blocks)
{
    std::vector<const char*> payloads(static_cast<size_t>(blocks));
    for (bool last = false; !last;) {
        const datagram m = reference_host::receive(socket);
        host.begin_reading(m);
        const int64_t called = now_ns();
        const event_books& event = host.event(m);
        for (int b = 0; b < blocks; ++b) {
            const auto at = static_cast<size_t>(b);
            payloads[at] = buffers[static_cast<size_t>(host.writer_of(b))]->payload_of(event.buffer[at]);
        }
        last = log.note(payloads, called);
        host.end_reading(m);
    }
}

} // namespace

reading measure_reference(manner m, const plan& p, const limits& room)
{
    const int buffers = p.on_the_way * p.blocks_each;
    const reference_host host(m, {p.writers, p.readers, p.blocks()}, room.client_slots, room.event_slots, buffers);
    all_buffers data;
    for (int i = 0; i < p.writers; ++i) data.push_back(std::make_unique<data_buffers>(buffers, p.payload));

    cast roles;
    roles.reader = [&](int index, event_log& log, const auto& ready) {
        const udp_socket socket;
        host.reader(index) = {getpid(), socket.listen_somewhere()};
        ready();
        read_events(host, data, socket, log, p.blocks());
    };
    roles.writer = [&](int index, const auto& ready, const auto& done) {
        host.writer(index) = {getpid(), 0};
        reference_writer writer(host, data, index);
        ready();
        done(write_events(writer, p, index));
    };
    return perform(p, roles);
}

} // namespace bench
