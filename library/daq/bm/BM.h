/// @file
/// The buffer manager: what a writer or reader program includes.
#ifndef ZRK4_BM_H
#define ZRK4_BM_H

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <list>
#include <map>
#include <memory>
#include <pthread.h>
#include <string>

#include "BM_int.h"
#include "C_shm_kill.h"
#include "C_shm_mpool.h"
#include "bm_api.h"
#include "bm_message.h"
#include "event.h"

class BM;
struct hostent;

namespace zrk4::impl {
struct bm_core;
struct bm_private;
/// A pointer that other threads read and change; used like any other.
template <class T> class atomic_pointer : public std::atomic<T*> {
  public:
    using std::atomic<T*>::atomic;
    using std::atomic<T*>::operator=;
    T* operator->() const { return this->load(); }
};
} // namespace zrk4::impl

/// How server blocks find their event.
enum {
    BM_SYNCH_TIME = 0, ///< by their time keys, within the time mask
    BM_SYNCH_EVID = 1, ///< by their event ids
    BM_SYNCH_TOTAL = 2 ///< declared, never accepted
};

/// Readers of a server block's head; each gets the block's address, which may have any alignment.
using GET_NAME_FUN = char* (*)(char*);
using GET_KEY_FUN = time_stamp* (*)(char*);
using GET_LEN_FUN = int64_t (*)(char*);
using GET_TRG_FUN = int (*)(char*);
using GET_STS_FUN = int (*)(char*);
using GET_EVID_FUN = int64_t (*)(char*);

/// Called once per event with the head of the event slot (`zrk4_event_slot_head`, or `zrk4_event_slot_head_2024` in
/// event-id 64-bit mode) and the first of its `sbfilled` server-block entries. Both lie in shared memory and are valid
/// until the call returns; entries with `shmid` 0 or `bnum` -1 carry no data.
using EV_HANDLER_FUN = void (*)(void*, zrk4_client_sblock_data*);

extern "C" {

/// -2000 prints every notification received, -3000 the duration of each user callback, -4000 the monitor's cycle time.
extern BM_API int ZRK4_DAQ_BM_DEBUG;
/// Notification datagrams rejected by this process's reader threads; reset by every BM constructor and every init.
extern BM_API int bm_bad_format_events;

/// Default readers of a server block's head, for both of its forms.
BM_API char* get_bname_known(char* block);     ///< name of the producing server
BM_API time_stamp* get_key_known(char* block); ///< time key
BM_API int64_t get_len_known(char* block);     ///< total length in bytes
BM_API int get_trg_known(char* block);         ///< trigger mask
BM_API int get_sts_known(char* block);         ///< status word
BM_API int64_t get_evid_known(char* block);    ///< event id (macro-pulse number)

/// Looks `hostname` up, re-entrantly, into a process-wide `hostent` whose strings lie in `hostent_buff`.
/// @return 0 and the entry in `*p_hp`; else the resolver's code, with `*p_hp` null and a line on standard error.
BM_API int resolvehost(const char* hostname, char* hostent_buff, int hostent_buff_len, hostent** p_hp);

/// Reports about event slot `slot`: says that it was not found exactly when it WAS found; that is kept as it stands.
/// @param head  not read
/// @param lock  asks for the partition's lock 0 when the slot has no address
BM_API void print_out_event(BM* bm, void* head, C_shm_buffer* slots, int slot, bool lock);

/// Entries of the two threads, and the handler of SIGABRT that ends the monitor.
BM_API void* reader_thread(void* bm);
BM_API void* monitor_thread(BM* bm);
BM_API void monitor_int_handler(int signal);
}

/// One process's part in the host's exchange of event data, as a writer, a reader or both.
///
/// Life: construct it after the last fork() of the process (it writes the id of the process that constructed it into
/// its client slots), call the setters, `init`, `subscribe`, and at the end `all_clean_up` or the destructor. After
/// either clean-up `init` may be called again. In one process of the host, the master, call `set_master(true)` first.
///
/// All processes that share the two slot partitions use the same event-id mode, synchronisation mode and time mask, run
/// as one user and in one process-id namespace.
///
/// Results: `true` MEANS FAILURE for every operation below that returns `bool`, unless it says otherwise.
class BM_API BM : public C_shm_mpool {
  public:
    /// Reads the names of the slot partitions from ZRK4_CLI_SHM_NAME and ZRK4_EV_SHM_NAME (their strings are not
    /// copied), by default "ZRK4_CLIENT_SLOTS" and "ZRK4_EVENT_SLOTS"; resolves "localhost" once per process.
    BM();
    BM(const BM&) = delete;
    BM& operator=(const BM&) = delete;

