// The two ways out of the exchange.
#include "BM.h"

#include <string>
#include <vector>

#include <unistd.h>

#include "bm_core.h"
#include "text_later.h"

using namespace zrk4::impl;

BM::~BM()
{
    all_clean_up();
    // A socket that only sent notifications belongs to no reader thread.
    if (qid != -1) close(qid);
}

void BM::all_clean_up()
{
    const text_later texts;
    try {
        bm_core::leave(*this);
    } catch (const SysError&) {
        forced_clean();
    }
}

void bm_core::leave(BM& bm)
{
    bm.timed_blocks_debug = 20;
    bm.missed_blocks_debug = 20;
    bm.stop_monitor();
    give_back_slots(bm, bm.sreader);
    if (!bm.sreader.empty() || has_reader_thread(bm)) bm.stop_reader();
    give_back_slots(bm, bm.swriter);
    // A master that is not forced leaves the meeting place as it is for the next one.
    if (bm.master && !bm.forced && attached(bm)) {
        bm.cl_buf->keep(true);
        bm.ev_buf->keep(true);
    }
    std::vector<std::string> names;
    for (C_shm_buffer* part : forget_attachment(bm, &names)) delete part;
    // Everything that the master had in its pool goes, data partitions too.
    if (!bm.master || !bm.forced) return;
    for (const std::string& name : names) const C_shm_kill removed(name.c_str());
}

// A slot that the monitor took away in the meantime is somebody else's by now.
void bm_core::give_back_slots(BM& bm, const std::list<int>& slots)
{
    for (const int slot : slots) {
        if (still_ours(bm, slot)) give_back_slot(bm, slot);
    }
}

// Empties the object. @return the partition objects, by name; they are the caller's now.
std::vector<C_shm_buffer*> bm_core::forget_attachment(BM& bm, std::vector<std::string>* names)
{
    std::vector<C_shm_buffer*> parts;
    const std::lock_guard guard(bm.mx_indexes);
    for (const auto& [name, part] : bm.buffers_names) {
        parts.push_back(part);
        if (names != nullptr) names->push_back(name);
    }
    bm.cl_buf = nullptr;
    bm.ev_buf = nullptr;
    bm.clid = -1;
    bm.evid = -1;
    bm.clictrl = nullptr;
    bm.evtctrl = nullptr;
    bm.evtctrl2024 = nullptr;
    bm.sreader.clear();
    bm.swriter.clear();
    bm.own->held.clear();
    bm.buffers_names.clear();
    bm.buffers_ids.clear();
    bm.buffers_sz.clear();
    return parts;
}

// The objects are neither destroyed nor detached: their semaphores may be gone, and other threads may be in them. They
// stay until the process ends. Deliberate.
void BM::forced_clean()
{
    const text_later texts;
    stop_monitor();
    if (!sreader.empty() || bm_core::has_reader_thread(*this)) stop_reader();
    for (C_shm_buffer* part : bm_core::forget_attachment(*this, nullptr)) part->flush();
    timed_blocks_debug = 20;
    missed_blocks_debug = 20;
}
