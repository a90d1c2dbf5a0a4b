/// @file
/// A host whose reports a test reads.
#ifndef ZRK4_TEST_BM_DUMP_H
#define ZRK4_TEST_BM_DUMP_H

#include <cstring>
#include <sstream>
#include <string>

#include "bm_host.h"

namespace zrk4::test {

inline constexpr int CLIENT_SLOTS = 3;
inline constexpr int EVENT_SLOTS = 3;

template <class T> void put(char* at, T value) { std::memcpy(at, &value, sizeof value); }

/// A host with three slots of each kind, all of them free.
class dump_case : public CleanNamespace {
  protected:
    dump_case()
    {
        clients.get_buffer(BM_NO_WAIT, true);
        events.get_buffer(BM_NO_WAIT, true);
        EXPECT_FALSE(quiet_init(bm)) << "false is success";
    }
    std::string client_report()
    {
        std::ostringstream os;
        bm.dump_cl_slots(os);
        return os.str();
    }
    std::string event_report()
    {
        std::ostringstream os;
        bm.dump_ev_slots(os);
        return os.str();
    }
    /// Everything behind the headings.
    std::string client_lines()
    {
        const std::string last = "Clients information\n-------------------\n";
        const std::string report = client_report();
        return report.substr(report.find(last) + last.size());
    }
    std::string event_lines()
    {
        const std::string last = "--------------------\n";
        const std::string report = event_report();
        return report.substr(report.find(last) + last.size());
    }
    char* client(int n)
    {
        clients.get_bufptr()[n].status = 0; // handed out
        return clients.buffer_addr(n);
    }

    C_shm_buffer clients{CLIENTS, CLIENT_SLOTS + 1, 48 + 256 * 3, true};
    C_shm_buffer events{EVENTS, EVENT_SLOTS + 1, 1200, true};
    seen_bm bm;
};

} // namespace zrk4::test

#endif
