/// @file
/// A host of its own for a test: both slot partitions, a data partition, a buffer manager, and clients written by hand.
#ifndef ZRK4_TEST_EVENT_HOST_H
#define ZRK4_TEST_EVENT_HOST_H

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <unistd.h>

#include "BM.h"
#include "captured_output.h"
#include "child.h"
#include "clean_namespace.h"
#include "latch.h"
#include "live_segment.h"
#include "partition_ids.h"
#include "slot_bytes.h"

namespace zrk4::test {

/// A buffer manager whose fields a test may see and set, as a derived class may.
class open_bm : public BM {
  public:
    ~open_bm() override { all_clean_up(); } // the threads end while the object is still whole
    using BM::cl_buf;
    using BM::ev_buf;
    using BM::get_bname_f;
    using BM::get_evid_f;
    using BM::get_key_f;
    using BM::get_len_f;
    using BM::get_sts_f;
    using BM::get_trg_f;
    using BM::missed_blocks_debug;
    using BM::mpid;
    using BM::port;
    using BM::qid;
    using BM::smode;
    using BM::sreader;
    using BM::swriter;
    using BM::timed_blocks_debug;
};

/// Lengths that leave 1 over a multiple of 8, so that slots and blocks begin at all eight alignments in turn.
struct host_size {
    int client_slots = 24;
    int client_length = 48 + 256 * 48 + 1;
    int event_slots = 9;
    int event_length = 16385;
};

/// A client slot as its owner leaves it.
struct client_spec {
    BUF_MNG_CLI_TYPE cltype = CLI_T_READER;
    std::vector<std::string> names{};
    pid_t pid = getpid();
    int evtype = ZRK4_EV_NORMAL;
    time_stamp ratio{0, 0};
    int tmask = 0;
    time_stamp atime{1, 0};
    int port = -1;
};

/// The two slot partitions, a data partition and a buffer manager on them. At its end every lock must be free.
class event_host {
  public:
    static constexpr ZRK4_EVTYPE TYPE = ZRK4_EV_NORMAL;
    static constexpr int BLOCKS = 64;
    static constexpr int BLOCK_LENGTH = 1001;
    static constexpr int DONE = CLI_S_DONE, WAIT = CLI_S_WAIT, PROC = CLI_S_PROC, NTF = CLI_S_NTF;

    explicit event_host(generation g, const host_size& size = {})
        : form(g),
          clients_part("ZRK4_CLIENT_SLOTS", size.client_slots + 1, size.client_length, true),
          events_part("ZRK4_EVENT_SLOTS", size.event_slots + 1, size.event_length, true),
          clients_semid(semid_of(clients_part)),
          events_semid(semid_of(events_part))
    {
        clients_part.get_buffer(BM_NO_WAIT, true); // the control records
        events_part.get_buffer(BM_NO_WAIT, true);
        here = this;
        join(bm);
        data_id = bm.add("T_DATA", BLOCKS, BLOCK_LENGTH);
    }
    ~event_host() { EXPECT_EQ(locks_held(), "") << "locks were not given back"; }

    /// Attaches a buffer manager to the host.
    void join(BM& other) const
    {
        other.set_evid_64bit_mode(wide());
        if (other.init()) ADD_FAILURE() << "init failed";
    }
    bool wide() const { return form == generation::of_2024; }
    const char* of_form(const char* text_2010, const char* text_2024) const { return wide() ? text_2024 : text_2010; }

    // ---- blocks

    /// Takes a data buffer and puts the head of a block into it. @return its number.
    int put(const block_spec& b) { return put(b, form); }
    int put(const block_spec& b, generation g)
    {
        int bnum = -1;
        int id = data_id;
        char* at = bm.get_buffer_from_pool(BM_NO_WAIT, BLOCK_LENGTH, &id, &bnum);
        const std::string bytes = head_bytes(b, g);
        std::memcpy(at, bytes.data(), bytes.size());
        return bnum;
    }
    char* block(int bnum) { return bm.get_buffer_address(bnum, data_id); }
    bool block_is_free(int bnum) { return (bm.find_by_id(data_id)->get_bufptr()[bnum].status & BUF_QUEUED) != 0; }

    // ---- clients

    /// Subscribes this process.
    int writer(const std::list<std::string>& names, ZRK4_EVTYPE type = TYPE)
    {
        zrk4_client none{};
        std::list<std::string> list = names;
        return bm.subscribe(type, CLI_T_WRITER, &none, &list);
    }
    /// Takes a client slot and writes it as another program would. @return its number.
    int client(const client_spec& c)
    {
        char* at = clients_part.get_buffer(BM_NO_WAIT, true);
        store<int32_t>(at, c.pid);
        store(at + 4, c.atime);
        store<int32_t>(at + 16, c.evtype);
        store<int32_t>(at + 20, c.cltype);
        store(at + 24, c.ratio);
        store<int32_t>(at + 36, c.tmask);
        char* next = at + 40;
        if (c.cltype == CLI_T_READER) {
            store<int32_t>(next, c.port);
            next += 4;
        }
        store<int32_t>(next, static_cast<int32_t>(c.names.size()));
        next += 4;
        for (const std::string& name : c.names) {
            std::memcpy(next, name.data(), name.size());
            next += 256;
        }
        return clients_part.buffer_id(at);
    }
    char* client_at(int c) const { return clients_part.buffer_addr(c); }
    time_stamp client_atime(int c) const { return load<time_stamp>(client_at(c) + 4); }
    int client_events(int c) const { return load<int32_t>(client_at(c) + 12); }
    bool client_is_free(int c) const { return (clients_part.get_bufptr()[c].status & BUF_QUEUED) != 0; }
    bool client_is_zero(int c) const
    {
        const char* at = client_at(c);
        return std::string(at, static_cast<size_t>(clients_part.getBufferLength())).find_first_not_of('\0') ==
               std::string::npos;
    }

