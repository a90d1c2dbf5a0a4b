// The reader thread: a datagram becomes one call of the user's handler, and the event goes on.
#include "BM.h"

#include <cstdio>
#include <exception>
#include <optional>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "bm_core.h"
#include "client_slot.h"
#include "direct_call.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

constexpr int PRINTED_REJECTIONS = 20;
constexpr int SHOW_MESSAGES = -2000;
constexpr int SHOW_CALL_TIME = -3000;

bool below_limit() { return __atomic_load_n(&bm_bad_format_events, __ATOMIC_RELAXED) < PRINTED_REJECTIONS; }

// Counts a rejected datagram and answers whether to speak of it: a flood of them must not fill the log.
bool count_and_tell() { return __atomic_fetch_add(&bm_bad_format_events, 1, __ATOMIC_RELAXED) < PRINTED_REJECTIONS; }

void say_wrong_length()
{
    if (!below_limit()) return;
    say_plain("reader_thread: recv() got wrong length\n");
    count_and_tell();
}

// No exception leaves the thread. Its own end, which comes as one that is not C++'s, passes: named in a catch clause it
// would be a reference to nothing.
template <class Work> void contain(Work work)
{
    try {
        work();
    } catch (...) {
        if (std::current_exception() == nullptr) throw;
    }
}

template <class Form> void show(const typename Form::message& message)
{
    if (__atomic_load_n(&ZRK4_DAQ_BM_DEBUG, __ATOMIC_RELAXED) != SHOW_MESSAGES) return;
    say_plain("Got message: mtype: %ld  evslot: %d clslot: %d cln: %d\n", static_cast<long>(message.mtype),
              message.evslot, message.clslot, message.cln);
    flush_all_later();
}

} // namespace

void BM::reader_exec()
{
    if (!reader_go) return;
    const bool marked = std::exchange(is_reader_thread, true);
    contain([&] { bm_core::in_form(*this, [&](auto form) { bm_core::read_events<decltype(form)>(*this); }); });
    is_reader_thread = marked;
}

template <class Form> void bm_core::read_events(BM& bm)
{
    typename Form::message message{};
    const unsigned generation = bm.own->reader_generation;
    const auto go_on = [&] { return bm.reader_go && bm.own->reader_generation == generation; };
    while (go_on()) {
        // Exactly as long as a datagram should be: the kernel cuts a longer one, and what is left is checked like any.
        const ssize_t length = direct::recv(bm.qid, &message, sizeof message, MSG_WAITALL);
        const int error = errno;
        if (!go_on()) return;
        if (length >= 0 && length != static_cast<ssize_t>(sizeof message)) {
            say_wrong_length();
            continue;
        }
        if (length < 0) {
            errno = error;
            say_perror("recv");
            say_plain("recv() bad status going to IDLE \n");
        }
        // A partition that was removed under it costs the thread this event, and not the ones behind it.
        contain([&] { handle<Form>(bm, message); });
        for (int i = 0; length < 0 && i < 100 && go_on(); ++i) usleep(10000);
    }
}

