// Client slots: taken by subscribing, given back by unsubscribing.
#include "BM.h"

#include <algorithm>

#include "bm_core.h"
#include "client_slot.h"
#include "own_pid.h"
#include "text_later.h"
#include "zero_fill.h"

using namespace zrk4::impl;

int BM::subscribe(ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype, zrk4_client* clprm, std::list<std::string>* sblist)
{
    const text_later texts;
    if (!bm_core::attached(*this) || (cltype != CLI_T_READER && cltype != CLI_T_WRITER) || !is_event_type(evtype) ||
        clprm == nullptr)
        return -1;
    const std::list<std::string> none;
    const std::list<std::string>& names = sblist != nullptr ? *sblist : none;
    C_shm_buffer& clients = *cl_buf;
    const int room = clients.getBufferLength();
    const int fit = cltype == CLI_T_READER ? client_slot::names_that_fit<zrk4_client_reader>(room)
                                           : client_slot::names_that_fit<zrk4_client_writer>(room);
    if (static_cast<int64_t>(names.size()) > fit) return -1;
    try {
        require_access(clients);
        require_access(*ev_buf);
        // By the port: the socket alone may be one that only sends. A reader that cannot hear gets no slot.
        if (cltype == CLI_T_READER && port < 0) start_reader();
        if (cltype == CLI_T_READER && port < 0) return -1;
        const int slot = bm_core::take_client_slot(clients);
        if (slot < 0) return -1;
        return bm_core::fill_client_slot(*this, slot, evtype, cltype, *clprm, names);
    } catch (const SysError&) {
        forced_clean();
        return -2;
    }
}

int bm_core::take_client_slot(C_shm_buffer& clients)
{
    while (true) {
        char* taken = clients.get_buffer(BM_NO_WAIT, /*multi=*/true);
        if (taken == nullptr) return -1;
        // Buffer 0 is in the queue when a master died, or has not come, between making the partition and taking it. It
        // is kept out, and is nobody's slot; nor is one that is so short that the control record reaches into it.
        if (taken - clients.buffer_addr(0) >= static_cast<ptrdiff_t>(sizeof(zrk4_client_ctrl_block)))
            return clients.buffer_id(taken);
    }
}

// Others look at client slots without their locks and go by `cltype`: it is written last.
int bm_core::fill_client_slot(BM& bm, int slot, ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype, const zrk4_client& prm,
                              const std::list<std::string>& names)
{
    const client_slot client(*bm.cl_buf, slot);
    slot_lock lock(*bm.cl_buf, slot);
    const bool reads = cltype == CLI_T_READER;
    (reads ? bm.sreader : bm.swriter).push_back(slot);
    bm.own->held.push_back({slot, evtype, own_pid()});
    char* name =
        reinterpret_cast<char*>(&client.head() + 1) + (reads ? sizeof(zrk4_client_reader) : sizeof(zrk4_client_writer));
    for (const std::string& text : names) {
        store_name(name, text);
        name += NAME_SIZE;
    }
    const auto count = static_cast<int32_t>(names.size());
    if (reads) {
        client.reader() = {prm, bm.port, count};
    } else {
        client.writer() = {prm, count};
    }
    zrk4_client_slot_head& head = client.head();
    head.atime = time_now();
    head.evcnt = 0;
    head.evtype = evtype;
    head.pid = static_cast<pid_t>(bm.mpid);
    store_released(&head.cltype, cltype);
    count_client(bm, evtype, cltype);
    lock.unlock();
    return slot;
}

// Inside the slot's own lock, the other way round than everywhere else: nobody waits for the lock of a slot that is
// still being subscribed.
void bm_core::count_client(BM& bm, ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype)
{
    slot_lock control(*bm.cl_buf, 0);
    zrk4_client_ctrl_block& counts = *bm.clictrl;
    counts.clitotal += 1;
    counts.status = CLI_C_UPD;
    if (cltype == CLI_T_READER) {
        counts.clireader += 1;
        counts.evtyper[evtype] += 1;
    } else {
        counts.cliwriter += 1;
        counts.evtypew[evtype] += 1;
    }
    control.unlock();
}

