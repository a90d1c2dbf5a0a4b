// Reports on the slots. No lock is taken and nothing waited for: what they show can be torn.
#include "BM.h"

#include <iostream>

#include "bm_core.h"
#include "client_slot.h"
#include "decimal_stream.h"
#include "text_later.h"

using namespace zrk4::impl;

namespace {

std::string_view text_of(const char* name) { return name_view(name); }

void dump_types(std::ostream& os, const char* title, const char* columns, const int32_t (&counts)[ZRK4_EV_EVMAX])
{
    os << std::endl
       << title << std::endl
       << "----------------------------------" << std::endl
       << columns << std::endl
       << "----------------------------------" << std::endl;
    for (int type = 0; type < ZRK4_EV_EVMAX; ++type) {
        if (counts[type] != 0) os << "     " << type << "         " << counts[type] << std::endl;
    }
}

void dump_client_control(std::ostream& os, const char* name, const zrk4_client_ctrl_block& control)
{
    os << std::endl << "            Clien Slot Partition - " << name << std::endl << std::endl;
    os << "Client Control Block" << std::endl << "--------------------" << std::endl;
    os << "  status:           " << +control.status << std::endl;
    os << "  clients total:    " << +control.clitotal << std::endl;
    os << "  readers:          " << +control.clireader << std::endl;
    os << "  writers:          " << +control.cliwriter << std::endl;
    int32_t counts[ZRK4_EV_EVMAX];
    std::memcpy(counts, control.evtyper, sizeof counts);
    dump_types(os, "Event types subscribed for reading", "  Event  Type        Readers      ", counts);
    std::memcpy(counts, control.evtypew, sizeof counts);
    dump_types(os, "Event types subscribed for writing", "  Event  Type        Writers      ", counts);
    os << std::endl << "Clients information" << std::endl << "-------------------" << std::endl;
}

void dump_parameters(std::ostream& os, const char* time_label, const time_stamp& time, const zrk4_client& client)
{
    os << time_label << +time.timeup << " " << +time.timelow << std::endl;
    os << "  Priority:     " << +client.pri << std::endl;
    os << "  Triggers:     " << +client.tmask << std::endl;
}

void dump_names(std::ostream& os, int stored_count, const name_list& names)
{
    os << "  # of blocks:  " << stored_count << std::endl;
    for (int k = 0; k < names.count; ++k) os << "Server # " << k << " " << text_of(names.at(k)) << std::endl;
}

// A writer's block starts with an empty line and a reader's does not: scripts split the report there.
void dump_client(std::ostream& os, int n, const client_slot& client)
{
    const zrk4_client_slot_head head = client.head_now();
    if (head.cltype != CLI_T_READER && head.cltype != CLI_T_WRITER) {
        os << "\nSlot # " << n << " unknown client type" << std::endl;
        return;
    }
    const bool reads = head.cltype == CLI_T_READER;
    os << (reads ? "Slot # " : "\nSlot # ") << n << (reads ? " a reader" : " a writer") << std::endl;
    os << "  PID:          " << +head.pid << std::endl;
    os << "  Access time:  " << +head.atime.timeup << " " << +head.atime.timelow << std::endl;
    os << "  Events:       " << +head.evcnt << std::endl;
    os << "  Event Type:   " << static_cast<int>(head.evtype) << std::endl;
    if (reads) {
        const zrk4_client_reader record = read_unlocked(&client.reader());
        dump_parameters(os, "  Time ratio:   ", record.client.time_ratio, record.client);
        os << "  Port    :     " << +record.qid << std::endl;
        dump_names(os, record.nsblocks, client.reader_names());
    } else {
        const zrk4_client_writer record = read_unlocked(&client.writer());
        dump_parameters(os, "  Time-out:     ", record.client.time_out, record.client);
        dump_names(os, record.nsblocks, client.writer_names());
    }
    os << std::endl;
}

const char* status_word(int status)
{
    switch (status) {
    case CLI_S_WAIT:
        return "  Waiting";
    case CLI_S_NTF:
        return "  Notified";
    case CLI_S_PROC:
        return "  Processing";
    case CLI_S_DONE:
        return "  Done";
    default:
        return "Invalid";
    }
}

constexpr char LINE_95[] =
    "-----------------------------------------------------------------------------------------------";
constexpr char LINE_44[] = "--------------------------------------------";
static_assert(sizeof LINE_95 == 96 && sizeof LINE_44 == 45);

// The status word is in hexadecimal like the mask before it: the base is switched back only behind it.
template <class Head> void dump_event_head(std::ostream& os, const Head& head)
{
    os << +head.time.timeup << ":" << +head.time.timelow << "_" << +head.eventid << " " << static_cast<int>(head.evtype)
       << "   " << std::hex << +head.tmask << "   " << +head.status << std::dec << "   " << +head.start.timeup << "/"
       << +head.start.timelow << "   " << +head.lupdate.timeup << "/" << +head.lupdate.timelow << "  " << +head.evsize
       << "   " << +head.nsblocks << "/" << +head.sbfilled << "   " << +head.nclients << std::endl;
}

void dump_event_client(std::ostream& os, int c, const zrk4_client_block& block)
{
    os << "---Client:    " << c << "  ----" << std::endl
       << "-----------------------" << std::endl
       << "  ClientSlot  Status " << std::endl
       << "-----------------------" << std::endl
       << +block.snum << status_word(block.status) << std::endl;
}

template <class Form>
void dump_event(std::ostream& os, int n, const event_slot<Form>& slot, const typename Form::entry& entry)
{
    os << "  key        :       " << +entry.key.timeup << ":" << +entry.key.timelow << "_" << +entry.eventid
       << std::endl;
    os << "  event type :       " << +entry.evtype << std::endl;
    os << "---------------------------------- Event Slot " << n << "  --------------------- ---------" << std::endl;
    os << LINE_95 << std::endl
       << "  Key              EventType    Tmask   Status   Start      LastUpdate   EvSize   #SvrBlocks/filled   "
          "#Clients"
       << std::endl
       << LINE_95 << std::endl;
    const typename Form::head head = slot.head_now();
    dump_event_head(os, head);
    os << "---- Clients    " << +head.nclients << "  ----" << std::endl;
    for (int c = 0; c < slot.nclients(); ++c) dump_event_client(os, c, read_unlocked(&slot.clients()[c]));
    os << "---- ServerBlocks:    " << +head.sbfilled << "  ----" << std::endl
       << LINE_44 << std::endl
       << " #  Name                      ShmID      Buf# " << std::endl
       << LINE_44 << std::endl;
    for (int k = 0; k < slot.filled(); ++k) {
        const zrk4_client_sblock_data block = read_unlocked(&slot.entries()[k]);
        os << k << " " << text_of(block.name) << "   " << +block.shmid << "   " << +block.bnum << std::endl;
    }
    os << LINE_44 << std::endl << LINE_44 << std::endl;
}

template <class Form> void dump_event_slots(std::ostream& os, const C_shm_buffer& events)
{
    const event_table<Form> table(events);
    for (int n = 1; n <= table.slots(); ++n) {
        const typename Form::entry entry = read_unlocked(&table.of(n));
        os << "  Slot: " << n << "  status:           ";
        if (entry.status == EVT_C_FREE) {
            os << "FREE" << std::endl;
        } else if (entry.status != EVT_C_USED) {
            os << "Unknown :" << +entry.status << std::endl;
        } else {
            os << "USED" << std::endl;
            if (const event_slot<Form> slot(events, n); slot) dump_event<Form>(os, n, slot, entry);
        }
    }
}

} // namespace