    /// For a derived class: called for each event delivered, beside the callback of `set_ev_handler`. It runs in the
    /// reader thread, which must have ended before the derived part of the object goes: call `all_clean_up` in the
    /// derived class's destructor.
    virtual void event_handler(void* head, zrk4_client_sblock_data* first);
    /// Runs `all_clean_up`; an exception that leaves it ends the process.
    virtual ~BM();

    // ---- configuration, before init -------------------------------------------------------------------------------

    /// Becomes master (starts the monitor thread) or ceases to be (stops it). @return true when that failed.
    bool set_master(bool m);
    /// Whether a master's `init` removes slot partitions that are too small, and its `all_clean_up` removes all
    /// partitions of its pool. Default true.
    void set_forced(bool f);
    /// Clients (1024), server blocks per event (4094) and event rate (20): they size the slot partitions of the master.
    /// @return the value in force: `n`, or the old one when attached.
    int set_nclients(int n);
    int set_nblocks(int n);
    int set_rate(int n);
    /// Number of client slots instead of 64 per client / of event slots instead of 32 per unit of rate; 0 = derive.
    /// @return `n`, or when attached the partition's number of buffers (one more than its slots).
    int set_ncl_slots(int n);
    int set_nev_slots(int n);
    /// Period of the monitor in microseconds (500,000); a master's monitor is restarted with it.
    void set_monitoring_period(int microseconds);
    /// Time keys that differ by at most this many microseconds (20,000) name the same event.
    void set_time_mask(unsigned long microseconds);
    /// BM_SYNCH_TIME or BM_SYNCH_EVID. @return true for anything else, which changes nothing.
    bool set_smode(int mode);
    int get_smode();
    /// The 2024 event records (64-bit ids) instead of the 2010 ones. @return the mode IN FORCE: no change once attached.
    bool set_evid_64bit_mode(bool m);
    bool get_evid_64bit_mode();

    /// Attaches the slot partitions; a master makes them, or takes over compatible ones.
    /// @return false on success; TRUE MEANS FAILURE, and nothing stays attached. No exception for a failed semaphore.
    /// Locks: client partition 0, given back.
    bool init();

    // ---- readers of a block's head, per event type, after init (which installs the defaults); null is ignored -------

    void set_get_name_func(int type, GET_NAME_FUN f);
    void set_get_key_func(int type, GET_KEY_FUN f);
    void set_get_length_func(int type, GET_LEN_FUN f);
    void set_get_trg_func(int type, GET_TRG_FUN f);
    void set_get_sts_func(int type, GET_STS_FUN f);
    void set_get_evid_func(int type, GET_EVID_FUN f);

    // ---- subscription -----------------------------------------------------------------------------------------------

    /// Takes a client slot. The first reader subscription of the object starts its reader thread.
    /// @param clprm   time ratio (reader) or time-out (writer), priority, trigger mask
    /// @param sblist  names of the server blocks that a reader wants (null or empty: every block of an event) or a
    ///                writer contributes; cut to 255 characters. More than the client slot has room for are refused.
    /// @return the slot number, at least 1; -1 refused or no slot free; -2 after a system error, which leaves the object
    ///         as `forced_clean` does.
    /// Threads: one at a time per object. Locks: the slot's own, in it client partition 0.
    int subscribe(ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype, zrk4_client* clprm, std::list<std::string>* sblist);
    /// Gives back this object's slots of `evtype`; the last reader slot stops the reader thread.
    /// @return the last slot given back; -1 none; -2 after a system error.
    /// Locks: client partition 0, in it the slot's own.
    int unsubscribe(ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype);
    /// Counts of subscribed writers and readers on the host, writers first; either may be null. Lock: client partition 0.
    void cl_subscribed(int* writers, int* readers);
    /// Frees client slot `bnum`. REQUIRES: client partition lock 0. Lock: in it the slot's own.
    /// @param queue  out, may be null: the port of a reader's slot; untouched for a writer's
    /// @return 0 freed, 1 no such slot.
    int free_cl_slot(int bnum, int* queue);
    /// @return the status word of the slot's descriptor: bit 1 SET MEANS FREE. No lock, no check of `bnum`. Without
    /// partitions every slot is free.
    int if_cl_slot_free(int bnum);

