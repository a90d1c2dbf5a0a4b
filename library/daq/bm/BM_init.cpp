// Attachment to the slot partitions.
#include "BM.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "bm_core.h"
#include "kernel_limits.h"
#include "partition_test.h"
#include "text_later.h"
#include "zero_fill.h"

using namespace zrk4::impl;

namespace {

void announce_clients(const char* name, int count, int length)
{
    say("CL_SLOTS NAME:%s SLOTS:%d SIZE:%d", name, count, length);
}

void announce_events(const char* name, int count, int length)
{
    say("EV_SLOTS NAME:%s SLOTS:%d SIZE:%d", name, count, length);
}

// Two blanks before the bars here and one in the other text: scripts tell the partitions apart by them as well.
void clients_incompatible(int nbuf, int count, int lbuf, int length)
{
    say("Old client slot partition is incompatible !!! %d < %d  || %d < %d", nbuf, count, lbuf, length);
}

void events_incompatible(int nbuf, int count, int lbuf, int length)
{
    say("Old event slot partition is incompatible !!! %d < %d || %d < %d", nbuf, count, lbuf, length);
}

int decimal_stat(const C_shm& part, const char* key) { return std::atoi(part.getStat(key).c_str()); }

bool fits_int(int64_t value)
{
    return value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
}

// Without locks, or without a buffer 0, it is no slot partition: every wait for a lock would be endless.
bool has_control_record(const C_shm_buffer& part)
{
    return has_buffer_locks(part) && part.buffer_addr(0) != nullptr &&
           part.getBufferLength() >= static_cast<int>(sizeof(zrk4_event_ctrl_block));
}

void clear_buffers(const C_shm_buffer& part)
{
    if (char* const first = part.buffer_addr(0))
        zero_fill(first, static_cast<size_t>(part.getBufferCount()) * static_cast<size_t>(part.getBufferLength()));
}

bool took_buffer_0(C_shm_buffer& part)
{
    char* taken = part.get_buffer(BM_NO_WAIT, /*multi=*/true);
    if (taken != nullptr && taken == part.buffer_addr(0)) return true;
    if (taken != nullptr) part.return_buffer(part.buffer_id(taken));
    return false;
}

} // namespace

/// How a master makes one of the slot partitions. In 64 bits: limits that are set too high must not wrap into small ones.
struct bm_core::partition_plan {
    const char* name;
    int64_t count;  ///< buffers, the control record included
    int64_t length; ///< bytes of each
    const char* setters;
    void (*announce)(const char* name, int count, int length);
    void (*say_incompatible)(int nbuf, int count, int lbuf, int length);

    int nbuf() const { return static_cast<int>(count); }
    int lbuf() const { return static_cast<int>(length); }
    /// A longer name is stored cut: nobody finds such a partition again, its maker included.
    bool possible() const { return fits_int(count) && fits_int(length) && std::strlen(name) < SHM_NAME_SIZE; }
};

bm_core::partition_plan bm_core::client_plan(const BM& bm)
{
    const int64_t slots = bm.clslots != 0 ? bm.clslots : int64_t{bm.ncli} * 64;
    const int64_t length = int64_t{bm.nsbl} * 256 + 48;
    return {bm.clname,        slots + 1,           length, "set_nclients, set_ncl_slots, set_nblocks",
            announce_clients, clients_incompatible};
}

bm_core::partition_plan bm_core::event_plan(const BM& bm)
{
    // The table is sized by the rate even where the number of slots is set apart: every process computes it so.
    const int64_t table_entries = int64_t{bm.evrate} * 32 + 1;
    const int64_t slots = bm.evslots != 0 ? bm.evslots : int64_t{bm.evrate} * 32;
    const int64_t entries = int64_t{bm.nsbl} * 33;
    const int64_t length = bm.evid64bitmode ? std::max((bm.ncli + 10 + entries) * 8, table_entries * 24)
                                            : std::max((entries + bm.ncli) * 8 + 60, table_entries * 20);
    return {bm.evname,       slots + 1,          length, "set_rate, set_nev_slots, set_nblocks, set_nclients",
            announce_events, events_incompatible};
}

bool BM::init()
{
    const text_later texts;
    __atomic_store_n(&bm_bad_format_events, 0, __ATOMIC_RELAXED);
    bm_core::set_default_readers(*this);
    try {
        bm_core::drop_lost(*this);
        return master ? bm_core::attach_as_master(*this) : bm_core::attach_to_masters(*this);
    } catch (const SysError&) {
        forced_clean();
        return true;
    }
}

bool bm_core::give_up(BM& bm)
{
    drop(bm, bm.clname);
    drop(bm, bm.evname);
    return true;
}

// An object that is attached already, as a member that has become the master, must not come back to a partition that
// goes, nor may its threads be in it.
void bm_core::drop(BM& bm, const char* name)
{
    if (attached(bm)) {
        const bool watched = bm.pid != 0;
        bm.stop_monitor();
        if (has_reader_thread(bm)) bm.stop_reader();
        for (C_shm_buffer* part : forget_attachment(bm, nullptr)) bm.map_buffer(part);
        if (watched) bm.start_monitor();
    }
    bm.remove(name);
}

// What another object of this process has removed would stand in the way of what is there under that name now.
void bm_core::drop_lost(BM& bm)
{
    for (const char* name : {bm.clname, bm.evname}) {
        const C_shm_buffer* part = bm.find_by_name(name);
        if (part != nullptr && part->valid() == 0) drop(bm, name);
    }
}

