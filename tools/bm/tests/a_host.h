/// @file
/// A host made by hand, as the commands that only look see it.
#ifndef ZRK4_TOOL_TEST_A_HOST_H
#define ZRK4_TOOL_TEST_A_HOST_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_bm.h"
#include "unit/event_host.h"

namespace bm::test {

using namespace zrk4::test;

inline time_stamp seconds_ago(int seconds)
{
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return {static_cast<uint32_t>(t.tv_sec - seconds), static_cast<uint32_t>(t.tv_nsec / 1000)};
}

/// Clients and events as their makers leave them.
class host_by_hand : public event_host {
  public:
    using event_host::event_host;

    /// An event that began, and changed last, so many seconds ago.
    int event(int expected, int age = 0)
    {
        const int n = used_slot();
        if (wide()) slot(n).put_first_word(0xFF77FF77FF77FF77);
        slot(n).put_time(&slot_layout::start, seconds_ago(age));
        slot(n).put_time(&slot_layout::lupdate, seconds_ago(age));
        slot(n).put(&slot_layout::nsblocks, expected);
        slot(n).put(&slot_layout::pid, getpid());
        slot(n).put_wide(&slot_layout::eventid, 7);
        return n;
    }
    int writer_slot(const std::vector<std::string>& names, pid_t pid = getpid())
    {
        return client({.cltype = CLI_T_WRITER, .names = names, .pid = pid, .atime = seconds_ago(0)});
    }
    int reader_slot(const std::vector<std::string>& names, pid_t pid = getpid(), int port = -1)
    {
        return client({.names = names, .pid = pid, .atime = seconds_ago(0), .port = port});
    }
};

class AHost : public BothGenerations, public host_by_hand {
  protected:
    explicit AHost(const host_size& size = {}) : host_by_hand(GetParam(), size) {}
};

} // namespace bm::test

#endif
