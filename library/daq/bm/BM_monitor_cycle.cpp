// The monitor: what dead and stalled clients leave behind is taken back.
#include "BM.h"

#include <csignal>
#include <cstdio>
#include <optional>

#include <unistd.h>

#include "bm_core.h"
#include "client_slot.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

constexpr int SHOW_CYCLES = -4000;
/// An event whose head was seen unchanged more often than this is suspicious.
constexpr int32_t PATIENCE = 9;

// Everything but the status word, and in the wide form the pattern.
template <class Head> bool same_head(const Head& a, const Head& b)
{
    return same_time(a.time, b.time) && a.eventid == b.eventid && a.evtype == b.evtype && a.tmask == b.tmask &&
           same_time(a.start, b.start) && same_time(a.lupdate, b.lupdate) && a.pid == b.pid && a.evsize == b.evsize &&
           a.nsblocks == b.nsblocks && a.sbfilled == b.sbfilled && a.nclients == b.nclients;
}

int64_t microseconds(const time_stamp& t) { return int64_t{t.timeup} * 1'000'000 + t.timelow; }

// `kill` and nothing else: a process of another user counts as gone. Deliberate.
bool is_gone(pid_t pid) { return kill(pid, 0) != 0; }

bool keep_going() { return monitor_go; }

} // namespace