int BM::unsubscribe(ZRK4_EVTYPE evtype, BUF_MNG_CLI_TYPE cltype)
{
    const text_later texts;
    if (cltype != CLI_T_READER && cltype != CLI_T_WRITER) return -1;
    std::list<int>& slots = cltype == CLI_T_READER ? sreader : swriter;
    if (slots.empty() || cl_buf == nullptr) return -1;
    int last_freed = -1;
    try {
        require_access(*cl_buf);
        for (auto at = slots.begin(); at != slots.end();) {
            const int slot = *at;
            const bool ours = bm_core::still_ours(*this, slot);
            const int type =
                ours ? client_slot(*cl_buf, slot).head_now().evtype : bm_core::type_subscribed(*this, slot);
            if (type != evtype) {
                ++at;
                continue;
            }
            // One that the monitor took away in the meantime is somebody else's by now: it only leaves the list.
            if (ours) {
                bm_core::give_back_slot(*this, slot);
                last_freed = slot;
            }
            bm_core::forget_slot(*this, slot);
            at = slots.erase(at);
        }
        if (cltype == CLI_T_READER && sreader.empty()) stop_reader();
        return last_freed;
    } catch (const SysError&) {
        forced_clean();
        return -2;
    }
}

namespace {

auto find_held(std::vector<bm_private::held_slot>& held, int slot)
{
    return std::find_if(held.begin(), held.end(), [&](const auto& h) { return h.slot == slot; });
}

int32_t one_less(int32_t count) { return count > 0 ? count - 1 : count; }

} // namespace

// Not by the process id in the head: a forked child of the owner writes its parent's there.
bool bm_core::still_ours(const BM& bm, int slot)
{
    const auto at = find_held(bm.own->held, slot);
    return at != bm.own->held.end() && is_slot(bm.cl_buf, slot) && is_handed_out(*bm.cl_buf, slot) &&
           owner_of(*bm.cl_buf, slot) == at->owner;
}

int bm_core::type_subscribed(const BM& bm, int slot)
{
    const auto at = find_held(bm.own->held, slot);
    return at != bm.own->held.end() ? at->evtype : -1;
}

void bm_core::forget_slot(const BM& bm, int slot)
{
    const auto at = find_held(bm.own->held, slot);
    if (at != bm.own->held.end()) bm.own->held.erase(at);
}

void bm_core::give_back_slot(BM& bm, int slot)
{
    slot_lock control(*bm.cl_buf, 0);
    bm.free_cl_slot(slot, nullptr);
    control.unlock();
}

int BM::free_cl_slot(int bnum, int* queue)
{
    const text_later texts;
    if (!is_client_slot(cl_buf, bnum)) return 1;
    slot_lock lock(*cl_buf, bnum);
    bm_core::empty_client_slot(*this, bnum, queue);
    lock.unlock();
    return 0;
}

bool bm_core::free_client_unless_locked(BM& bm, int slot)
{
    if (!is_client_slot(bm.cl_buf, slot)) return false;
    slot_lock lock = slot_lock::try_once(*bm.cl_buf, slot);
    if (!lock) return false;
    empty_client_slot(bm, slot, nullptr);
    lock.unlock();
    return true;
}

// The counters never go below 0, and a type that is none counts nothing.
void bm_core::empty_client_slot(BM& bm, int slot, int* port)
{
    C_shm_buffer& clients = *bm.cl_buf;
    const client_slot client(clients, slot);
    const zrk4_client_slot_head head = client.head();
    const int type = head.evtype;
    zrk4_client_ctrl_block& counts = *bm.clictrl;
    if (head.cltype == CLI_T_READER) {
        if (is_event_type(type)) counts.evtyper[type] = one_less(counts.evtyper[type]);
        counts.clireader = one_less(counts.clireader);
        if (port != nullptr) *port = client.reader().qid;
    } else if (head.cltype == CLI_T_WRITER) {
        if (is_event_type(type)) counts.evtypew[type] = one_less(counts.evtypew[type]);
        counts.cliwriter = one_less(counts.cliwriter);
    }
    counts.clitotal = one_less(counts.clitotal);
    zero_fill(clients.buffer_addr(slot), static_cast<size_t>(clients.getBufferLength()));
    clients.return_buffer(slot);
}

int BM::if_cl_slot_free(int bnum)
{
    const C_shm_buffer* clients = cl_buf;
    return clients == nullptr || clients->valid() == 0 ? BUF_QUEUED
                                                       : word_unlocked(&clients->get_bufptr()[bnum].status);
}

void BM::cl_subscribed(int* writers, int* readers)
{
    int32_t counted_writers = 0;
    int32_t counted_readers = 0;
    if (cl_buf != nullptr) {
        slot_lock control(*cl_buf, 0);
        counted_writers = clictrl->cliwriter;
        counted_readers = clictrl->clireader;
        control.unlock();
    }
    if (writers != nullptr) *writers = counted_writers;
    if (readers != nullptr) *readers = counted_readers;
}

int bm_core::own_writer_slot(const BM& bm, ZRK4_EVTYPE evtype)
{
    for (const int slot : bm.swriter) {
        const client_slot client(*bm.cl_buf, slot);
        if (client && client.head_now().evtype == evtype) return slot;
    }
    return -1;
}