void BM::dump_cl_slots(std::ostream& os)
{
    const decimal_stream format(os);
    const C_shm_buffer* clients = cl_buf;
    if (clients == nullptr || clients->valid() == 0) {
        os << "BM::dump_cl_slots() Global partition not accessed" << std::endl;
        return;
    }
    dump_client_control(os, clname, read_unlocked(clictrl));
    for (int n = 1; n < clients->getBufferCount(); ++n) {
        const client_slot client(*clients, n);
        if (!is_handed_out(*clients, n)) {
            os << "Slot # " << n << "   Not used" << std::endl;
        } else if (client) {
            dump_client(os, n, client);
        }
    }
}

void BM::dump_cl_slots() { dump_cl_slots(std::cout); }

void BM::dump_ev_slots(std::ostream& os)
{
    const decimal_stream format(os);
    const C_shm_buffer* events = ev_buf;
    if (events == nullptr || events->valid() == 0) {
        os << "BM::dump_ev_slots() Global partition not accessed" << std::endl;
        return;
    }
    os << std::endl << "            Event Slot Partition - " << evname << std::endl << std::endl;
    os << "Event Control Block" << std::endl << "--------------------" << std::endl;
    bm_core::in_form(*this, [&](auto form) { dump_event_slots<decltype(form)>(os, *events); });
}

void BM::dump_ev_slots() { dump_ev_slots(std::cout); }

// The test is the wrong way round and stays so: the line appears for a slot that is there.
void print_out_event(BM* /*bm*/, void* /*head*/, C_shm_buffer* slots, int slot, bool /*lock*/)
{
    const text_later texts;
    if (slots != nullptr && slots->buffer_addr(slot) != nullptr)
        say("print_out_event(): Failed to find event slot: %d ", slot);
}
