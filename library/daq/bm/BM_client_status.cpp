// Progress of one client on one event.
#include "BM.h"

#include <algorithm>

#include "bm_core.h"
#include "client_slot.h"
#include "text_later.h"

using namespace zrk4::impl;

bool BM::set_cl_status(int ev_slot, int cl_slot, BUF_MNG_CLI_STATUS status)
{
    const text_later texts;
    return without_exceptions(true, [&] {
        return bm_core::in_form(
            *this, [&](auto form) { return bm_core::set_status<decltype(form)>(*this, ev_slot, cl_slot, status); });
    });
}

bool BM::check_if_all_collected(int ev_slot, int cl_slot)
{
    const text_later texts;
    return without_exceptions(false, [&] {
        return bm_core::in_form(*this, [&](auto form) {
            using Form = decltype(form);
            if (!is_slot(ev_buf, ev_slot) || !event_slot<Form>(*ev_buf, ev_slot)) {
                say("check_if_all_collected(): failed to get the buffer address for event slot: %d", ev_slot);
                return false;
            }
            if (!is_client_slot(cl_buf, cl_slot)) {
                say("check_if_all_collected(): failed to get the buffer address for client slot: %d", cl_slot);
                return false;
            }
            return bm_core::has_all<Form>({*ev_buf, ev_slot}, {*cl_buf, cl_slot}, cl_slot);
        });
    });
}

template <class Form> bool bm_core::set_status(BM& bm, int ev_slot, int cl_slot, BUF_MNG_CLI_STATUS status)
{
    if (!is_slot(bm.ev_buf, ev_slot) || !event_slot<Form>(*bm.ev_buf, ev_slot)) {
        say("set_cl_status(): failed to get the buffer address for event slot: %d", ev_slot);
        return true;
    }
    {
        slot_lock lock(*bm.ev_buf, ev_slot);
        const event_slot<Form> slot(*bm.ev_buf, ev_slot);
        zrk4_client_block* block = slot.client(cl_slot);
        if (block == nullptr || !is_slot(bm.cl_buf, cl_slot)) return true;
        block->status = status;
        lock.unlock();
    }
    touch_client(bm, cl_slot, status == CLI_S_DONE);
    return false;
}

// The time is renewed with every change: a reader with a time ratio counts from here.
void bm_core::touch_client(const BM& bm, int cl_slot, bool event_done)
{
    const client_slot client(*bm.cl_buf, cl_slot);
    if (!client) return;
    slot_lock lock(*bm.cl_buf, cl_slot);
    if (event_done) client.count_event();
    client.renew(time_now());
    lock.unlock();
}

namespace {

// How many of the entries carry one of the names.
int count_named(const zrk4_client_sblock_data* entries, int filled, const name_list& names)
{
    // Below this, comparing each with each is quicker than building an index.
    constexpr int64_t COMPARE_EACH = 1024;
    const auto* const end = entries + filled;
    if (int64_t{filled} * names.count <= COMPARE_EACH) {
        return static_cast<int>(std::count_if(entries, end, [&](const auto& e) { return names.contains(e.name); }));
    }
    std::unordered_set<std::string_view> index;
    names.add_to(index);
    return static_cast<int>(
        std::count_if(entries, end, [&](const auto& e) { return index.count(name_view(e.name)) != 0; }));
}

} // namespace

template <class Form> bool bm_core::has_all(const event_slot<Form>& slot, const client_slot& client, int cl_slot)
{
    const zrk4_client_block* block = slot.client(cl_slot);
    if (block != nullptr && block->status == CLI_S_DONE) return true;
    return has_all_named<Form>(slot, client);
}

template <class Form> bool bm_core::has_all_named(const event_slot<Form>& slot, const client_slot& client)
{
    const int cltype = word_unlocked(&client.head().cltype);
    if (cltype != CLI_T_READER && cltype != CLI_T_WRITER) {
        say("check_if_all_collected(): invalid client type: %d", cltype);
        return false;
    }
    const bool reads = cltype == CLI_T_READER;
    // As stored: more names than the slot can hold are never all there.
    const int wanted = word_unlocked(reads ? static_cast<void*>(&client.reader().nsblocks)
                                           : static_cast<void*>(&client.writer().nsblocks));
    if (wanted > slot.filled()) return false;
    return count_named(slot.entries(), slot.filled(), reads ? client.reader_names() : client.writer_names()) == wanted;
}

template bool bm_core::has_all_named(const event_slot<slots_2010>&, const client_slot&);
template bool bm_core::has_all_named(const event_slot<slots_2024>&, const client_slot&);
