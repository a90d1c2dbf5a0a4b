// A look at the clients of an event: readers whose blocks are complete are told, and a finished event ends.
#include "BM.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "block_form.h"
#include "bm_core.h"
#include "client_slot.h"
#include "pool_block.h"
#include "text_later.h"

using namespace zrk4::impl;

int BM::cl_notify(int bnum)
{
    const text_later texts;
    return bm_core::in_form(*this, [&](auto form) {
        using Form = decltype(form);
        if (!is_slot(ev_buf, bnum) || !event_slot<Form>(*ev_buf, bnum)) {
            say("cl_notify(): Failed to find event slot: %d", bnum);
            return 0;
        }
        slot_lock lock(*ev_buf, bnum);
        event_slot<Form> slot(*ev_buf, bnum);
        const look_result look = bm_core::look_at_clients<Form>(*this, bnum, slot, lock);
        lock.unlock();
        return bm_core::end_look<Form>(*this, bnum, look);
    });
}

bool BM::notification(int evslot, int clslot, int cln)
{
    const text_later texts;
    if (clslot < 1 || evslot < 0 || cln < 0) {
        say("Invalid parameter %d %d %d", clslot, evslot, cln);
        return true;
    }
    if (!is_client_slot(cl_buf, clslot)) {
        say("Something wrong: header == NULL");
        return true;
    }
    const client_slot client(*cl_buf, clslot);
    const zrk4_client_slot_head owner = client.head_now();
    if (owner.cltype != CLI_T_READER) {
        say("Something wrong: %u  %d != %d", static_cast<unsigned>(owner.pid), owner.cltype, CLI_T_READER);
        return true;
    }
    return bm_core::in_form(*this, [&](auto form) {
        using Form = decltype(form);
        const event_slot<Form> slot(*ev_buf, evslot);
        if (!slot) return true;
        if (cln >= slot.nclients()) return false; // a client that takes no part waits for nothing
        return bm_core::notify<Form>(*this, slot, client, {evslot, clslot, cln});
    });
}

/// One walk over the client blocks of a slot. Nobody who cannot be served is waited for: such a client is forced to be
/// done, so that it cannot hold the event.
template <class Form> class bm_core::client_look {
  public:
    client_look(BM& bm, int number, const event_slot<Form>& slot)
        : bm_(bm), number_(number), slot_(slot), evtype_(slot.head().evtype)
    {
    }

    look_result run()
    {
        for (int i = 0; i < slot_.nclients(); ++i) look_at(i);
        // Readers of every block come last: they wait for the writers, not for names.
        if (writers_done_ == writers_ && readers_of_all_ > 0) {
            for (int i = 0; i < slot_.nclients(); ++i) tell_reader_of_all(i);
        }
        return {notified_, done_ == slot_.nclients() && notified_ == 0, {}};
    }

  private:
    void look_at(int i)
    {
        zrk4_client_block& block = slot_.clients()[i];
        const int snum = block.snum;
        if (!is_client_slot(bm_.cl_buf, snum)) {
            say("Failed to find a client slot forcing DONE slot: %d client: %d clients: %d  bunm: %d", snum, i,
                slot_.nclients(), number_);
            force_done(block);
            return;
        }
        // Whoever is done stays so, reader or writer, and its slot need not be touched: with many readers each of them
        // comes by here.
        if (block.status == CLI_S_DONE) {
            ++done_;
            return;
        }
        const client_slot client(*bm_.cl_buf, snum);
        const int cltype = word_unlocked(&client.head().cltype);
        if (cltype == CLI_T_WRITER) {
            look_at_writer(block, client);
        } else if (block.status != CLI_S_WAIT) {
            return;
        } else if (const int evtype = word_unlocked(&client.head().evtype); evtype != evtype_) {
            say("Wrong event type for reading forcing DONE  expected:%d, seen:%d", evtype, evtype_);
            force_done(block);
        } else if (cltype == CLI_T_READER) {
            look_at_reader(i, block, snum, client);
        } else {
            say("Wrong client type for reading forcing DONE");
            force_done(block);
        }
    }

    void look_at_writer(zrk4_client_block& block, const client_slot& client)
    {
        ++writers_;
        if (!has_all_named<Form>(slot_, client)) return;
        client.count_event();
        force_done(block);
        ++writers_done_;
    }

    void look_at_reader(int i, zrk4_client_block& block, int snum, const client_slot& client)
    {
        const int wanted = word_unlocked(&client.reader().nsblocks);
        if (wanted > slot_.head().sbfilled) return;
        if (wanted == 0) {
            ++readers_of_all_;
            return;
        }
        if (!has_all_named<Form>(slot_, client)) return;
        if (!notify<Form>(bm_, slot_, client, {number_, snum, i})) {
            ++notified_;
            return;
        }
        say("notification failed -> forcing client DONE");
        force_done(block);
    }

    // Blocks that are forced here do not count as done: the slot then waits for another look, or for the monitor.
    void tell_reader_of_all(int i)
    {
        zrk4_client_block& block = slot_.clients()[i];
        const int snum = block.snum;
        if (!is_client_slot(bm_.cl_buf, snum)) {
            say("(ALL) Failed to find a client slot forcing DONE");
            block.status = CLI_S_DONE;
            return;
        }
        const client_slot client(*bm_.cl_buf, snum);
        if (block.status != CLI_S_WAIT || client.head_now().cltype != CLI_T_READER ||
            word_unlocked(&client.reader().nsblocks) != 0)
            return;
        if (!notify<Form>(bm_, slot_, client, {number_, snum, i})) {
            ++notified_;
            return;
        }
        say("notification(all) failed -> forcing client DONE");
        block.status = CLI_S_DONE;
    }

    void force_done(zrk4_client_block& block)
    {
        block.status = CLI_S_DONE;
        ++done_;
    }

    BM& bm_;
    int number_;
    const event_slot<Form>& slot_;
    int evtype_;
    int done_ = 0;
    int notified_ = 0;
    int writers_ = 0;
    int writers_done_ = 0;
    int readers_of_all_ = 0;
};