/// One monitor thread's memory and its work.
template <class Form> class bm_core::monitor {
  public:
    explicit monitor(BM& bm) : bm_(bm) {}

    void run()
    {
        while (monitor_go) {
            if (!attached(bm_)) {
                snapshots_ = {};
            } else if (!cycle()) {
                return;
            }
            usleep(static_cast<useconds_t>(bm_.mperiod));
        }
    }

  private:
    struct snapshot {
        typename Form::head head{};
        int32_t unchanged = 0;
    };

    // False when the monitor is to end: it was signalled in a wait for a lock.
    bool cycle()
    {
        const auto slots = static_cast<size_t>(bm_.ev_buf->getBufferCount());
        if (snapshots_.size() != slots) snapshots_.assign(slots, {});
        std::optional<time_stamp> start = look_at_all();
        if (!start) return false;
        int suspicious = 0;
        for (int i = 1; i < static_cast<int>(slots); ++i) {
            if (snapshots_[static_cast<size_t>(i)].unchanged <= PATIENCE) continue;
            ++suspicious;
            if (!judge(i)) return false;
        }
        if (!throw_out_dead_clients()) return false;
        say_duration(*start, suspicious);
        return true;
    }

    // The time at which the cycle began; empty when the monitor is to end.
    std::optional<time_stamp> look_at_all()
    {
        const text_later texts;
        const slot_lock control(*bm_.ev_buf, 0, keep_going);
        if (!control) return {};
        const time_stamp start = time_now();
        const event_table<Form> table(*bm_.ev_buf);
        for (int i = 1; i <= table.slots(); ++i) look_at(i, table.of(i).status);
        return start;
    }

    void look_at(int i, int status)
    {
        snapshot& seen = snapshots_[static_cast<size_t>(i)];
        if (status == EVT_C_FREE) {
            seen = {};
        } else if (status != EVT_C_USED) {
            say("Unknown : %d", status);
        } else if (const event_slot<Form> slot(*bm_.ev_buf, i); !slot) {
            say("MONITOR: Failed to get address for buffer: %d", i);
        } else if (const typename Form::head now = slot.head_now(); same_head(now, seen.head)) {
            ++seen.unchanged;
        } else {
            seen = {now, 0};
        }
    }

    // Decided and freed in one hold of lock 0: let go in between, the slot could become the next event.
    bool judge(int i)
    {
        const text_later texts;
        snapshot& seen = snapshots_[static_cast<size_t>(i)];
        const time_stamp now = time_now();
        say_suspicious(i, now, seen.head);
        const slot_lock control(*bm_.ev_buf, 0, keep_going);
        if (!control) return false;
        // The slot's lock is tried before the decision: in between a reader could begin its work, or a writer enter the
        // last block. Got or not, it is decided.
        const slot_lock lock = slot_lock::try_for_a_while(*bm_.ev_buf, i);
        const event_slot<Form> slot(*bm_.ev_buf, i);
        const bool moved = !slot || !event_table<Form>(*bm_.ev_buf).used(i) || !same_head(slot.head_now(), seen.head);
        if (moved) seen.unchanged = 0;
        for (int c = 0; !moved && c < slot.nclients(); ++c) {
            if (!judge_client(slot.clients()[c], now, seen)) return false;
        }
        if (seen.unchanged != 0) {
            free_suspicious(i, control);
            say("MONITOR Suspicious event slot: %d freed ", i);
        } else {
            say("MONITOR slot[%d] still alive and in processing: not  freed ", i);
        }
        seen.unchanged = 0;
        return true;
    }

    bool judge_client(zrk4_client_block& block, const time_stamp& now, snapshot& seen)
    {
        const int snum = block.snum;
        if (!is_client_slot(bm_.cl_buf, snum)) {
            say("MONITOR: failed to obtain the client slot address: %d", snum);
            return true;
        }
        const client_slot client(*bm_.cl_buf, snum);
        if (client.head_now().pid == bm_.mpid || !is_handed_out(*bm_.cl_buf, snum)) return true;
        const slot_lock control(*bm_.cl_buf, 0, keep_going);
        if (!control) return false;
        const zrk4_client_slot_head head = client.head_now();
        if (is_gone(head.pid)) {
            say("MONITOR process: %d  will be kicked out", head.pid);
            free_client_unless_locked(bm_, snum);
            return true;
        }
        const int32_t status = word_unlocked(&block.status);
        if (status == CLI_S_PROC) {
            if (head.cltype == CLI_T_READER || was_active(now, seen.head.lupdate)) seen.unchanged = 0;
        } else if (status == CLI_S_NTF) {
            store_released(&block.status, CLI_S_DONE); // told, but it never took the event
        }
        return true;
    }

    // Within twenty periods, in whole seconds.
    bool was_active(const time_stamp& now, const time_stamp& last_update) const
    {
        return now.timeup - last_update.timeup < bm_.mperiod * 20 / 1'000'000;
    }

    void free_suspicious(int i, const slot_lock& control)
    {
        free_flag = 1;
        // A data partition that was removed costs the block in it, and not the monitor.
        without_exceptions(true, [&] { return free_slot_locked<Form>(bm_, i, control); });
        free_flag = 0;
    }

    // The lock is kept over some slots, for microseconds: taken for each of them it costs most of the cycle.
    bool throw_out_dead_clients()
    {
        constexpr int IN_ONE_HOLD = 64;
        const text_later texts;
        std::optional<slot_lock> control;
        bool go_on = true;
        for_each_held_slot(*bm_.cl_buf, [&, kept = 0](int j) mutable {
            if (go_on && (!control || ++kept == IN_ONE_HOLD)) {
                control.reset();
                go_on = static_cast<bool>(control.emplace(*bm_.cl_buf, 0, keep_going));
                kept = 0;
            }
            // Clearing a slot takes longer than all looks of one hold.
            if (go_on && throw_out_if_dead(j)) control.reset();
        });
        return go_on;
    }

    // @return whether it was. The port of a dead reader is not closed here: by now it may be one of this very process.
    bool throw_out_if_dead(int j)
    {
        const client_slot client(*bm_.cl_buf, j);
        if (!client) return false;
        const pid_t pid = client.head_now().pid;
        if (pid == bm_.mpid || !is_gone(pid)) return false;
        say("MONITOR: %d  will be kicked out slot:%d", pid, j);
        free_client_unless_locked(bm_, j);
        return true;
    }

    static void say_suspicious(int i, const time_stamp& now, const typename Form::head& head)
    {
        const int seconds = static_cast<int>(head.time.timeup);
        const int fraction = static_cast<int>(head.time.timelow);
        if constexpr (Form::wide) {
            say("MONITOR [%d:%d] Suspicious event slot: %d evt:%d %d:%d_%ld", static_cast<int>(now.timeup),
                static_cast<int>(now.timelow), i, head.evtype, seconds, fraction, static_cast<long>(head.eventid));
        } else {
            say("MONITOR [%d:%d] Suspicious event slot: %d evt:%d %d:%d_%d", static_cast<int>(now.timeup),
                static_cast<int>(now.timelow), i, head.evtype, seconds, fraction, head.eventid);
        }
    }

    static void say_duration(const time_stamp& start, int suspicious)
    {
        if (suspicious == 0 && __atomic_load_n(&ZRK4_DAQ_BM_DEBUG, __ATOMIC_RELAXED) != SHOW_CYCLES) return;
        const auto took = static_cast<double>(microseconds(time_now()) - microseconds(start));
        const text_later texts;
        flush_all_later();
        say("MONITORING [%d:%d]   took: %f ms", static_cast<int>(start.timeup), static_cast<int>(start.timelow),
            took / 1000);
    }

    BM& bm_;
    std::vector<snapshot> snapshots_; // by slot number; the first is never used
};

void BM::monitor_exec()
{
    if (!monitor_go) return;
    // The form is chosen once: a later change of mode does not reach a running monitor. Partitions that another master
    // made anew end the thread, not the process.
    without_exceptions(true, [&] {
        bm_core::in_form(*this, [&](auto form) { bm_core::monitor<decltype(form)>(*this).run(); });
        return false;
    });
}