    // ---- the way of an event ----------------------------------------------------------------------------------------

    /// Registers a filled pool buffer as one server block of its event and, if this object is subscribed as a writer of
    /// `evtype`, notifies the readers whose blocks are now complete.
    ///
    /// @param evtype  0 to ZRK4_EV_EVMAX - 1
    /// @param id      segment id of the partition that holds the buffer, at least 1
    /// @param bnum    buffer number in it, at least 0
    /// @return false when the block was entered; TRUE MEANS FAILURE or refusal.
    ///
    /// Ownership: entered, the buffer belongs to the event and goes back with it. Refused as a duplicate, one of the two
    /// buffers has been given back here: do not return it. Refused as surplus or before a slot was found, it is still
    /// the caller's. When a length, trigger, status or id reader is missing the block is in the event all the same.
    /// Errors: one or more bm_dump_message lines per refusal; no exception.
    /// Threads: any number of threads and processes at once; subscribe and unsubscribe not beside it on the same object.
    /// Locks: event partition 0 (in it client partition 0, in it the slot of a dead client), given back; the slot's own,
    /// given back; then, to free a finished slot, event partition 0.
    bool ev_update(ZRK4_EVTYPE evtype, int id, int bnum);
    /// The same into event slot `slot`, which the caller knows to be the block's event.
    bool ev_update(ZRK4_EVTYPE evtype, int id, int bnum, int slot);
    /// Finds the event slot of the server block `evhd`, or takes and initialises one.
    /// @return slot number, at least 1; -1 on failure. Locks: event partition 0, in it client partition 0.
    int find_ev_slot(ZRK4_EVTYPE evtype, char* evhd);
    /// Fills event slot `bnum` for the event of block `evhd`: head, clients that take part, placeholders.
    /// @return false on success. Locks: client partition 0. REQUIRES: nobody else uses the slot yet.
    bool init_ev_slot(ZRK4_EVTYPE evtype, int bnum, char* evhd);
    /// Sets the progress of client slot `cl_slot` on the event in `ev_slot`. @return false on success.
    /// Locks: the event slot's own, given back; then the client slot's own.
    bool set_cl_status(int ev_slot, int cl_slot, BUF_MNG_CLI_STATUS status);
    /// @return TRUE when the client has what it needs from the slot, or is done with it. No lock.
    bool check_if_all_collected(int ev_slot, int cl_slot);
    /// Notifies the readers of event slot `bnum` whose blocks are complete; frees it when every client is done.
    /// @return number of readers notified. @throws SysError. Locks: the slot's own, given back; event partition 0.
    int cl_notify(int bnum);
    /// Sends client block `cln` of event slot `evslot` its datagram, if it waits. REQUIRES: the event slot's lock.
    /// @return false when sent or nothing was to be sent.
    bool notification(int evslot, int clslot, int cln);
    /// Returns all buffers of event slot `bnum` to their partitions, and the slot. @return true when one could not be.
    /// @throws SysError. Locks: event partition 0.
    bool free_ev_slot(int bnum);
    /// Gives back one server block early. For events with one reader only: it moves the entries behind it.
    /// @return false on success; TRUE MEANS FAILURE. @throws SysError.
    /// Locks: event partition 0, given back; the slot's own; for the last block event partition 0, in it the slot's own.
    bool return_buffer_in_pool_ext(ZRK4_EVTYPE evtype, int bnum, int id);

    // ---- the reader thread --------------------------------------------------------------------------------------------

    void set_ev_handler(EV_HANDLER_FUN f);
    /// Opens the reader's socket and starts its thread. @return false when the thread runs.
    bool start_reader();
    /// Ends the thread, waits for it and closes the socket. @return always false.
    bool stop_reader();
    /// Body of the reader thread.
    void reader_exec();
    /// Closes this object's socket when `*id` is its port; `*id` becomes -1. Nothing happens when it is below 0.
    void remove_queue(int* id);

