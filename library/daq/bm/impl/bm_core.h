/// @file
/// The operations behind BM's public ones, in the order in which an event meets them.
#ifndef ZRK4_IMPL_BM_CORE_H
#define ZRK4_IMPL_BM_CORE_H

#include <algorithm>
#include <atomic>
#include <exception>
#include <string>
#include <vector>

#include <cxxabi.h>
#include <sys/time.h>

#include "BM.h"
#include "client_slot.h"
#include "event_slot.h"
#include "slot_form.h"
#include "slot_lock.h"

namespace zrk4::impl {

/// What a BM keeps beside its declared fields.
struct bm_private {
    /// A client slot that this object took; the slot may have been taken away since.
    struct held_slot {
        int slot;
        int evtype;
        pid_t owner; ///< process that took it: a forked child is another one
    };
    std::vector<held_slot> held;
    /// Event slots that this object has cleared over their full length once.
    std::vector<std::atomic<uint8_t>> cleared_whole;
    /// Counts reader threads: one that was left behind by an unsubscribe inside its callback ends at the next look.
    std::atomic<unsigned> reader_generation{0};
    std::atomic<bool> in_callback{false};
    /// Monitor threads whose place in `pid` a further start has taken.
    std::vector<pthread_t> earlier_monitors;
};

/// Runs an operation that lets no exception out; `failed` is its answer then. Thread cancellation passes.
template <class Result, class Operation> Result without_exceptions(Result failed, Operation operation)
{
    try {
        return operation();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return failed;
    }
}

/// Whether the monitor of this process is freeing a slot: it then reports every block that goes back.
extern std::atomic<int> free_flag;
/// Run flag of the process's monitor threads.
extern std::atomic<bool> monitor_go;
/// Set in reader threads: a SIGABRT that one of them takes is not meant for the monitor.
extern thread_local bool is_reader_thread;

/// IPv4 address of "localhost", resolved once per process. @return false when it cannot be; the texts are given.
bool localhost_address(uint32_t& address);

/// A value outside the enumeration may arrive from a caller or from shared memory.
inline bool is_event_type(int evtype) { return static_cast<unsigned>(evtype) < ZRK4_EV_EVMAX; }

inline time_stamp time_now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return {static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_usec)};
}

/// Head reader of an event type, null when there is none.
template <class Function> Function reader_of(const std::map<int, Function>& readers, int evtype)
{
    const auto at = readers.find(evtype);
    return at == readers.end() ? nullptr : at->second;
}

/// The head readers of an event type, null where there is none: each is looked up once for a block, and outside of locks.
struct head_readers {
    GET_NAME_FUN name;
    GET_KEY_FUN key;
    GET_LEN_FUN length;
    GET_TRG_FUN trigger;
    GET_STS_FUN status;
    GET_EVID_FUN id;
};

/// An event as a search found or made it.
template <class Form> struct found_event {
    int slot = -1;
    typename Form::entry entry{}; ///< its control entry, copied under the event partition's lock 0
    slot_lock made;               ///< of an event that the search made: the slot's lock, kept for its first entry
};

/// A server block on its way into a slot.
struct new_block {
    ZRK4_EVTYPE evtype;
    int id;
    int bnum;
    char* at;
    head_readers read;
};

/// Where a client block stands, as a datagram tells it.
struct place {
    int evslot, clslot, cln;
};

enum class entered { yes, refused, slot_moved };

/// What one look at the clients of an event found.
struct look_result {
    int notified = 0;
    bool all_done = false;
    slot_identity event;
};

struct bm_core {
    /// Calls `use` with the form of event records that the object's mode selects.
    template <class Use> static auto in_form(const BM& bm, Use use)
    {
        return bm.evid64bitmode ? use(slots_2024{}) : use(slots_2010{});
    }
    static bool attached(const BM& bm) { return bm.cl_buf != nullptr && bm.ev_buf != nullptr; }
    /// End of the event slot at `slot`, null when it is not one.
    static const char* end_of_slot(const BM& bm, const void* slot);

    // BM_init.cpp: attachment
    struct slot_partitions {
        C_shm_buffer* clients = nullptr;
        C_shm_buffer* events = nullptr;
    };
    static void set_default_readers(BM& bm);
    static bool attach_to_masters(BM& bm);
    static bool attach_as_master(BM& bm);
    struct partition_plan;
    enum class attached_as { refused, not_made, reused, made };
    static partition_plan client_plan(const BM& bm);
    static partition_plan event_plan(const BM& bm);
    static attached_as attach_or_make(BM& bm, const partition_plan& plan);
    static bool refuse_or_remove(BM& bm, const partition_plan& plan, C_shm_buffer* old);
    static bool take_control_records(const slot_partitions& parts, attached_as clients, attached_as events);
    static slot_partitions found_in_pool(BM& bm);
    static void publish(BM& bm, const slot_partitions& parts);
    static bool give_up(BM& bm);
    static void drop(BM& bm, const char* name);
    static void drop_lost(BM& bm);

    // BM_subscribe.cpp: client slots
    static int take_client_slot(C_shm_buffer& clients);
    static int fill_client_slot(BM& bm, int slot, ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype, const zrk4_client& prm,
                                const std::list<std::string>& names);
    static void count_client(BM& bm, ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype);
    static bool still_ours(const BM& bm, int slot);
    static int type_subscribed(const BM& bm, int slot);
    static void forget_slot(const BM& bm, int slot);
    static void give_back_slot(BM& bm, int slot);
    /// REQUIRES: client partition lock 0. Never waits for the slot's lock: its holder may be waiting for lock 0.
    static bool free_client_unless_locked(BM& bm, int slot);
    /// REQUIRES: client partition lock 0 and the slot's own.
    static void empty_client_slot(BM& bm, int slot, int* port);
    static int own_writer_slot(const BM& bm, ZRK4_EVTYPE evtype);

