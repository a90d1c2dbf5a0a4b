/// @file
/// A host that a test breaks and has checked.
#ifndef ZRK4_TEST_CHECK_HOST_H
#define ZRK4_TEST_CHECK_HOST_H

#include <ctime>
#include <string>

#include "check_findings.h"
#include "event_host.h"

namespace zrk4::test {

inline constexpr char CLIENTS[] = "ZRK4_CLIENT_SLOTS";
inline constexpr char EVENTS[] = "ZRK4_EVENT_SLOTS";

inline time_stamp now()
{
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return {static_cast<uint32_t>(t.tv_sec), static_cast<uint32_t>(t.tv_nsec / 1000)};
}

/// A host of live clients, looked at with a short observation.
class CheckHost : public EventHost {
  protected:
    explicit CheckHost(const host_size& size = {}) : EventHost(size) {}

    bm_check_request request(bool repair = false) const
    {
        bm_check_request wanted = quick(repair);
        wanted.records_2024 = wide();
        return wanted;
    }
    lines found(bool repair = false) const { return lines_of(bm_check(request(repair))); }
    /// A repair lists the buffer as held by this process, where that is asked for, and leaves it alone.
    void expect_held_here(int buffer)
    {
        bm_check_request asked = request(true);
        asked.list_held = true;
        const std::string text = ": buffer " + std::to_string(buffer) + " is held by process " +
                                 std::to_string(getpid()) + ", and was in no event for the whole observation";
        EXPECT_EQ(lines_of(bm_check(asked)), lines{"4 undecidable " + at("T_DATA", buffer, getpid()) + text});
        EXPECT_FALSE(block_is_free(buffer));
    }
    /// Told, mended, and then nothing left to tell.
    void expect_mended(const lines& broken) const
    {
        EXPECT_EQ(found(), broken);
        lines repaired = broken;
        for (std::string& line : repaired) line.replace(line.find("broken"), 6, "repaired");
        EXPECT_EQ(found(true), repaired);
        EXPECT_EQ(found(), lines{});
    }
    static std::string at(const char* part, int number, pid_t pid)
    {
        return std::string(part) + "[" + std::to_string(number) + "] pid " + std::to_string(pid);
    }
    /// A client written by hand and counted, as one that has just subscribed.
    int counted_client(client_spec c)
    {
        c.atime = now();
        const int slot = client(c);
        const bool reads = c.cltype == CLI_T_READER;
        add_to_counter(4, 1);
        add_to_counter(reads ? 8 : 12, 1);
        add_to_counter((reads ? 16 : 144) + 4 * c.evtype, 1);
        return slot;
    }
    int counter(int offset) const { return load<int32_t>(clients_part.buffer_addr(0) + offset); }
    void add_to_counter(int offset, int by) const
    {
        store<int32_t>(clients_part.buffer_addr(0) + offset, counter(offset) + by);
    }
    void own(C_shm_buffer& part, int i, pid_t pid) { part.get_bufptr()[i].owner_pid = pid; }
    C_shm_buffer& data() { return *bm.find_by_id(data_id); }
    int free_in(C_shm_buffer& part) const { return std::stoi(part.getStat("freebuf")); }
};

} // namespace zrk4::test

#endif
