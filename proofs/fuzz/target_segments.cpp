// Slot partitions with anything in them, through what the operator's command reads them with: copies of two sound ones,
// and then any of their words changed. Nothing but the command's own reader looks at them.
#include <algorithm>
#include <cstring>
#include <string>

#include <sys/shm.h>
#include <unistd.h>

#include "model/autopsy.h"
#include "slot_form.h"
#include "small_host.h"
#include "target.h"

namespace fuzz {
namespace {

using zrk4::impl::slots_2010;
using zrk4::impl::slots_2024;

template <class Record> void append(std::string& bytes, const Record& record)
{
    bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

/// A copy of a partition's segment, which only this process knows.
class copied_segment {
  public:
    explicit copied_segment(const C_shm_buffer& part) : buffers_(part.getBufferCount())
    {
        const char* const at = reinterpret_cast<const char*>(part.get_bufptr()) - sizeof(C_shm_global);
        const C_shm_buf& last = part.get_bufptr()[part.getBufferCount() - 1];
        image_.assign(at, static_cast<size_t>(last.boff) + static_cast<size_t>(part.getBufferLength()));
        image_.resize((image_.size() + 3) / 4 * 4);
        id_ = shmget(IPC_PRIVATE, image_.size(), IPC_CREAT | 0600);
        at_ = static_cast<char*>(shmat(id_, nullptr, 0));
        expect(at_ != reinterpret_cast<char*>(-1), "a segment can be had");
    }
    int id() const { return id_; }
    /// Where buffer `n` lies.
    size_t buffer(int n) const
    {
        C_shm_buf descriptor{};
        std::memcpy(&descriptor, image_.data() + sizeof(C_shm_global) + sizeof descriptor * static_cast<size_t>(n),
                    sizeof descriptor);
        return static_cast<size_t>(descriptor.boff);
    }
    void restore() { std::memcpy(at_, image_.data(), image_.size()); }
    void put(size_t offset, const std::string& bytes)
    {
        std::memcpy(at_ + offset, bytes.data(), std::min(bytes.size(), image_.size() - offset));
    }
    /// One word: in the control block, in the descriptors, in one of the buffers, or anywhere.
    void spoil(input& in)
    {
        const size_t words = image_.size() / 4;
        size_t at = in.byte() % (sizeof(C_shm_global) / 4);
        switch (in.byte() & 7) {
        case 0:
            break;
        case 1:
        case 2:
            at += sizeof(C_shm_global) / 4;
            break;
        case 3:
            at = in.take<uint16_t>();
            break;
        default:
            at += buffer(in.one_of(buffers_)) / 4;
        }
        const int32_t value = in.number();
        std::memcpy(at_ + at % words * 4, &value, sizeof value);
    }

  private:
    int buffers_;
    std::string image_;
    int id_ = -1;
    char* at_ = nullptr;
};

struct host {
    small_host bm;
    // Buffer 0 is handed out already: client slots 1 and 2, and the event slot.
    bool filled = bm.cl_buf.load()->get_buffer(BM_NO_WAIT, true) != nullptr &&
                  bm.cl_buf.load()->get_buffer(BM_NO_WAIT, true) != nullptr &&
                  bm.ev_buf.load()->get_buffer(BM_NO_WAIT, true) != nullptr;
    copied_segment clients{*bm.cl_buf.load()}, events{*bm.ev_buf.load()};
    // Once: what is in a segment does not matter to the kernel.
    bm::read_only_segment clients_mapped{clients.id()}, events_mapped{events.id()};
};
host* here = nullptr;

template <class Record> std::string client_bytes(input& in, BUF_MNG_CLI_TYPE type)
{
    zrk4_client_slot_head head{};
    head.pid = in.flag() ? getpid() : in.number();
    head.evtype = ZRK4_EV_NORMAL;
    head.cltype = type;
    Record record{};
    record.nsblocks = in.flag() ? 2 : in.number();
    std::string bytes;
    append(bytes, head);
    append(bytes, record);
    char name[CLI_NAME_SIZE];
    for (int n = 0; n < 2; ++n) {
        in.name(name);
        bytes.append(name, sizeof name);
    }
    return bytes;
}

template <class Form> void put_event(input& in)
{
    typename Form::entry entry{};
    entry.key = {1000, 500};
    entry.status = in.flag() ? EVT_C_USED : in.number();
    std::string table;
    append(table, entry);
    here->events.put(here->events.buffer(0), table);

    typename Form::head head{};
    Form::mark(head);
    head.time = entry.key;
    head.evtype = ZRK4_EV_NORMAL;
    head.start = {static_cast<uint32_t>(in.number()), 0};
    head.nsblocks = in.flag() ? 3 : in.number();
    head.nclients = in.flag() ? 2 : in.number();
    head.sbfilled = in.flag() ? 1 : in.number();
    std::string bytes;
    append(bytes, head);
    for (const int client : {1, in.flag() ? 2 : +in.number()}) {
        zrk4_client_block block{};
        block.snum = client;
        block.status = static_cast<BUF_MNG_CLI_STATUS>(in.number());
        append(bytes, block);
    }
    zrk4_client_sblock_data block{};
    in.name(block.name);
    block.shmid = in.number();
    block.bnum = in.number();
    append(bytes, block);
    here->events.put(here->events.buffer(1), bytes);
}

bm::partition seen_of(const copied_segment& segment, const bm::read_only_segment& mapped)
{
    bm::segment where;
    where.id = segment.id();
    return look_at(where, mapped);
}

void expect_inside(const bm::client_slots& clients, const bm::partition& part)
{
    expect(clients.all().size() <= static_cast<size_t>(part.buffers()), "no more clients than slots");
    for (const bm::client& one : clients.all()) {
        expect(clients.at(one.slot) == &one, "a client is found by its slot");
        expect(one.names.size() * CLI_NAME_SIZE < static_cast<size_t>(part.length()), "names lie in their slot");
        for (const std::string& name : one.names) expect(name.size() <= CLI_NAME_SIZE, "a name has 256 characters");
    }
}

void expect_inside(const bm::event_slots& events, const bm::partition& part)
{
    for (const bm::event& one : events.all()) {
        const size_t bytes =
            one.clients.size() * sizeof(zrk4_client_block) + one.entries.size() * sizeof(zrk4_client_sblock_data);
        expect(bytes <= static_cast<size_t>(part.length()), "clients and entries lie in their slot");
    }
}

/// All that the commands make of it; the outcome is text.
size_t told(const bm::exchange& seen)
{
    bm::processes known(0);
    size_t length = 0;
    for (const bm::event& one : seen.events.all()) {
        length += flaw_of(one).size();
        const std::vector<bm::debt> debts = debts_of(one, seen.clients);
        expect(unaccounted(one, debts) >= 0, "a number of blocks");
        for (const std::string& sentence : autopsy_of(one, seen, known, bm::udp_sockets{}).sentences)
            length += sentence.size();
    }
    return length;
}

void look()
{
    const bm::read_only_segment &clients_mapped = here->clients_mapped, &events_mapped = here->events_mapped;
    bm::exchange seen;
    seen.now = 1;
    seen.clients_part = seen_of(here->clients, clients_mapped);
    seen.events_part = seen_of(here->events, events_mapped);
    if (seen.clients_part.state == bm::partition_state::sound) {
        seen.clients = bm::client_slots(seen.clients_part, clients_mapped);
        expect_inside(seen.clients, seen.clients_part);
    }
    if (seen.events_part.state != bm::partition_state::sound) return;
    for (const bm::depth how : {bm::depth::heads, bm::depth::rows, bm::depth::whole}) {
        seen.events = bm::event_slots(seen.events_part, events_mapped, {}, how);
        expect_inside(seen.events, seen.events_part);
    }
    volatile size_t length = told(seen);
    (void)length;
}

} // namespace

void prepare()
{
    here = new host;
    expect(here->filled, "slots can be had");
    here->clients.restore();
    here->events.restore();
    look();
}

void run(input& in)
{
    here->clients.restore();
    here->events.restore();
    here->clients.put(here->clients.buffer(1), client_bytes<zrk4_client_writer>(in, CLI_T_WRITER));
    here->clients.put(here->clients.buffer(2), client_bytes<zrk4_client_reader>(in, CLI_T_READER));
    in.flag() ? put_event<slots_2024>(in) : put_event<slots_2010>(in);
    for (int n = in.one_of(8); n > 0; --n) (in.flag() ? here->clients : here->events).spoil(in);
    look();
}

} // namespace fuzz
