/// @file
/// A host with one reader at work: events written by hand, datagrams of any content, and a handler that the test gives.
#ifndef ZRK4_TEST_READER_HOST_H
#define ZRK4_TEST_READER_HOST_H

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "datagram.h"
#include "event_host.h"
#include "eventually.h"
#include "fault.h"
#include "monitor_texts.h"
#include "partition_state.h"
#include "slot_lock.h"

namespace zrk4::test {

/// Reader program with a derived class: the handler of each kind is what the test says.
class handling_bm : public open_bm {
  public:
    using BM::reader_go;
    using BM::rid;
    void event_handler(void* head, zrk4_client_sblock_data* first) override
    {
        if (on_virtual) on_virtual(head, first);
    }
    std::function<void(void*, zrk4_client_sblock_data*)> on_virtual;
};

/// A host with a reader program in it. The reader's events are written by hand.
class reader_host : public event_host {
  public:
    using handler = std::function<void(void*, zrk4_client_sblock_data*)>;

    explicit reader_host(generation g, const host_size& size = {}) : event_host(g, size)
    {
        on_event = nullptr;
        calls = 0;
        join(reading);
    }
    // No handler may run when what it speaks to is gone.
    ~reader_host() { reading.all_clean_up(); }

    /// Subscribes the reader and returns when its thread waits. @return its client slot.
    int listen(const std::vector<std::string>& names = {})
    {
        receives_ = calls_of("recv");
        sends_ = calls_of("sendto");
        reading.set_ev_handler(call_handler);
        zrk4_client all{};
        std::list<std::string> list(names.begin(), names.end());
        const int slot = reading.subscribe(TYPE, CLI_T_READER, &all, &list);
        settle();
        return slot;
    }
    /// Waits until every datagram sent so far is dealt with and the thread waits again.
    void settle(long receives_without_datagram = 0)
    {
        receives_ += receives_without_datagram;
        ASSERT_TRUE(eventually([&] { return calls_of("recv") == receives_ + 1 + (calls_of("sendto") - sends_); }))
            << calls_of("recv") - receives_ << " receives, " << calls_of("sendto") - sends_ << " datagrams";
        see_all();
    }
    /// The same where the locks cannot be had: returns with the `n`-th receive since the reader listens.
    void wait_for_receives(long n) const
    {
        ASSERT_TRUE(eventually([&] { return calls_of("recv") == receives_ + n; }));
    }
    /// Sends to the reader, and waits until it is dealt with.
    void deliver(const std::string& bytes)
    {
        send_to(reading.port, bytes);
        settle();
    }
    void deliver(const datagram& d) { deliver(datagram_bytes(d, form)); }
    /// Sends to the reader, and goes on.
    void send(const datagram& d) { send_to(reading.port, datagram_bytes(d, form)); }

    /// An event that `reader` was notified of, with one block of every name. @return its slot.
    int notified_event(int reader, const std::vector<std::string>& names = {"A"}, time_stamp key = {1000, 500},
                       int64_t id = 7)
    {
        return event_of({{reader, NTF}}, names, key, id);
    }
    int event_of(const std::vector<seen_client>& clients, const std::vector<std::string>& names = {"A"},
                 time_stamp key = {1000, 500}, int64_t id = 7)
    {
        const int n = used_slot(key, id);
        slot_bytes s = slot(n);
        s.put_time(&slot_layout::start, {key.timeup, 1});
        s.put_wide(&slot_layout::eventid, id);
        s.put(&slot_layout::pid, getpid());
        s.put(&slot_layout::nsblocks, static_cast<int>(names.size()));
        for (const auto& [snum, status] : clients) s.add_client(snum, status);
        for (const std::string& name : names)
            s.add_entry(name, data_id, put({.server = name, .time = key, .mpulse = id}));
        return n;
    }
    /// The datagram that belongs to event slot `n` and the reader's block `cln`.
    datagram message_of(int n, int reader, int cln = 0) const
    {
        const slot_bytes s = slot(n);
        const time_stamp key = s.time(&slot_layout::time);
        return {getpid(), n, reader, cln, key.timeup, key.timelow, s.eventid()};
    }
    int blocks_out()
    {
        const C_shm_buffer& data = *bm.find_by_id(data_id);
        int out = 0;
        for (int i = 0; i < BLOCKS; ++i) out += impl::is_handed_out(data, i) ? 1 : 0;
        return out;
    }
    /// Asked while others are at work, without a lock.
    bool slot_is_free(int n) const { return !impl::is_handed_out(events_part, n); }
    /// Processes or threads that wait for lock `n` of the event partition.
    bool somebody_waits_for_event_lock(int n) const { return semaphore_waiters(events_semid, 4 + n) == 1; }
    /// Sees, also in the eyes of the thread sanitizer, what other threads did under the slots' locks.
    void see_all() const
    {
        for (int n = 0; n < events_part.getBufferCount(); ++n) impl::slot_lock::try_once(events_part, n);
        for (int n = 0; n < clients_part.getBufferCount(); ++n) impl::slot_lock::try_once(clients_part, n);
    }

    static inline handler on_event;
    static inline std::atomic<int> calls{0};
    handling_bm reading;

  private:
    static void call_handler(void* head, zrk4_client_sblock_data* first)
    {
        ++calls;
        if (on_event) on_event(head, first);
    }

    long receives_ = 0, sends_ = 0;
};

/// A case with such a host.
class ReaderHost : public BothGenerations, public reader_host {
  protected:
    explicit ReaderHost(const host_size& size = {}) : reader_host(GetParam(), size) {}
};

/// Cases that ruin the process, or what it knows: each in a process of its own.
class ReaderAlone : public BothGenerations {
  protected:
    static void in_own_process(const std::function<void(reader_host&)>& body)
    {
        child process([&] {
            reader_host host(GetParam());
            body(host);
        });
        EXPECT_EQ(process.wait(), 0);
        clear_ipc_namespace();
    }
};

} // namespace zrk4::test

#endif