    // BM_keys.cpp: what a block says of itself
    static head_readers head_readers_of(const BM& bm, int evtype);

    // BM_find_slot.cpp: the event of a block
    template <class Form>
    static found_event<Form> find_slot(BM& bm, ZRK4_EVTYPE evtype, char* block, const head_readers& read);
    template <class Form>
    static int matching_slot(BM& bm, const event_table<Form>& table, ZRK4_EVTYPE evtype, time_stamp key, int64_t id);
    static int free_event_slot(C_shm_buffer& events, int usable);
    template <class Form>
    static int take_event_slot(BM& bm, const event_table<Form>& table, ZRK4_EVTYPE evtype, time_stamp key, int64_t id,
                               char* block, const head_readers& read, slot_lock& made);

    // BM_init_slot.cpp: a new event
    template <class Form> class event_filler;
    template <class Form>
    static bool fill_event_slot(BM& bm, ZRK4_EVTYPE evtype, int slot, char* block, const head_readers& read);
    template <class Form> static void clear_event_slot(BM& bm, event_slot<Form>& slot, int number);

    // BM_collect.cpp: a block into its event
    template <class Form> static bool collect(BM& bm, ZRK4_EVTYPE evtype, int id, int bnum);
    template <class Form> static bool collect_into(BM& bm, ZRK4_EVTYPE evtype, int id, int bnum, int slot_number);
    template <class Form>
    static entered enter(BM& bm, const new_block& block, int slot_number, slot_lock lock,
                         const found_event<Form>* expected);
    template <class Form> static bool enter_locked(BM& bm, const new_block& block, event_slot<Form>& slot, int number);
    static void refuse_duplicate(BM& bm, const new_block& block, zrk4_client_sblock_data& entry);
    template <class Form> static bool add_entry(BM& bm, const new_block& block, event_slot<Form>& slot, int number);
    template <class Form> static bool add_totals(const new_block& block, event_slot<Form>& slot);

    // BM_client_status.cpp: progress of one client on one event
    template <class Form> static bool set_status(BM& bm, int ev_slot, int cl_slot, BUF_MNG_CLI_STATUS status);
    template <class Form> static bool has_all(const event_slot<Form>& slot, const client_slot& client, int cl_slot);
    /// The same of a client that is known not to be done.
    template <class Form> static bool has_all_named(const event_slot<Form>& slot, const client_slot& client);
    static void touch_client(const BM& bm, int cl_slot, bool event_done);

    // BM_notify.cpp: its readers
    template <class Form> class client_look;
    template <class Form>
    static look_result look_at_clients(BM& bm, int slot_number, event_slot<Form>& slot, const slot_lock& held);
    template <class Form>
    static bool notify(BM& bm, const event_slot<Form>& slot, const client_slot& reader, const place& of);
    template <class Form> static bool send_message(BM& bm, const typename Form::message& message, uint16_t port);
    static int sending_socket(BM& bm);
    template <class Form> static void say_if_incomplete(BM& bm, const event_slot<Form>& slot);
    /// Frees the slot if the look found every client done. @return number of readers notified by the look.
    template <class Form> static int end_look(BM& bm, int slot_number, const look_result& look);

    // BM_reader_start.cpp: the thread that waits for its datagram
    static bool open_reader_socket(BM& bm);
    static bool has_reader_thread(const BM& bm);

    // BM_reader.cpp: its datagram
    template <class Form> class datagram_check;
    template <class Form> static void read_events(BM& bm);
    template <class Form> static void handle(BM& bm, const typename Form::message& message);
    template <class Form> static void call_user(BM& bm, const event_slot<Form>& slot);
    template <class Form>
    static void finish_reading(BM& bm, const typename Form::message& message, const slot_identity& event);

    // BM_return.cpp: the way back
    /// `meant`: the event to free; another one that is in the slot by now is left alone. Null: whatever is in it.
    template <class Form> static bool free_slot(BM& bm, int slot, const slot_identity* meant);
    template <class Form> static bool free_slot_locked(BM& bm, int slot, const slot_lock& held);
    static bool is_control_record(const BM& bm, int bnum, int shmid);
    template <class Form> static bool return_block(BM& bm, const event_slot<Form>& slot, int i);
    template <class Form> static int slot_for_return(BM& bm, ZRK4_EVTYPE evtype, time_stamp key, int64_t id);
    template <class Form> static void take_out_entry(BM& bm, int slot_number, int bnum, int id);
    template <class Form> static void end_emptied_slot(BM& bm, int slot_number, const slot_identity& event);

    // BM_monitor_cycle.cpp: what others left behind
    template <class Form> class monitor;

    // BM_clean.cpp: the end
    static void leave(BM& bm);
    static void give_back_slots(BM& bm, const std::list<int>& slots);
    static std::vector<C_shm_buffer*> forget_attachment(BM& bm, std::vector<std::string>* names);
};

// Readers come here for every channel: no search for the slot, and no division. Of a pointer that is no slot's begin the
// partition's end is what must not be passed.
inline const char* bm_core::end_of_slot(const BM& bm, const void* slot)
{
    const C_shm_buffer* const events = bm.ev_buf;
    const char* const first = events == nullptr ? nullptr : address_of(*events, 0);
    if (first == nullptr) return nullptr;
    const int64_t length = events->getBufferLength();
    const int64_t all = length * events->getBufferCount();
    const int64_t offset = reinterpret_cast<intptr_t>(slot) - reinterpret_cast<intptr_t>(first);
    return offset < 0 || offset >= all ? nullptr : first + std::min(offset + length, all);
}

} // namespace zrk4::impl

#endif
