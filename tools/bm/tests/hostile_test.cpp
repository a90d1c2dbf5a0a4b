// Partitions full of anything: a clear line, never a crash.
#include <array>
#include <atomic>
#include <csignal>
#include <random>

#include <sys/shm.h>
#include <unistd.h>

#include "C_shm_kill.h"
#include "a_host.h"
#include "eventually.h"
#include "model/autopsy.h"

namespace bm::test {
namespace {

class Hostile : public AHost {
  protected:
    Hostile()
    {
        const int w = writer_slot({"A", "B"});
        const int r = reader_slot({"A"});
        for (int i = 0; i < 3; ++i) {
            const int n = event(2);
            slot(n).add_client(w, WAIT);
            slot(n).add_client(r, NTF);
            slot(n).add_entry("A", data_id, put({.server = "A"}));
        }
    }
};
IN_BOTH_GENERATIONS(Hostile);

/// A segment with a copy of another one's bytes, to be spoiled.
class spoiled_segment {
  public:
    explicit spoiled_segment(int original)
    {
        const live_segment source(original);
        image_ = source.bytes(0, source.size());
        id_ = shmget(IPC_PRIVATE, image_.size(), IPC_CREAT | 0600);
        at_ = static_cast<char*>(shmat(id_, nullptr, 0));
        shmctl(id_, IPC_RMID, nullptr); // goes with us
        restore();
    }
    ~spoiled_segment() { shmdt(at_); }
    spoiled_segment(const spoiled_segment&) = delete;
    spoiled_segment& operator=(const spoiled_segment&) = delete;

    void restore() { std::memcpy(at_, image_.data(), image_.size()); }
    /// Changes some words; mostly near the front, where the counts are.
    void spoil(std::mt19937& random)
    {
        constexpr std::array<int32_t, 8> TELLING{-1,      0,  1, 2, 0x7fffffff, static_cast<int32_t>(0x80000000),
                                                 1 << 20, 300};
        const size_t words = image_.size() / 4;
        for (unsigned n = random() % 8 + 1; n > 0; --n) {
            const size_t reach = random() % 2 == 0   ? std::min<size_t>(words, 75)
                                 : random() % 4 == 0 ? words
                                                     : std::min<size_t>(words, 700);
            const size_t at = random() % reach * 4;
            const auto value = random() % 2 == 0 ? TELLING[random() % TELLING.size()] : static_cast<int32_t>(random());
            std::memcpy(at_ + at, &value, sizeof value);
        }
    }
    int id() const { return id_; }

  private:
    std::string image_;
    int id_ = -1;
    char* at_ = nullptr;
};

/// Everything that the commands make of two slot partitions.
size_t made_of(int clients_id, int events_id)
{
    const read_only_segment clients_mapped(clients_id), events_mapped(events_id);
    exchange seen;
    seen.clients_part = look_at({.id = clients_id}, clients_mapped);
    seen.events_part = look_at({.id = events_id}, events_mapped);
    if (seen.clients_part.state == partition_state::sound)
        seen.clients = client_slots(seen.clients_part, clients_mapped);
    processes known(0);
    size_t length = 0;
    if (seen.events_part.state != partition_state::sound) return length;
    for (const depth how : {depth::heads, depth::whole}) seen.events = {seen.events_part, events_mapped, {}, how};
    for (const bm::event& one : seen.events.all())
        for (const std::string& sentence : autopsy_of(one, seen, known, udp_sockets{}).sentences)
            length += sentence.size();
    return length;
}

TEST_P(Hostile, WhateverTheSegmentsHoldIsReadInsideThem)
{
    spoiled_segment clients_seg(shmid_of(clients_part)), events_seg(shmid_of(events_part));
    const size_t whole = made_of(clients_seg.id(), events_seg.id());
    EXPECT_GT(whole, 1000U) << "nothing was read of the unspoiled ones";
    std::mt19937 random(20240607);
    size_t differently = 0;
    for (int round = 0; round < 2000; ++round) {
        clients_seg.restore();
        events_seg.restore();
        clients_seg.spoil(random);
        events_seg.spoil(random);
        if (made_of(clients_seg.id(), events_seg.id()) != whole) ++differently;
    }
    EXPECT_GT(differently, 200U) << "what was spoiled was hardly ever met";
}

TEST_P(Hostile, CommandsEndInOrderOnSpoiledPartitions)
{
    std::mt19937 random(7);
    live_segment bytes(shmid_of(events_part), live_segment::WRITE);
    const std::string image = bytes.bytes(0, bytes.size());
    for (int round = 0; round < 8; ++round) {
        // Not the set's id: the test itself goes on with it.
        for (int n = 0; n < 20; ++n) bytes.put_int32(16 + random() % 400 * 4, static_cast<int32_t>(random()));
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"ls"}, {"clients"}, {"events"}, {"why", "1"}, {"show", "ZRK4_EVENT_SLOTS"}}) {
            const outcome seen = run_bm(arguments);
            EXPECT_TRUE(seen.status >= 0 && seen.status <= 3) << seen.status << " " << arguments[0] << seen.err;
        }
        bytes.put_bytes(0, image);
    }
}

