// Datagrams of any content, one after the other, at a reader that takes part in an event of any content: the whole way
// through the check, the handler, the look at the others and the freeing of the slot.
#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/socket.h>

#include "block_recipe.h"
#include "bm_core.h"
#include "bm_util.h"
#include "client_slot.h"
#include "event_slot.h"
#include "guarded.h"
#include "kept_queue.h"
#include "partition_state.h"
#include "small_host.h"
#include "target.h"

namespace fuzz {
namespace {

using namespace zrk4::impl;

constexpr int EVENT_SLOT = 1;
constexpr int DATA_BUFFERS = 4, DATA_LENGTH = 1021;
constexpr int DATAGRAMS = 8; // at most, for an input
constexpr time_stamp KEY{1000, 500};
constexpr int32_t EVENT_ID = 7;

/// A reader that works through an input in place of a socket.
class reader : public small_host {
  public:
    reader()
    {
        qid = open("/dev/null", O_RDWR | O_CLOEXEC); // nothing is sent: see sendto below
        for (int n = 1; n <= CLIENT_SLOTS; ++n)
            expect(cl_buf.load()->get_buffer(BM_NO_WAIT, true) != nullptr, "a free slot");
        data_id = add("F_DATA", DATA_BUFFERS, DATA_LENGTH, /*sems=*/false);
        data = find_by_id(data_id);
        for (const C_shm_buffer* part : parts()) {
            set_guard(*part, guard::end);
            queues.emplace_back(*part);
        }
        set_ev_handler([](void* head, zrk4_client_sblock_data* first) { expect(head < first, "a slot"); });
        uint32_t address = 0;
        expect(localhost_address(address), "an address"); // looked up once, and slowly
    }
    void event_handler(void* head, zrk4_client_sblock_data* first) override;
    std::array<C_shm_buffer*, 3> parts() const { return {cl_buf.load(), ev_buf.load(), data}; }

