/// @file
/// An event in slot 1 whose clients are written by hand and listen in one place.
#ifndef ZRK4_TEST_EVENT_CLIENTS_H
#define ZRK4_TEST_EVENT_CLIENTS_H

#include "event_host.h"
#include "udp_inbox.h"

namespace zrk4::test {

/// Expects three blocks.
class EventClients : public EventHost {
  protected:
    EventClients()
    {
        used_slot();
        slot(1).put(&slot_layout::nsblocks, 3);
    }
    /// A client of the event.
    int add(const client_spec& c, int status = WAIT)
    {
        client_spec with_port = c;
        if (c.port == -1) with_port.port = inbox.port();
        const int n = client(with_port);
        slot(1).add_client(n, status);
        return n;
    }
    int add_writer(const std::vector<std::string>& names, int status = WAIT)
    {
        return add({.cltype = CLI_T_WRITER, .names = names}, status);
    }
    int add_reader(const std::vector<std::string>& names, int status = WAIT) { return add({.names = names}, status); }
    void collect(const std::string& name) { slot(1).add_entry(name, data_id, put({.server = name})); }
    int status_of(int i) const { return slot(1).client_status(i); }
    int datagrams()
    {
        int count = 0;
        for (; !inbox.empty(); ++count) inbox.next();
        return count;
    }
    std::string said_notifying(int expected)
    {
        return said([&] { EXPECT_EQ(bm.cl_notify(1), expected); });
    }

    udp_inbox inbox;
};

} // namespace zrk4::test

#endif
