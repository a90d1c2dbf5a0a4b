/// @file
/// Event building by hand, for peers that carry messages: every writer sends its blocks in order, every reader takes one
/// block of each writer in turn, and has an event.
#ifndef ZRK4_BENCH_EXCHANGE_BY_MESSAGES_H
#define ZRK4_BENCH_EXCHANGE_BY_MESSAGES_H

#include <atomic>
#include <vector>

#include <unistd.h>

#include "conductor.h"
#include "shared_memory.h"

namespace bench {

/// What the processes of a peer share.
struct message_books {
    std::atomic<int64_t> over{0};   ///< events that the first reader is done with
    std::atomic<int32_t> joined{0}; ///< readers that nothing is lost for any more
};

/// `Inbox`: void join(); const char* take(int writer), which waits for the writer's next block; void done(), the event's
/// blocks are not looked at any more.
template <class Inbox> void collect_events(Inbox& inbox, const plan& p, int index, event_log& log, message_books& books)
{
    std::vector<const char*> payloads(static_cast<size_t>(p.writers));
    inbox.join();
    books.joined.fetch_add(1);
    for (bool last = false; !last;) {
        for (int w = 0; w < p.writers; ++w) payloads[static_cast<size_t>(w)] = inbox.take(w);
        last = log.note(payloads, now_ns());
        inbox.done();
        if (index == 0) books.over.fetch_add(1, std::memory_order_release);
    }
}

/// `Outbox`: char* take(), room for one payload; void send().
template <class Outbox> class message_writer {
  public:
    message_writer(Outbox& box, const message_books& books) : box_(box), books_(books) {}
    char* take(int64_t /*number*/, int /*block*/) { return box_.take(); }
    void hand_over(int64_t /*number*/, int /*block*/) { box_.send(); }
    bool is_over(int64_t number) const { return books_.over.load(std::memory_order_acquire) > number; }

  private:
    Outbox& box_;
    const message_books& books_;
};

/// @param make_inbox   of reader k @param make_outbox  of writer i; both return an object, made in the process
template <class MakeInbox, class MakeOutbox>
reading by_messages(const plan& p, MakeInbox make_inbox, MakeOutbox make_outbox, cast roles = {})
{
    const shared_memory<message_books> books(1);
    roles.reader = [&](int index, event_log& log, const auto& ready) {
        auto inbox = make_inbox(index);
        ready();
        collect_events(inbox, p, index, log, books[0]);
    };
    roles.writer = [&](int index, const auto& ready, const auto& done) {
        auto outbox = make_outbox(index);
        ready();
        while (books->joined.load() < p.readers) usleep(1000);
        message_writer writer(outbox, books[0]);
        done(write_events(writer, p, index));
    };
    return perform(p, roles);
}

} // namespace bench

#endif