TEST_P(Hostile, ControlCharactersOfANameDoNotReachTheTerminal)
{
    writer_slot({"\x1b[2J\x07"});
    slot(1).put(&slot_layout::nclients, 0);
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"clients"}, {"events"}, {"why", "2"}}) {
        const outcome seen = run_bm(arguments);
        EXPECT_EQ(seen.out.find('\x1b'), std::string::npos) << seen.out;
    }
    const nlohmann::json all = run_bm({"clients", "--json"}).document()["clients"];
    EXPECT_EQ(all.back()["blocks"][0], "\x1b[2J\x07");
}

// A slot that changes faster than it can be read is read again, then marked, and is no fault.
TEST_P(Hostile, ASlotThatNeverStandsStillIsMarkedAsTorn)
{
    shared<std::atomic<bool>> enough;
    child writing([&] {
        for (uint32_t n = 0; !enough->load(); ++n)
            slot(1).put_time(&slot_layout::lupdate, {seconds_ago(0).timeup, n % 1000000});
    });
    const int id = shmid_of(events_part);
    const read_only_segment mapped(id);
    // Where others want the processors, too, it takes many looks to meet the writer at work.
    const auto looks_torn = [&] {
        for (int look = 0; look < 1000; ++look) {
            if (event_slots(look_at({.id = id}, mapped), mapped, {}).all().at(0).torn) return true;
        }
        return false;
    };
    EXPECT_TRUE(eventually(looks_torn));
    for (const int other : {2, 3})
        slot(other).put_time(&slot_layout::lupdate, seconds_ago(0)); // that may have been long
    EXPECT_EQ(run_bm({"events"}).status, 0);
    *enough = true;
    EXPECT_EQ(writing.wait(), 0);
    EXPECT_EQ(run_bm({"events", "--json"}).document()["events"].at(0)["torn"], false);
}

class Moving : public CleanNamespace {};

TEST_F(Moving, APartitionMadeAndRemovedAllTheTimeIsReadOrNot)
{
    shared<std::atomic<bool>> enough;
    child maker([&] {
        const captured_output quiet;
        while (!enough->load()) {
            C_shm_buffer part("T_MOVING", 50, 100, true);
            part.get_buffer(4, true);
        }
    });
    for (int round = 0; round < 40; ++round) {
        for (const std::vector<std::string>& arguments : {std::vector<std::string>{"ls"}, {"show", "T_MOVING"}}) {
            const outcome seen = run_bm(arguments);
            EXPECT_TRUE(seen.status >= 0 && seen.status <= 3) << seen.status << seen.out << seen.err;
        }
    }
    *enough = true;
    EXPECT_EQ(maker.wait(), 0);
    clear_ipc_namespace();
}

// As root another user's eyes are needed; to others a segment is closed when its mode says so.
TEST_F(Moving, WhatMayNotBeReadIsNamedAsSuch)
{
    const int closed = shmget(50, 4096, IPC_CREAT | 0000);
    ASSERT_GE(closed, 0);
    const outcome seen =
        geteuid() == 0 ? run_program("setpriv", {"--reuid", "65534", "--clear-groups", bm_command(), "ls", "--json"})
                       : run_bm({"ls", "--json"});
    EXPECT_EQ(seen.status, 1) << seen.err;
    const nlohmann::json one = seen.document()["partitions"].at(0);
    EXPECT_EQ(one["state"], "not readable");
    EXPECT_NE(one["complaint"].get<std::string>().find("may not read it: of user " + std::to_string(geteuid()) +
                                                       ", mode 000"),
              std::string::npos);
    shmctl(closed, IPC_RMID, nullptr);
}

} // namespace
} // namespace bm::test
