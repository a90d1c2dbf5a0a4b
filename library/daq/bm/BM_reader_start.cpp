// Start and end of the reader thread and its socket.
#include "BM.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bm_core.h"
#include "signal_thread.h"
#include "text_later.h"

using namespace zrk4::impl;

thread_local bool zrk4::impl::is_reader_thread = false;

namespace {

void take_no_action(int /*signal*/) {}

// No restart: a blocking recv() must return when the signal comes.
void install_empty_handler()
{
    struct sigaction action {};
    action.sa_handler = take_no_action;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGABRT, &action, nullptr);
}

// A socket of default size loses notifications, silently, behind the 256th. What the host does not grant is not missed.
void widen(int socket)
{
    const int bytes = 8 * 1024 * 1024;
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

// With the option left on, the system may give another reader the same port, and that one would get every datagram.
// Datagrams of other hosts are kept out where the system lets us.
void keep_to_ourselves(int socket)
{
    const int off = 0;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &off, sizeof off);
    static constexpr char loopback[] = "lo";
    setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, loopback, sizeof loopback);
}

bool is_thread(pthread_t id) { return id != 0 && id != static_cast<pthread_t>(-1); }

/// Threads that could not be joined because they stopped themselves, inside their handler. They work for their object
/// until the handler returns: somebody else joins them before it goes.
struct left_thread {
    const BM* of;
    pthread_t id;
};
std::mutex mx_left;
std::vector<left_thread> left_threads;

bool is_left_by(const left_thread& one, const BM& bm)
{
    return one.of == &bm && !pthread_equal(one.id, pthread_self());
}

void leave_behind(const BM& bm, pthread_t id)
{
    const std::lock_guard guard(mx_left);
    left_threads.push_back({&bm, id});
}

bool has_left_behind(const BM& bm)
{
    const std::lock_guard guard(mx_left);
    return std::any_of(left_threads.begin(), left_threads.end(), [&](const auto& one) { return is_left_by(one, bm); });
}

void join_left_behind(const BM& bm)
{
    std::vector<left_thread> own;
    {
        const std::lock_guard guard(mx_left);
        const auto others = std::partition(left_threads.begin(), left_threads.end(),
                                           [&](const auto& one) { return !is_left_by(one, bm); });
        own.assign(others, left_threads.end());
        left_threads.erase(others, left_threads.end());
    }
    for (const left_thread& one : own) pthread_join(one.id, nullptr);
}

} // namespace

// @return true on failure; `qid` is then -1, or, where the steps go on regardless, `port` is.
bool bm_core::open_reader_socket(BM& bm)
{
    // One that only sent notifications so far makes room for one that receives as well.
    const int sender = bm.qid.exchange(-1);
    if (sender != -1) close(sender);
    const int made = socket(AF_INET, SOCK_DGRAM, 0);
    if (made < 0) {
        say_perror("socket");
        say_plain("Failed to create socket\n");
        return true;
    }
    const auto fail = [&](const char* call, const char* text) {
        say_perror(call);
        close(made);
        say_plain("%s", text);
        return true;
    };
    const int on = 1;
    if (setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        return fail("setsockopt", "Failed to set socket option\n");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return fail("bind", "Failed to bind\n");
    socklen_t length = sizeof address;
    if (getsockname(made, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        // The thread is started all the same; without a port nobody subscribes with it.
        fail("getsockname", "Failed to getsockname\n");
        return false;
    }
    keep_to_ourselves(made);
    widen(made);
    bm.port = ntohs(address.sin_port);
    bm.qid = made;
    return false;
}

bool BM::start_reader()
{
    if (port >= 0) return false;
    // One that never learnt its port is deaf: it goes before the next one comes.
    if (is_thread(rid)) stop_reader();
    const text_later texts;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        say_plain("Failed to init attribute for the thread\n");
        return true;
    }
    if (bm_core::open_reader_socket(*this)) {
        pthread_attr_destroy(&attributes);
        return true;
    }
    install_empty_handler();
    // Held back until the thread is marked as a reader's: unmarked, it would take a stop for one of the monitor.
    const sigset_t before = change_abort(SIG_BLOCK);
    ++own->reader_generation;
    reader_go = true;
    const auto entry = [](void* bm) {
        is_reader_thread = true; // to its very end
        change_abort(SIG_UNBLOCK);
        void* const result = reader_thread(bm);
        change_abort(SIG_BLOCK); // as the monitor's thread: no signal while it is taken apart
        return result;
    };
    if (pthread_create(&rid, &attributes, entry, this) != 0) {
        say_plain("Failed to start reader thread\n");
        if (qid != -1) close(qid);
        reader_go = false;
        rid = static_cast<pthread_t>(-1);
        port = -1;
        qid = -1;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return qid < 1;
}

void* reader_thread(void* bm)
{
    block_program_signals();
    static_cast<BM*>(bm)->reader_exec();
    return nullptr;
}

bool bm_core::has_reader_thread(const BM& bm) { return is_thread(bm.rid) || has_left_behind(bm); }

bool BM::stop_reader()
{
    const text_later texts;
    join_left_behind(*this);
    if (is_thread(rid)) {
        reader_go = false;
        const thread_end end = signal_and_join(rid, [this] { return own->in_callback.load(); });
        if (end == thread_end::not_signalled)
            say_plain("Failed to kill my reading thread: %ld\n", static_cast<long>(rid));
        if (end == thread_end::not_joined) {
            say_plain("Joining reading thread failed \n");
            // The last reader was unsubscribed inside the callback: the thread ends by itself, behind it.
            if (pthread_equal(rid, pthread_self())) leave_behind(*this, rid);
        }
        rid = static_cast<pthread_t>(-1);
    }
    int own_port = port;
    remove_queue(&own_port);
    return false;
}

void BM::remove_queue(int* id)
{
    if (*id < 0) return;
    // The queue of another process is not ours to close.
    if (*id == port) {
        const int socket = qid.exchange(-1);
        if (socket != -1) close(socket);
        port = -1;
    }
    *id = -1;
}