bm_core::slot_partitions bm_core::found_in_pool(BM& bm)
{
    return {bm.find_by_name(bm.clname), bm.find_by_name(bm.evname)};
}

// The control records first and the partitions last: a monitor may be running already and looks for the partitions.
void bm_core::publish(BM& bm, const slot_partitions& parts)
{
    bm.clictrl = reinterpret_cast<zrk4_client_ctrl_block*>(parts.clients->buffer_addr(0));
    bm.evtctrl = reinterpret_cast<zrk4_event_ctrl_block*>(parts.events->buffer_addr(0));
    bm.evtctrl2024 = reinterpret_cast<zrk4_event_ctrl_block_2024*>(parts.events->buffer_addr(0));
    bm.own->cleared_whole = std::vector<std::atomic<uint8_t>>(static_cast<size_t>(parts.events->getBufferCount()));
    bm.clid = decimal_stat(*parts.clients, "shmid");
    bm.evid = decimal_stat(*parts.events, "shmid");
    bm.ev_buf = parts.events;
    bm.cl_buf = parts.clients;
}

bool bm_core::attach_to_masters(BM& bm)
{
    if (bm.add(bm.clname)) return true;
    if (bm.add(bm.evname)) {
        drop(bm, bm.clname);
        return true;
    }
    const slot_partitions parts = found_in_pool(bm);
    if (!has_control_record(*parts.clients) || !has_control_record(*parts.events)) return give_up(bm);
    // The status is read once and the budget runs out below 0, so this never waits and never fails: members may join
    // before their master is ready. Deliberate.
    const int status = word_unlocked(parts.clients->buffer_addr(0));
    int budget = 10000;
    while (status != CLI_C_INIT && status != CLI_C_UPD && budget-- >= 0) {}
    if (budget == 0) {
        say("Control block not initialized");
        return give_up(bm);
    }
    publish(bm, parts);
    return false;
}

bool bm_core::attach_as_master(BM& bm)
{
    const attached_as clients = attach_or_make(bm, client_plan(bm));
    if (clients != attached_as::reused && clients != attached_as::made) return true;
    const attached_as events = attach_or_make(bm, event_plan(bm));
    if (events == attached_as::refused || events == attached_as::not_made) {
        drop(bm, bm.clname);
        if (events == attached_as::not_made) say_plain("!!!!!!!!!!!!!!!! failed to add EVENT SLOTS !!!\n");
        return true;
    }
    const slot_partitions parts = found_in_pool(bm);
    // One that was made just now is what it should be, or has no buffer at all, which is said when it is asked for one.
    if (clients == attached_as::reused && !has_control_record(*parts.clients)) return give_up(bm);
    if (events == attached_as::reused && !has_control_record(*parts.events)) return give_up(bm);
    if (take_control_records(parts, clients, events)) return give_up(bm);
    publish(bm, parts);
    // A reused event partition leaves the client control status as it stood: deliberate.
    if (events == attached_as::reused) return false;
    while (!parts.clients->ctrl(0, true)) say("Ku-ku");
    bm.clictrl->status = CLI_C_INIT;
    while (!parts.clients->ctrl(0, false)) {}
    return false;
}

bm_core::attached_as bm_core::attach_or_make(BM& bm, const partition_plan& plan)
{
    while (true) {
        plan.announce(plan.name, plan.nbuf(), plan.lbuf());
        if (!plan.possible()) break;
        if (bm.add(plan.name)) break;
        C_shm_buffer* old = bm.find_by_name(plan.name);
        const int nbuf = decimal_stat(*old, "nbuf");
        const int lbuf = decimal_stat(*old, "lbuf");
        if (nbuf >= plan.count && lbuf >= plan.length) return attached_as::reused;
        plan.say_incompatible(nbuf, plan.nbuf(), lbuf, plan.lbuf());
        if (refuse_or_remove(bm, plan, old)) return attached_as::refused;
    }
    if (plan.possible() && bm.add(plan.name, plan.nbuf(), plan.lbuf(), /*sems=*/true) != -1) return attached_as::made;
    explain_limits(plan.name, plan.count, plan.length, plan.setters);
    return attached_as::not_made;
}

// An old partition that is too small goes from the pool; from the system only by force.
bool bm_core::refuse_or_remove(BM& bm, const partition_plan& plan, C_shm_buffer* old)
{
    const int id = decimal_stat(*old, "shmid");
    if (!bm.forced) old->keep(true);
    drop(bm, plan.name);
    if (!bm.forced) return true;
    say("Forcing mode: removing it !!!");
    {
        const C_shm_kill removed(plan.name);
    }
    // Another user's partition withstands: without this look its removal would be tried for ever.
    return is_partition(id);
}

// Buffer 0 of a new partition is taken for its control record and never handed out again. A client partition that is
// new means that nobody takes part any more: the event slots start empty with it, also in a partition that is reused.
bool bm_core::take_control_records(const slot_partitions& parts, attached_as clients, attached_as events)
{
    if (clients == attached_as::made) {
        // A partition made just now is zero already.
        if (events == attached_as::reused) clear_buffers(*parts.events);
        if (!took_buffer_0(*parts.clients)) {
            say("Failed to allocate 0th slot for client control block");
            return true;
        }
    }
    if (events == attached_as::made && !took_buffer_0(*parts.events)) {
        say("Failed to allocate 0th slot for event control block");
        return true;
    }
    return false;
}
