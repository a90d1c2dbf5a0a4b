// Any bytes that any local process sends to a reader's port: its thread runs on, and memory stays as it is.
#include <atomic>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../unit/datagram.h"
#include "../unit/event_host.h"
#include "child.h"
#include "eventually.h"
#include "latch.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr time_stamp SIGN_OF_LIFE{1000, 500};
constexpr int BATCH = 100; // what the smallest socket holds

/// The reader is a process of its own. This one is the attacker, and now and then sends it an event to see it alive.
class HostileDatagrams : public EventHost {
  protected:
    ~HostileDatagrams() override
    {
        leave.open();
        EXPECT_EQ(reader.wait(), 0);
    }

    void read()
    {
        made.wait();
        BM its;
        join(its);
        static std::atomic<int>* count;
        static int time_at;
        count = &*calls;
        time_at = layout_of(form).time;
        its.set_ev_handler([](void* head, zrk4_client_sblock_data*) {
            if (load<time_stamp>(static_cast<char*>(head) + time_at) == SIGN_OF_LIFE) ++*count;
        });
        zrk4_client all{};
        *slot_of_reader = its.subscribe(TYPE, CLI_T_READER, &all, nullptr);
        ready.open();
        leave.wait();
        EXPECT_GT(rejected(), 20);
    }
    void begin()
    {
        made.open();
        ready.wait();
        ASSERT_GT(*slot_of_reader, 0);
        port = load<int32_t>(client_at(*slot_of_reader) + 40);
    }
    void send(const std::string& bytes) const { send_to(port, bytes); }
    void send(int evslot, int clslot, int cln, time_stamp time, int64_t event) const
    {
        send(datagram_bytes({1, evslot, clslot, cln, time.timeup, time.timelow, event}, form));
    }
    // What was sent before it is dealt with when its handler was called.
    void expect_alive()
    {
        const int n = used_slot(SIGN_OF_LIFE, 7);
        slot(n).put_wide(&slot_layout::eventid, 7);
        slot(n).add_client(*slot_of_reader, NTF);
        send(n, *slot_of_reader, 0, SIGN_OF_LIFE, 7);
        ++events_;
        ASSERT_TRUE(eventually([&] { return *calls == events_ && slot_is_free(n); })) << events_;
        store<int32_t>(client_at(*slot_of_reader) + 12, 0); // what an event moves: the client's count and its time
        store(client_at(*slot_of_reader) + 4, time_stamp{});
    }
    /// All buffers of the two slot partitions.
    std::string memory() const
    {
        std::string all;
        for (const C_shm_buffer* part : {&clients_part, &events_part}) {
            const auto length = static_cast<size_t>(part->getBufferLength());
            for (int i = 0; i < part->getBufferCount(); ++i) all.append(part->buffer_addr(i), length);
        }
        return all;
    }
    int lines_of_reader()
    {
        static const std::string mark = "reader_thread: ";
        const std::string text = captured.out();
        int lines = 0;
        for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) ++lines;
        return lines;
    }

    latch made, ready, leave;
    const shared<int> slot_of_reader;
    const shared<std::atomic<int>> calls;
    int port = -1;
    captured_output captured;
    child reader{[this] { read(); }};
    std::mt19937 random{12345};

  private:
    int events_ = 0;
};
IN_BOTH_GENERATIONS(HostileDatagrams);

TEST_P(HostileDatagrams, RandomBytesOfRandomLengths)
{
    begin();
    for (int i = 0; i < 9; ++i) expect_alive(); // every slot has been used
    const std::string before = memory();
    for (int batch = 0; batch < 500; ++batch) {
        for (int i = 0; i < BATCH; ++i) {
            std::string bytes(random() % 4 == 0 ? random() % 80 : (wide() ? 40 : 32), '\0');
            for (char& byte : bytes) byte = static_cast<char>(random());
            send(bytes);
        }
        expect_alive();
    }
    EXPECT_TRUE(memory() == before) << "nothing but the events in between was written";
    EXPECT_LE(lines_of_reader(), 2 * 20) << "of the first 20, and two lines at the most for each";
    EXPECT_EQ(locks_held(), "");
}

// Numbers of slots, blocks and clients that are there, and of their neighbours.
TEST_P(HostileDatagrams, LikelyNumbersInEveryCombination)
{
    begin();
    const int other = client({.names = {"A"}});
    const int stranger = client({.evtype = 9});
    const int kept = used_slot({2000, 0}, 9);
    slot(kept).put_wide(&slot_layout::eventid, 9);
    slot(kept).add_client(*slot_of_reader, NTF);
    slot(kept).add_client(other, NTF);
    slot(kept).add_entry("A", data_id, put({}));
    for (int i = 0; i < 8; ++i) expect_alive();
    const std::string before = memory();
    const auto one_of = [&](const std::vector<int>& values) { return values[random() % values.size()]; };
    const std::vector<int> slots{0, 1, 2, kept, 9, 10, -1, INT_MAX, INT_MIN};
    const std::vector<int> clients{0, *slot_of_reader, other, stranger, 24, 25, -1, INT_MAX, INT_MIN};
    const std::vector<int> indexes{0, 1, 2, 3, 1000, -1, INT_MAX, INT_MIN};
    for (int batch = 0; batch < 100; ++batch) {
        for (int i = 0; i < BATCH; ++i) {
            // One of the two marks is wrong, for every event that is there.
            const bool old = random() % 2 == 0;
            send(one_of(slots), one_of(clients), one_of(indexes), {old ? 1999U : 2000U, 0},
                 old ? 9 : one_of({0, 8, -9, INT_MAX}));
        }
        expect_alive();
    }
    EXPECT_TRUE(memory() == before);
    EXPECT_LE(lines_of_reader(), 2 * 20);
    EXPECT_FALSE(bm.free_ev_slot(kept)) << "whole to its end";
    EXPECT_EQ(locks_held(), "");
}

// Whoever can send can also have written into a slot: then the datagram is right, and the slot is not.
TEST_P(HostileDatagrams, SlotsThatHoldNonsense)
{
    begin();
    send("short");
    for (int round = 0; round < 60; ++round) {
        const int n = used_slot();
        slot_bytes nonsense = slot(n);
        for (int i = 0; i < nonsense.length(); ++i) nonsense.byte(i) = static_cast<char>(random());
        nonsense.put(&slot_layout::evtype, TYPE);
        nonsense.put(&slot_layout::nclients, round % 20 == 0 ? INT_MAX : static_cast<int>(random() % 9));
        nonsense.put(&slot_layout::sbfilled, round % 20 == 1 ? INT_MAX : static_cast<int>(random() % 9) - 1);
        control(n).put_status(round % 3);
        const time_stamp key = nonsense.time(&slot_layout::time);
        for (const int cln : {0, 1, 8, 2000, INT_MAX, INT_MIN}) {
            send(n, *slot_of_reader, cln, key, nonsense.eventid());
            expect_alive();
        }
        for (int i = 0; i < 30; ++i) send("short");
        nonsense.put(&slot_layout::sbfilled, 0);
        if (slot_is_free(n)) continue;
        control(n).put_status(EVT_C_USED);
        ASSERT_FALSE(bm.free_ev_slot(n));
    }
    EXPECT_EQ(locks_held(), "");
    EXPECT_EQ(events_part.getStat("freebuf"), "9");
}

} // namespace
