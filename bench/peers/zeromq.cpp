// ZeroMQ between processes: a pipe from every writer to every reader, or subscriptions that lose nothing.
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include <unistd.h>
#include <zmq.h>

#include "adders.h"
#include "exchange_by_messages.h"

namespace bench {
namespace {

void require(bool holds, const char* what)
{
    if (!holds) throw std::runtime_error(std::string(what) + ": " + zmq_strerror(zmq_errno()));
}

struct context {
    std::shared_ptr<void> at{zmq_ctx_new(), zmq_ctx_term};
};

std::shared_ptr<void> socket_of(const context& c, int type, const plan& p)
{
    void* made = zmq_socket(c.at.get(), type);
    require(made != nullptr, "zmq_socket");
    const int none = 0;
    const int soon = 1;
    zmq_setsockopt(made, ZMQ_LINGER, &none, sizeof none);
    zmq_setsockopt(made, ZMQ_SNDHWM, &p.on_the_way, sizeof p.on_the_way);
    zmq_setsockopt(made, ZMQ_RCVHWM, &p.on_the_way, sizeof p.on_the_way);
    zmq_setsockopt(made, ZMQ_RECONNECT_IVL, &soon, sizeof soon);
    return {made, zmq_close};
}

// Abstract: nothing stays in the file system. A conductor makes one measurement after the other.
std::string address(int run, int writer, int reader)
{
    return "ipc://@bm_bench-" + std::to_string(run) + '-' + std::to_string(writer) + '-' + std::to_string(reader);
}

class message {
  public:
    message() { zmq_msg_init(&at_); }
    ~message() { zmq_msg_close(&at_); }
    message(const message&) = delete;
    message& operator=(const message&) = delete;

    char* renew(size_t bytes)
    {
        zmq_msg_close(&at_);
        require(zmq_msg_init_size(&at_, bytes) == 0, "zmq_msg_init_size");
        return data();
    }
    void receive(void* socket) { require(zmq_msg_recv(&at_, socket, 0) >= 0, "zmq_msg_recv"); }
    void send(void* socket) { require(zmq_msg_send(&at_, socket, 0) >= 0, "zmq_msg_send"); }
    void send_copy(void* socket)
    {
        message other;
        require(zmq_msg_copy(&other.at_, &at_) == 0, "zmq_msg_copy");
        other.send(socket);
    }
    char* data() { return static_cast<char*>(zmq_msg_data(&at_)); }

  private:
    zmq_msg_t at_{};
};

class zeromq_inbox {
  public:
    zeromq_inbox(const plan& p, int run, int index, bool subscribes) : blocks_(static_cast<size_t>(p.writers))
    {
        for (int w = 0; w < p.writers; ++w) {
            sockets_.push_back(socket_of(context_, subscribes ? ZMQ_SUB : ZMQ_PULL, p));
            void* const s = sockets_.back().get();
            if (subscribes) {
                require(zmq_setsockopt(s, ZMQ_SUBSCRIBE, "", 0) == 0, "ZMQ_SUBSCRIBE");
                require(zmq_connect(s, address(run, w, 0).c_str()) == 0, "zmq_connect");
            } else {
                require(zmq_bind(s, address(run, w, index).c_str()) == 0, "zmq_bind");
            }
        }
    }
    void join() {}
    const char* take(int writer)
    {
        message& block = blocks_[static_cast<size_t>(writer)];
        block.receive(sockets_[static_cast<size_t>(writer)].get());
        return block.data();
    }
    void done() {}

  private:
    context context_;
    std::vector<std::shared_ptr<void>> sockets_;
    std::vector<message> blocks_;
};

class zeromq_outbox {
  public:
    zeromq_outbox(const plan& p, int run, int index, bool publishes) : bytes_(p.payload)
    {
        publishes ? publish(p, run, index) : connect(p, run, index);
    }
    char* take() { return block_.renew(bytes_); }
    void send()
    {
        for (size_t k = 0; k + 1 < sockets_.size(); ++k) block_.send_copy(sockets_[k].get());
        block_.send(sockets_.back().get());
    }

  private:
    void connect(const plan& p, int run, int index)
    {
        for (int k = 0; k < p.readers; ++k) {
            sockets_.push_back(socket_of(context_, ZMQ_PUSH, p));
            require(zmq_connect(sockets_.back().get(), address(run, index, k).c_str()) == 0, "zmq_connect");
        }
    }
    // Ready when every reader has subscribed: what was sent before would be lost.
    void publish(const plan& p, int run, int index)
    {
        sockets_.push_back(socket_of(context_, ZMQ_XPUB, p));
        void* const s = sockets_.back().get();
        const int yes = 1;
        require(zmq_setsockopt(s, ZMQ_XPUB_NODROP, &yes, sizeof yes) == 0, "ZMQ_XPUB_NODROP");
        require(zmq_setsockopt(s, ZMQ_XPUB_VERBOSE, &yes, sizeof yes) == 0, "ZMQ_XPUB_VERBOSE");
        require(zmq_bind(s, address(run, index, 0).c_str()) == 0, "zmq_bind");
        for (int k = 0; k < p.readers; ++k) message().receive(s);
    }

    size_t bytes_;
    context context_;
    std::vector<std::shared_ptr<void>> sockets_;
    message block_;
};

reading measure(const plan& p, bool by_subscription)
{
    static int run = getpid();
    ++run;
    return by_messages(
        p, [&](int k) { return zeromq_inbox(p, run, k, by_subscription); },
        [&](int i) { return zeromq_outbox(p, run, i, by_subscription); });
}

} // namespace

void add_zeromq(std::vector<peer>& all)
{
    all.push_back({"zeromq_pushpull", takes_everything, [](const plan& p) { return measure(p, false); }});
    all.push_back({"zeromq_pubsub", takes_everything, [](const plan& p) { return measure(p, true); }});
}

} // namespace bench
