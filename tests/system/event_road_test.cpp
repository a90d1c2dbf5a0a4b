// The whole road of an event between real processes: from the writers' buffers into every reader's handler and back.
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../unit/datagram.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"
#include "road.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr int EVENTS = 100;
constexpr int READERS = 3;

struct road_case {
    road on;
    int readers;
    const char* name;
};
void PrintTo(const road_case& c, std::ostream* os) { *os << c.name; }

/// What a reader's handler has seen.
struct seen_events {
    std::array<std::atomic<int>, EVENTS> calls;
    std::atomic<int> total;
    std::atomic<int> wrong; ///< blocks that were not what they should be
};

class EventRoad : public CleanNamespace, public testing::WithParamInterface<road_case> {
  protected:
    const road on = GetParam().on;
    const int readers = GetParam().readers;
    latch made, ready{on.writers + readers}, sent{on.writers}, read{readers}, leave;
    shared<std::array<seen_events, READERS>> seen;
    static inline std::function<void(void*, zrk4_client_sblock_data*)> handler;

    /// Reader 0 wants every block, the others that many blocks of the last writer.
    std::list<std::string> wanted_by(int reader) const
    {
        std::list<std::string> names;
        for (int b = 0; b < reader && b < on.blocks; ++b) names.push_back(on.block_name(on.writers - 1, b));
        return names;
    }

    void write(int writer)
    {
        BM bm;
        const int id = on.meet_as_writer(bm, writer, made, ready);
        for (int e = 0; e < EVENTS; ++e) ASSERT_FALSE(on.send_all(bm, id, e, writer)) << "false: all were entered";
        sent.open();
        leave.wait();
    }

    void take(int reader)
    {
        made.wait();
        BM bm;
        on.configure(bm);
        on.join(bm);
        const std::list<std::string> wanted = wanted_by(reader);
        handler = [&](void* head, zrk4_client_sblock_data* first) { look(bm, reader, wanted, head, first); };
        bm.set_ev_handler([](void* head, zrk4_client_sblock_data* first) { handler(head, first); });
        ASSERT_GT(on.subscribe(bm, CLI_T_READER, wanted), 0);
        ready.open();
        EXPECT_TRUE(eventually([&] { return (*seen)[static_cast<size_t>(reader)].total == EVENTS; }));
        read.open();
        leave.wait();
        EXPECT_EQ(rejected(), 0);
    }

    void look(BM& bm, int reader, const std::list<std::string>& wanted, void* head, zrk4_client_sblock_data* first)
    {
        seen_events& mine = (*seen)[static_cast<size_t>(reader)];
        const int event = event_number(head, on.form);
        const int entries = entries_in(head, on.form);
        if (wanted.empty() && entries != on.writers * on.blocks) ++mine.wrong;
        size_t right = 0;
        for (int i = 0; i < entries; ++i) {
            const std::string name = first[i].name;
            const bool all_right = is_right(bm, event, name, first[i].shmid, first[i].bnum);
            if (!all_right) ++mine.wrong;
            if (std::find(wanted.begin(), wanted.end(), name) != wanted.end() && all_right) ++right;
        }
        if (right != wanted.size()) ++mine.wrong;
        ++mine.calls.at(static_cast<size_t>(event));
        ++mine.total;
    }
    /// Byte for byte, in place.
    bool is_right(BM& bm, int event, const std::string& name, int shmid, int bnum) const
    {
        const char* at = bm.get_buffer_address(bnum, shmid, /*attach=*/true);
        for (int w = 0; w < on.writers; ++w) {
            for (int b = 0; b < on.blocks; ++b) {
                if (name == on.block_name(w, b))
                    return at != nullptr && std::string(at, ROAD_LENGTH) == on.bytes_of(event, w, b);
            }
        }
        return false;
    }
};

TEST_P(EventRoad, EveryReaderGetsEveryEventOnceAndEveryBufferComesBack)
{
    std::vector<std::unique_ptr<child>> processes;
    for (int w = 0; w < on.writers; ++w) processes.push_back(std::make_unique<child>([this, w] { write(w); }));
    for (int r = 0; r < readers; ++r) processes.push_back(std::make_unique<child>([this, r] { take(r); }));
    captured_output captured;
    BM master;
    on.configure(master);
    ASSERT_FALSE(master.set_master(true));
    on.join(master);
    for (int w = 0; w < on.writers; ++w)
        ASSERT_GE(master.add(road::data_name(w).c_str(), 8 * on.blocks, ROAD_LENGTH, false), 0);
    captured.forget();
    made.open();
    sent.wait();
    read.wait();
    const C_shm_buffer& events = *master.find_by_name("ZRK4_EVENT_SLOTS");
    EXPECT_TRUE(eventually([&] { return balance_of(events).all_back(1); })) << balance_of(events);
    for (int w = 0; w < on.writers; ++w) {
        const balance data = balance_of(*master.find_by_name(road::data_name(w).c_str()));
        EXPECT_TRUE(data.all_back()) << data;
    }
    leave.open();
    for (const auto& one : processes) EXPECT_EQ(one->wait(), 0);
    const balance clients = balance_of(*master.find_by_name("ZRK4_CLIENT_SLOTS"));
    EXPECT_TRUE(clients.all_back(1)) << clients;
    for (int r = 0; r < readers; ++r) {
        const seen_events& by_one = (*seen)[static_cast<size_t>(r)];
        EXPECT_EQ(by_one.total, EVENTS);
        EXPECT_EQ(by_one.wrong, 0) << "reader " << r;
        for (int e = 0; e < EVENTS; ++e) EXPECT_EQ(by_one.calls[static_cast<size_t>(e)], 1) << r << " saw " << e;
    }
    EXPECT_EQ(captured.out() + captured.err(), "") << "a healthy road is silent";
}

std::vector<road_case> all_cases()
{
    std::vector<road_case> cases;
    for (const generation form : {generation::of_2010, generation::of_2024}) {
        for (const int smode : {BM_SYNCH_TIME, BM_SYNCH_EVID}) {
            const bool wide = form == generation::of_2024;
            const bool by_time = smode == BM_SYNCH_TIME;
            cases.push_back({{form, smode, 1, 1},
                             1,
                             wide ? (by_time ? "OneOfEach2024Time" : "OneOfEach2024Id")
                                  : (by_time ? "OneOfEach2010Time" : "OneOfEach2010Id")});
            cases.push_back({{form, smode, 3, 2},
                             3,
                             wide ? (by_time ? "ThreeOfEach2024Time" : "ThreeOfEach2024Id")
                                  : (by_time ? "ThreeOfEach2010Time" : "ThreeOfEach2010Id")});
            cases.push_back({{form, smode, 1, 4},
                             3,
                             wide ? (by_time ? "ManyBlocks2024Time" : "ManyBlocks2024Id")
                                  : (by_time ? "ManyBlocks2010Time" : "ManyBlocks2010Id")});
        }
    }
    return cases;
}
INSTANTIATE_TEST_SUITE_P(All, EventRoad, testing::ValuesIn(all_cases()),
                         [](const auto& one) { return std::string(one.param.name); });

} // namespace