    // ---- event slots

    slot_bytes slot(int n) const { return {events_part.buffer_addr(n), events_part.getBufferLength(), form}; }
    control_bytes control(int n) const { return {events_part.buffer_addr(0), n, form}; }
    // Looked at without a lock while the monitor is at work.
    __attribute__((no_sanitize("thread"))) bool slot_is_free(int n) const
    {
        return (events_part.get_bufptr()[n].status & BUF_QUEUED) != 0;
    }
    int taken_slot() { return events_part.buffer_id(events_part.get_buffer(BM_NO_WAIT, true)); }
    /// Initialises an event slot for a block. @return its number.
    int init_slot(const block_spec& b = {})
    {
        const int n = taken_slot();
        EXPECT_FALSE(bm.init_ev_slot(TYPE, n, block(put(b)))) << "false is success";
        return n;
    }
    /// Takes an event slot and marks its control entry used, as somebody who begins an event by hand.
    int used_slot(time_stamp key = {1000, 500}, int64_t id = 7, int type = TYPE)
    {
        const int n = taken_slot();
        control(n).put(EVT_C_USED, type, key, id);
        slot(n).fill(0);
        slot(n).put_time(&slot_layout::time, key);
        slot(n).put(&slot_layout::evtype, type);
        return n;
    }

    // ---- locks

    bool event_lock_is_held(int n) const { return semaphore_value(events_semid, 4 + n) == 0; }
    bool client_lock_is_held(int n) const { return semaphore_value(clients_semid, 4 + n) == 0; }
    void remove_locks(int semid) const { semctl(semid, 0, IPC_RMID); }
    /// What is not as it should be with nobody at work; sets that a case has removed are not looked at.
    std::string locks_held() const
    {
        std::string held;
        for (const int semid : {clients_semid, events_semid}) {
            for (int i = 0; i < semaphores_in_set(semid); ++i) {
                if ((i == 0 || i >= 4) && semaphore_value(semid, i) != 1)
                    held += (semid == clients_semid ? "client " : "event ") + std::to_string(i - 4) + ", ";
            }
        }
        return held;
    }

    static inline event_host* here; ///< for head readers, which get a block and nothing else
    const generation form;
    C_shm_buffer clients_part, events_part;
    const int clients_semid, events_semid;
    open_bm bm;
    int data_id = -1;
};

/// Entry of a block that nobody will deliver.
inline seen_entry hole(const std::string& name) { return {name, 0, -1}; }

/// Id of a process that has ended.
inline pid_t dead_pid()
{
    child ended([] {});
    ended.wait();
    return ended.pid();
}

/// Processes that live as long as this object and do nothing.
class bystanders {
  public:
    ~bystanders() { go_home_.open(); }
    pid_t one_more()
    {
        all_.push_back(std::make_unique<child>([this] { go_home_.wait(); }));
        return all_.back()->pid();
    }

  private:
    latch go_home_;
    std::vector<std::unique_ptr<child>> all_;
};

/// Cases that run in both generations.
class BothGenerations : public CleanNamespace, public testing::WithParamInterface<generation> {
  protected:
    ~BothGenerations() override
    {
        if (a_user_was_killed) clear_ipc_namespace();
    }
    /// Runs a case that takes semaphores away: no process can leave such partitions, so it is one of its own.
    static void in_own_process(const std::function<void(event_host&)>& body)
    {
        child process([&] {
            event_host host(GetParam());
            body(host);
        });
        EXPECT_EQ(process.wait(), 0);
        clear_ipc_namespace();
    }

    /// Set where a process that had access has died without leaving: it counts as a user of its partitions for ever.
    bool a_user_was_killed = false;
};

/// The same, each on a host of its own.
class EventHost : public BothGenerations, public event_host {
  protected:
    explicit EventHost(const host_size& size = {}) : event_host(GetParam(), size) {}
};

inline std::string generation_name(const testing::TestParamInfo<generation>& info)
{
    return info.param == generation::of_2010 ? "Of2010" : "Of2024";
}
#define IN_BOTH_GENERATIONS(Suite)                                                                                     \
    INSTANTIATE_TEST_SUITE_P(Records, Suite, testing::Values(generation::of_2010, generation::of_2024), generation_name)

/// What `action` prints, dates marked.
inline std::string said(const std::function<void()>& action) { return dates_marked(out_of(action)); }

} // namespace zrk4::test

#endif