/// What stands between a datagram, which any local process may have sent, and the user's handler.
template <class Form> class bm_core::datagram_check {
  public:
    datagram_check(BM& bm, const typename Form::message& message) : bm_(bm), message_(message) {}

    /// @return the event that the handler is to be called for.
    std::optional<slot_identity> accept()
    {
        const int evslot = message_.evslot;
        const int clslot = message_.clslot;
        if (!is_slot(bm_.ev_buf, evslot) || !is_slot(bm_.cl_buf, clslot)) {
            count_and_tell();
            return {};
        }
        const event_slot<Form> slot(*bm_.ev_buf, evslot);
        const client_slot client(*bm_.cl_buf, clslot);
        if (!slot || !client) {
            count_and_tell();
            return {};
        }
        head_ = slot.head_now();
        event_ = slot_identity::of(head_);
        if (!has_type_of(client) || is_stale() || !has_client(slot)) return {};
        if (slot.clients()[message_.cln].snum == clslot && !begin_work(slot)) return {};
        return event_;
    }

  private:
    static long id_of(const typename Form::head& head) { return static_cast<long>(head.eventid); }

    bool has_type_of(const client_slot& client)
    {
        const int expected = client.head_now().evtype;
        if (head_.evtype == expected) return true;
        if (!count_and_tell()) return false;
        say("reader_thread: event types mismatch expected: %d found: %d", expected, head_.evtype);
        const int seconds = static_cast<int>(head_.time.timeup);
        const int microseconds = static_cast<int>(head_.time.timelow);
        if constexpr (Form::wide) {
            say("reader_thread: %d:%d_%ld   ev_type:%d  pid: %d  ev.size: %ld blocks:%d filled:%d clients: %d", seconds,
                microseconds, id_of(head_), head_.evtype, head_.pid, static_cast<long>(head_.evsize), head_.nsblocks,
                head_.sbfilled, head_.nclients);
        } else {
            say("reader_thread: %d:%d_%d   ev_type:%d  pid: %d  ev.size: %d blocks:%d filled:%d clients: %d", seconds,
                microseconds, head_.eventid, head_.evtype, head_.pid, head_.evsize, head_.nsblocks, head_.sbfilled,
                head_.nclients);
        }
        return false;
    }

    bool is_stale()
    {
        if (head_.time.timeup == message_.time.timeup && head_.eventid == Form::message_event_id(message_))
            return false;
        say_stale(head_);
        return true;
    }

    void say_stale(const typename Form::head& head)
    {
        if (!count_and_tell()) return;
        const int seconds = static_cast<int>(head.time.timeup);
        const int message_seconds = static_cast<int>(message_.time.timeup);
        const auto message_id = static_cast<long>(Form::message_event_id(message_));
        if constexpr (Form::wide) {
            say("reader_thread: event (%d) stamp invalid (old event): event:%d_%ld  msg: %d_%ld", head.evtype, seconds,
                id_of(head), message_seconds, message_id);
        } else {
            say("reader_thread: event (%d) stamp invalid (old event): event:%d_%d  msg: %d_%ld", head.evtype, seconds,
                head.eventid, message_seconds, message_id);
        }
    }

    bool has_client(const event_slot<Form>& slot)
    {
        if (message_.cln >= 0 && message_.cln < slot.nclients()) return true;
        if (count_and_tell())
            say("reader_thread: client slot number invalid: %d  total: %d", message_.cln, head_.nclients);
        return false;
    }

    // From here on under the slot's lock. The event that was looked at may be gone and another one be there.
    bool begin_work(const event_slot<Form>& slot)
    {
        slot_lock lock(*bm_.ev_buf, message_.evslot);
        const typename Form::head now = slot.head();
        if (!(slot_identity::of(now) == event_)) {
            say_stale(now);
            return false;
        }
        const event_table<Form> table(*bm_.ev_buf);
        if (!table.has(message_.evslot) || table.of(message_.evslot).status == EVT_C_FREE) {
            if (count_and_tell()) say("reader_thread: event slot:%d is already free ", message_.evslot);
            return false;
        }
        zrk4_client_block& block = slot.clients()[message_.cln];
        if (block.status != CLI_S_NTF) {
            block.status = CLI_S_DONE;
            say_wrong_status(block.status, now);
            return false;
        }
        block.status = CLI_S_PROC;
        lock.unlock();
        return true;
    }

    // The status as it stands now, always 4: deliberate.
    static void say_wrong_status(int status, const typename Form::head& head)
    {
        if (!count_and_tell()) return;
        const int seconds = static_cast<int>(head.time.timeup);
        if constexpr (Form::wide) {
            say("reader_thread: wrong client status: %d  must be: %d %d:%d_%ld", status, CLI_S_NTF, seconds,
                static_cast<int>(head.time.timelow), id_of(head));
        } else {
            say("reader_thread: wrong client status: %d  must be: %d %d:%d_%d", status, CLI_S_NTF, seconds,
                static_cast<int>(head.time.timelow), head.eventid);
        }
    }

    BM& bm_;
    const typename Form::message& message_;
    typename Form::head head_{};
    slot_identity event_;
};

template <class Form> void bm_core::handle(BM& bm, const typename Form::message& message)
{
    std::optional<slot_identity> event;
    {
        const text_later texts;
        show<Form>(message);
        event = datagram_check<Form>(bm, message).accept();
    }
    if (!event || !bm.reader_go) return;
    call_user<Form>(bm, event_slot<Form>(*bm.ev_buf, message.evslot));
    // The handler may have left the exchange.
    if (attached(bm)) finish_reading<Form>(bm, message, *event);
}

template <class Form> void bm_core::call_user(BM& bm, const event_slot<Form>& slot)
{
    timespec begin{};
    clock_gettime(CLOCK_REALTIME, &begin);
    bm.own->in_callback = true;
    // Whatever the handler throws, its event is done.
    contain([&] {
        if (bm.user_cb != nullptr) bm.user_cb(slot.address(), slot.entries());
    });
    contain([&] { bm.event_handler(slot.address(), slot.entries()); });
    bm.own->in_callback = false;
    if (__atomic_load_n(&ZRK4_DAQ_BM_DEBUG, __ATOMIC_RELAXED) != SHOW_CALL_TIME) return;
    timespec end{};
    clock_gettime(CLOCK_REALTIME, &end);
    const double milliseconds =
        static_cast<double>(end.tv_sec - begin.tv_sec) * 1e3 + static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e6;
    const text_later texts;
    say_plain("(%d) USER CALL %f msec\n", bm.port.load(), milliseconds);
    flush_all_later();
}

// DONE and the look at the others in one hold of the slot's lock, then the client's own slot, then the freeing.
template <class Form>
void bm_core::finish_reading(BM& bm, const typename Form::message& message, const slot_identity& event)
{
    const text_later texts;
    const int evslot = message.evslot;
    const int clslot = message.clslot;
    slot_lock lock(*bm.ev_buf, evslot);
    event_slot<Form> slot(*bm.ev_buf, evslot);
    // Another event is in the slot by now: it is not the one that was read, and not ours to mark.
    if (!(slot.identity() == event)) return;
    zrk4_client_block* block = slot.client(clslot, message.cln);
    if (block != nullptr) {
        block->status = CLI_S_DONE;
    } else {
        say("Failed to update the client status to 'CLI_S_DONE' ");
    }
    const look_result look = look_at_clients<Form>(bm, evslot, slot, lock);
    lock.unlock();
    // A slot that was given back inside the handler is nobody's, and all zero.
    if (block != nullptr && is_handed_out(*bm.cl_buf, clslot)) touch_client(bm, clslot, /*event_done=*/true);
    end_look<Form>(bm, evslot, look);
}