    // ---- the monitor thread ---------------------------------------------------------------------------------------

    /// @return false on success. No check is made whether a monitor already runs.
    bool start_monitor();
    /// Ends the threads that this object has started and waits for them. @return always false.
    bool stop_monitor();
    /// Body of the monitor thread.
    void monitor_exec();

    // ---- end ------------------------------------------------------------------------------------------------------

    /// Leaves the exchange: stops the threads, gives back the client slots, releases all partitions; a forced master
    /// removes them from the system. After a system error it ends as `forced_clean`.
    void all_clean_up();
    /// Stops the threads and forgets everything without touching shared memory; a master's monitor reclaims the rest
    /// once the process is gone. Takes no lock.
    void forced_clean();

    // ---- time -----------------------------------------------------------------------------------------------------

    /// Wall-clock time.
    void get_cur_time(time_stamp* tm);
    /// `tme` - `tms` in single precision: steps of about two minutes, for printing only. Deliberate.
    void get_time_diff(time_stamp* tms, time_stamp* tme, time_stamp* tmdiff);
    /// @return true when `tms` - `tme` is at least `tmd`. Called as (now, since, period).
    bool time_expired(time_stamp* tms, time_stamp* tme, time_stamp* tmd);
    /// @return FALSE WHEN THE KEYS NAME THE SAME EVENT, true when they differ by more than the time mask.
    bool ev_keys_eq(time_stamp* tm1, time_stamp* tm2);

    // ---- reports; no locks, so a report can be torn --------------------------------------------------------------------

    void dump_cl_slots(std::ostream& os);
    void dump_cl_slots();
    void dump_ev_slots(std::ostream& os);
    void dump_ev_slots();

  protected:
    friend struct zrk4::impl::bm_core;

    std::atomic<int> clid{-1}; ///< segment id of the client-slot partition, -1 = not attached; 0 is an id
    std::atomic<int> evid{-1}; ///< segment id of the event-slot partition
    bool master = false;
    int ncli = 1024;
    int nsbl = 4094;
    int evrate = 20;
    std::atomic<bool> reader_go{false};
    bool evid64bitmode = false;
    pthread_t pid = 0;        ///< the monitor thread, 0 = none
    int64_t mpid;             ///< id of the process that constructed this object
    std::atomic<int> qid{-1}; ///< socket: receives notifications (`port` >= 0) or only sends them (a client record's
                              ///< `qid` is a port)
    int smode = BM_SYNCH_TIME;
    std::atomic<int> port{-1};                  ///< UDP port of the reader's socket, -1 = no reader thread
    pthread_t rid = static_cast<pthread_t>(-1); ///< the reader thread, -1 = none
    uint64_t time_mask = 20000;
    const char* clname;
    const char* evname;
    zrk4::impl::atomic_pointer<C_shm_buffer> cl_buf{nullptr};
    zrk4::impl::atomic_pointer<C_shm_buffer> ev_buf{nullptr};
    zrk4_client_ctrl_block* clictrl = nullptr;
    zrk4_event_ctrl_block* evtctrl = nullptr;
    zrk4_event_ctrl_block_2024* evtctrl2024 = nullptr;
    std::list<int> sreader; ///< client slots held as a reader
    std::list<int> swriter; ///< client slots held as a writer
    EV_HANDLER_FUN user_cb = nullptr;
    int clslots = 0;
    int evslots = 0;
    uint64_t mperiod = 500000;
    bool forced = true;
    std::map<int, GET_NAME_FUN> get_bname_f;
    std::map<int, GET_KEY_FUN> get_key_f;
    std::map<int, GET_LEN_FUN> get_len_f;
    std::map<int, GET_TRG_FUN> get_trg_f;
    std::map<int, GET_STS_FUN> get_sts_f;
    std::map<int, GET_EVID_FUN> get_evid_f;
    int timed_blocks_debug = 20;
    int missed_blocks_debug = 20;
    std::unique_ptr<zrk4::impl::bm_private> own;
};

#endif
