// Standard output is a full pipe that nobody reads: who wants to speak stands still, and holds no lock meanwhile.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "../unit/datagram.h"
#include "../unit/event_host.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

/// A pipe with no room left.
class full_pipe {
  public:
    full_pipe()
    {
        if (pipe(ends_) != 0) throw std::runtime_error("no pipe");
        fcntl(ends_[1], F_SETFL, O_NONBLOCK);
        const std::string page(4096, 'x');
        while (write(ends_[1], page.data(), page.size()) > 0) {}
        while (write(ends_[1], "x", 1) > 0) {}
        fcntl(ends_[1], F_SETFL, 0);
    }
    ~full_pipe()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    full_pipe(const full_pipe&) = delete;
    full_pipe& operator=(const full_pipe&) = delete;
    void be_standard_output() const { dup2(ends_[1], 1); }
    /// Reads what is in it, until `end` comes.
    std::string read_until(const std::string& end) const
    {
        std::string text;
        char some[4096];
        while (text.find(end) == std::string::npos) {
            const ssize_t n = read(ends_[0], some, sizeof some);
            if (n <= 0) break;
            text.append(some, static_cast<size_t>(n));
        }
        return text.substr(text.find_first_not_of('x'));
    }

  private:
    int ends_[2]{};
};

/// Whether a thread of the process stands in a write to its standard output.
bool stands_in_write(pid_t pid)
{
    std::error_code gone;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        std::ifstream call(task.path() / "syscall");
        std::string number, descriptor;
        if (call >> number >> descriptor && number == "1" && descriptor == "0x1") return true;
    }
    return false;
}

/// The speaker is a child whose standard output is such a pipe.
class FullPipe : public EventHost {
  protected:
    /// Lets a child do something that has a text, and looks at the locks while it cannot speak.
    void expect_no_lock_while(const std::function<void()>& speaks, const std::string& text)
    {
        child speaker([&] {
            full.be_standard_output();
            speaks();
        });
        ASSERT_TRUE(eventually([&] { return stands_in_write(speaker.pid()); }));
        EXPECT_EQ(locks_held(), "");
        for (int n = 0; n < events_part.getBufferCount(); ++n) take_and_give(events_part, n);
        for (int n = 0; n < clients_part.getBufferCount(); ++n) take_and_give(clients_part, n);
        EXPECT_TRUE(stands_in_write(speaker.pid())) << "still";
        const std::string said_in_the_end = full.read_until(text);
        EXPECT_NE(said_in_the_end.find(text), std::string::npos) << said_in_the_end;
        speaker.kill_now();
    }
    static void take_and_give(const C_shm_buffer& part, int n)
    {
        ASSERT_TRUE(part.ctrl(n, true));
        ASSERT_TRUE(part.ctrl(n, false));
    }
    full_pipe full;
};
IN_BOTH_GENERATIONS(FullPipe);

TEST_P(FullPipe, RefusedBlock)
{
    writer({"A"});
    ASSERT_GT(writer({"B"}), 0);
    ASSERT_FALSE(bm.ev_update(TYPE, data_id, put({.server = "A"})));
    const int twin = put({.server = "A"});
    expect_no_lock_while([&] { bm.ev_update(TYPE, data_id, twin); },
                         "ev_update(): BM FREED (NEW) id: " + std::to_string(data_id) + " bnum: 1\n");
}

TEST_P(FullPipe, EventThatCannotBeFreedWhole)
{
    const int n = used_slot();
    slot(n).add_entry("A", data_id, 5); // free already
    expect_no_lock_while([&] { bm.free_ev_slot(n); }, "free_ev_slot(): failed to free id: ");
}

TEST_P(FullPipe, LookAtClientsThatAreNotThere)
{
    const int n = used_slot();
    slot(n).add_client(1000, WAIT);
    slot(n).add_client(1001, WAIT);
    slot(n).put(&slot_layout::nsblocks, 4);
    expect_no_lock_while([&] { bm.cl_notify(n); }, "UUuups filled != total 0 != 4 ");
}

TEST_P(FullPipe, EarlyReturnOfTheLastBlock)
{
    const int n = used_slot();
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    ASSERT_FALSE(events_part.return_buffer(n));
    expect_no_lock_while([&] { bm.return_buffer_in_pool_ext(TYPE, 0, data_id); },
                         "return_buffer_in_pool_ext(): failed to free event slot: 1 \n");
}

/// The speaker is a reader, and another child sends it a datagram.
class FullPipeOfAReader : public FullPipe {
  protected:
    void expect_no_lock_while_it_answers(const datagram& d, const std::string& text)
    {
        const shared<std::atomic<int>> port;
        child sender([&] {
            EXPECT_TRUE(eventually([&] { return *port > 0; }));
            send_to(*port, datagram_bytes(d, form));
        });
        expect_no_lock_while(
            [&] {
                zrk4_client all{};
                EXPECT_EQ(bm.subscribe(TYPE, CLI_T_READER, &all, nullptr), reader);
                *port = bm.port.load();
                pause();
            },
            text);
        EXPECT_EQ(sender.wait(), 0);
    }
    const int reader = 1; // the slot that a first subscription gets
};
IN_BOTH_GENERATIONS(FullPipeOfAReader);

TEST_P(FullPipeOfAReader, OldDatagram)
{
    const int n = used_slot();
    slot(n).add_client(reader, NTF);
    expect_no_lock_while_it_answers({1, n, reader, 0, 77, 0, 7}, "stamp invalid (old event): ");
}

// Under the slot's lock its block becomes DONE, and there is a text.
TEST_P(FullPipeOfAReader, DatagramThatComesASecondTime)
{
    const int n = used_slot();
    slot(n).add_client(reader, PROC);
    slot(n).put_wide(&slot_layout::eventid, 7);
    expect_no_lock_while_it_answers({1, n, reader, 0, 1000, 500, 7}, "wrong client status: 4  must be: 2 ");
}

TEST_P(FullPipe, MonitorThatFreesAnEvent)
{
    const int n = used_slot();
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    expect_no_lock_while(
        [&] {
            bm.set_monitoring_period(1000);
            bm.start_monitor();
            pause();
        },
        "MONITOR Suspicious event slot: 1 freed ");
    EXPECT_TRUE(slot_is_free(n));
}

} // namespace