    int data_id = -1;
    C_shm_buffer* data = nullptr;
    std::vector<kept_queue> queues;
    input* in = nullptr;
    int datagrams_left = 0;
};
reader* here = nullptr;

int32_t mostly(input& in, int32_t usual)
{
    const uint8_t kind = in.byte();
    return kind < 0xC0 ? usual : in.number();
}

// ---- the event, and who takes part --------------------------------------------------------------------------------------

void put_client(input& in, int n)
{
    char* const at = here->cl_buf.load()->buffer_addr(n);
    const auto room = static_cast<size_t>(here->cl_buf.load()->getBufferLength());
    std::memset(at, 0, room);
    const uint8_t shape = in.byte();
    auto& head = *reinterpret_cast<zrk4_client_slot_head*>(at);
    head.pid = mostly(in, 1);
    head.evtype = static_cast<ZRK4_EVTYPE>(mostly(in, ZRK4_EV_NORMAL));
    head.cltype = (shape & 1) != 0 ? CLI_T_WRITER : static_cast<BUF_MNG_CLI_TYPE>(mostly(in, CLI_T_READER));
    const client_slot client(*here->cl_buf, n);
    const int32_t names = mostly(in, (shape >> 1) & 3);
    const bool writer = head.cltype == CLI_T_WRITER;
    (writer ? client.writer().nsblocks : client.reader().nsblocks) = names;
    const size_t first = writer ? 44 : 48;
    for (int i = 0; i < ((shape >> 1) & 3); ++i) in.name(at + first + 256 * static_cast<size_t>(i));
}

int block_number(input& in)
{
    char* const at = here->data->get_buffer(BM_NO_WAIT, true);
    if (at == nullptr) return 0;
    const std::string& bytes = server_block(in, DATA_LENGTH);
    std::memcpy(at, bytes.data(), bytes.size());
    return here->data->buffer_id(at);
}

zrk4_client_sblock_data entry_of(input& in)
{
    zrk4_client_sblock_data entry{};
    in.name(entry.name);
    const uint8_t kind = in.byte();
    entry.shmid = kind < 0xE0 ? here->data_id : in.number();
    entry.bnum = kind < 0xC0 ? block_number(in) : in.number();
    return entry;
}

std::string client_blocks(input& in, int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        bytes += bytes_of(zrk4_client_block{mostly(in, 1 + i), static_cast<BUF_MNG_CLI_STATUS>(mostly(in, CLI_S_NTF))});
    }
    return bytes;
}

template <class Form> void put_control(input& in)
{
    const event_table<Form> table(*here->ev_buf);
    auto& entry = table.of(EVENT_SLOT);
    entry.status = mostly(in, EVT_C_USED);
    entry.evtype = ZRK4_EV_NORMAL;
    entry.key = KEY;
    Form::set_event_id(entry, EVENT_ID);
}

template <class Form> void put_event(input& in)
{
    typename Form::head head{};
    Form::mark(head);
    head.time = KEY;
    head.eventid = EVENT_ID;
    head.evtype = static_cast<ZRK4_EVTYPE>(mostly(in, ZRK4_EV_NORMAL));
    const int clients = in.one_of(small_host::CLIENTS + 1);
    const int blocks = in.one_of(4);
    head.nclients = mostly(in, clients);
    head.nsblocks = mostly(in, blocks);
    head.sbfilled = mostly(in, blocks);
    std::string bytes = bytes_of(head) + client_blocks(in, clients);
    for (int i = 0; i < blocks; ++i) bytes += bytes_of(entry_of(in));
    std::memcpy(here->ev_buf.load()->buffer_addr(EVENT_SLOT), bytes.data(), bytes.size());
    put_control<Form>(in);
}

template <class Form> void change_event(input& in)
{
    auto& head = *reinterpret_cast<typename Form::head*>(here->ev_buf.load()->buffer_addr(EVENT_SLOT));
    switch (in.one_of(5)) {
    case 0:
        head.nclients = in.number();
        break;
    case 1:
        head.sbfilled = in.number();
        break;
    case 2:
        head.nsblocks = in.number();
        break;
    case 3:
        head.time.timeup = static_cast<uint32_t>(in.number());
        break;
    default: {
        const event_slot<Form> slot(*here->ev_buf, EVENT_SLOT);
        if (slot.nclients() > 0) {
            slot.clients()[in.one_of(slot.nclients())].status = static_cast<BUF_MNG_CLI_STATUS>(in.one_of(6));
        }
    }
    }
}

// ---- the datagrams ------------------------------------------------------------------------------------------------------

template <class Form> typename Form::message message_of(input& in)
{
    typename Form::message message{};
    message.mtype = 1;
    message.evslot = mostly(in, EVENT_SLOT);
    message.clslot = mostly(in, 1);
    message.cln = mostly(in, 0);
    message.time = KEY;
    if constexpr (Form::wide) {
        message.event = EVENT_ID;
    } else {
        message.time.timelow = EVENT_ID;
    }
    return message;
}

template <class Form> ssize_t next_datagram(input& in, void* to, size_t room)
{
    uint8_t kind = in.byte();
    for (int n = 0; n < 4 && (kind & 0xC0) == 0xC0; ++n) {
        change_event<Form>(in);
        kind = in.byte();
    }
    auto message = message_of<Form>(in);
    if ((kind & 0x20) != 0) {
        for (size_t i = 0; i < sizeof message; ++i) reinterpret_cast<uint8_t*>(&message)[i] = in.byte();
    }
    expect(room == sizeof message, "the reader expects a datagram of its form");
    std::memcpy(to, &message, sizeof message);
    return (kind & 0x1F) == 0x1F ? in.one_of(40) : static_cast<ssize_t>(sizeof message);
}

// ---- what must hold at the end ------------------------------------------------------------------------------------------

void expect_idle(const C_shm_buffer& part)
{
    unsigned short values[4 + 1 + small_host::CLIENT_SLOTS] = {};
    semun argument{};
    argument.array = values;
    const int locks = has_buffer_locks(part) ? part.getBufferCount() : 0;
    expect(semctl(control_of(part).gbl_semid, 0, GETALL, argument) == 0, "a set of semaphores");
    expect(values[gbl_gate] == 1, "the gate is free");
    for (int i = 0; i < locks; ++i) expect(values[gbl_nsems + i] == 1, "no lock is held");
    int free = 0;
    for (int i = 0; i < part.getBufferCount(); ++i) free += is_handed_out(part, i) ? 0 : 1;
    expect(values[gbl_empty] == free, "as many buffers are counted as are free");
}

template <class Form> void read_all(input& in)
{
    C_shm_buffer& events = *here->ev_buf;
    here->evid64bitmode = Form::wide;
    here->smode = in.flag() ? BM_SYNCH_EVID : BM_SYNCH_TIME;
    bm_bad_format_events = 0;
    std::memset(events.buffer_addr(0), 0,
                static_cast<size_t>(events.getBufferCount()) * static_cast<size_t>(events.getBufferLength()));
    expect(events.buffer_id(events.get_buffer(BM_NO_WAIT, true)) == EVENT_SLOT, "the only slot is free");
    for (int n = 1; n <= small_host::CLIENT_SLOTS; ++n) put_client(in, n);
    put_event<Form>(in);
    here->in = &in;
    here->datagrams_left = DATAGRAMS;
    here->reader_go = true;
    here->reader_exec();
    for (const C_shm_buffer* part : here->parts()) expect_idle(*part);
    for (const kept_queue& queue : here->queues) queue.put_back();
}

} // namespace