template <class Form>
look_result bm_core::look_at_clients(BM& bm, int slot_number, event_slot<Form>& slot, const slot_lock& /*held*/)
{
    // Which event it is, before how many take part: the one that follows it in this slot shows its process id last, so
    // a look that falls into its making is told from a look at it.
    const slot_identity event = slot.identity();
    slot.refresh();
    look_result look = client_look<Form>(bm, slot_number, slot).run();
    look.event = event;
    if (look.all_done) say_if_incomplete<Form>(bm, slot);
    return look;
}

template <class Form> int bm_core::end_look(BM& bm, int slot_number, const look_result& look)
{
    if (!look.all_done) return look.notified;
    if (free_slot<Form>(bm, slot_number, &look.event)) say("cl_notify(): free_ev_slot() failed");
    return 0;
}

namespace {

void say_block_head(const char* at)
{
    const block_view head = view_block(at);
    const int seconds = static_cast<int>(head.time.timeup);
    const int microseconds = static_cast<int>(head.time.timelow);
    const auto mask = static_cast<unsigned>(head.tmask);
    if (is_2024(at)) {
        say("Pattern: 0x%lX, Time: %d sec %d usec\n\t Total size: %ld\n\t Mpulse:%ld\n\t Server: %.255s\n\t "
            "tmask:0x%X\n"
            "\t Status: %d\n\t Nchan: %d",
            static_cast<unsigned long>(SB_PATTERN_2024), seconds, microseconds, static_cast<long>(head.ltotal),
            static_cast<long>(head.mpulse), head.server, mask, head.status, head.nchan);
    } else {
        say("Time: %d sec %d usec\n\t Total size: %d\n\t Mpulse:%d\n\t Server: %.255s\n\t tmask:0x%X\n\t Status: %d\n"
            "\t Nchan: %d",
            seconds, microseconds, static_cast<int>(head.ltotal), static_cast<int>(head.mpulse), head.server, mask,
            head.status, head.nchan);
    }
}

} // namespace

template <class Form> void bm_core::say_if_incomplete(BM& bm, const event_slot<Form>& slot)
{
    const typename Form::head& head = slot.head();
    if (head.sbfilled == head.nsblocks) return;
    say("------------------------UUuups filled != total %d != %d Ev type: %d ts: %d:%d", head.sbfilled, head.nsblocks,
        head.evtype, static_cast<int>(head.time.timeup), static_cast<int>(head.time.timelow));
    for (int i = 0; i < slot.filled(); ++i) {
        const zrk4_client_sblock_data& entry = slot.entries()[i];
        if (is_hole(entry)) {
            say("------------------------UUuups BAD SHMID: %d or BNUM:%d", entry.shmid, entry.bnum);
        } else if (const char* at = block_in_pool(bm, entry.bnum, entry.shmid).at) {
            say_block_head(at);
        }
    }
    flush_stdout_later();
}

template <class Form>
bool bm_core::notify(BM& bm, const event_slot<Form>& slot, const client_slot& reader, const place& of)
{
    zrk4_client_block& block = slot.clients()[of.cln];
    if (block.status != CLI_S_WAIT) return false;
    typename Form::message message{}; // padding goes out as zeros
    message.mtype = word_unlocked(&reader.head().pid);
    message.evslot = of.evslot;
    message.clslot = of.clslot;
    message.cln = of.cln;
    Form::stamp(message, slot.head());
    block.status = CLI_S_NTF;
    return send_message<Form>(bm, message, static_cast<uint16_t>(word_unlocked(&reader.reader().qid)));
}

template <class Form> bool bm_core::send_message(BM& bm, const typename Form::message& message, uint16_t port)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    if (!localhost_address(to.sin_addr.s_addr)) return true;
    const int socket = sending_socket(bm);
    if (socket < 0) {
        say_perror("socket");
        say_plain(Form::wide ? "Failed to create socket (2024)\n" : "Failed to create socket\n");
        return true;
    }
    const auto* const address = reinterpret_cast<const sockaddr*>(&to);
    if (direct::sendto(socket, &message, sizeof message, 0, address, sizeof to) < 0) {
        say_perror("sendto");
        say_plain(Form::wide ? "sendto(2024) failed\n" : "sendto() failed\n");
        return true;
    }
    return false;
}

// The reader's own socket where there is one; else one is made, once: of two threads that come first together one keeps
// the other's.
int bm_core::sending_socket(BM& bm)
{
    int socket_now = bm.qid;
    if (socket_now >= 0) return socket_now;
    const int made = socket(AF_INET, SOCK_DGRAM, 0);
    if (made < 0) return -1;
    if (bm.qid.compare_exchange_strong(socket_now, made)) return made;
    close(made);
    return socket_now;
}

template look_result bm_core::look_at_clients(BM&, int, event_slot<slots_2010>&, const slot_lock&);
template look_result bm_core::look_at_clients(BM&, int, event_slot<slots_2024>&, const slot_lock&);
template int bm_core::end_look<slots_2010>(BM&, int, const look_result&);
template int bm_core::end_look<slots_2024>(BM&, int, const look_result&);