// What a handler does with any event: looks for channels, and gives blocks back early.
void reader::event_handler(void* head, zrk4_client_sblock_data* first)
{
    const std::string wanted = in->name();
    std::string channel = wanted;
    const uint8_t kind = in->byte();
    if (evid64bitmode) {
        auto* slot = static_cast<zrk4_event_slot_head_2024*>(head);
        get_fast_channel_data_2024(slot, first, nullptr, channel.data(), this, nullptr, nullptr);
        check_bad_sb_data(slot, first, this);
    } else {
        get_fast_channel_data(static_cast<zrk4_event_slot_head*>(head), first, nullptr, channel.data(), this, nullptr);
    }
    if ((kind & 2) != 0) free_ev_slot(mostly(*in, EVENT_SLOT));
    if ((kind & 1) != 0) return_buffer_in_pool_ext(ZRK4_EV_NORMAL, mostly(*in, 0), data_id);
    if ((kind & 0x7C) == 0x7C) throw std::runtime_error("a handler may");
}

void prepare() { here = new reader; }

void run(input& in)
{
    constexpr int LEVELS[16] = {0, -2000, -3000}; // messages, and the duration of handlers; seldom, as they cost
    const uint8_t shape = in.byte();
    ZRK4_DAQ_BM_DEBUG = LEVELS[(shape >> 1) & 15];
    if ((shape & 1) != 0) {
        read_all<slots_2024>(in);
    } else {
        read_all<slots_2010>(in);
    }
}

} // namespace fuzz

// In place of the network: the next datagram of the input; at its end the reader is told to stop.
extern "C" ssize_t recv(int, void* to, size_t room, int)
{
    using namespace fuzz;
    if (here->in->empty() || here->datagrams_left-- == 0) {
        here->reader_go = false;
        return -1;
    }
    return here->evid64bitmode ? next_datagram<slots_2024>(*here->in, to, room)
                               : next_datagram<slots_2010>(*here->in, to, room);
}

extern "C" ssize_t sendto(int, const void*, size_t bytes, int, const sockaddr*, socklen_t)
{
    return static_cast<ssize_t>(bytes);
}
