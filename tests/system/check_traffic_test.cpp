// Check and repair beside a host at work: what moves is no finding, and nothing is taken from anybody.
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../unit/check_findings.h"
#include "child.h"
#include "clean_namespace.h"
#include "eventually.h"
#include "latch.h"
#include "live_segment.h"
#include "road.h"
#include "shared.h"

using namespace zrk4::test;

namespace {

constexpr auto AT_WORK = std::chrono::milliseconds(1500);
constexpr int MOST_EVENTS = 1 << 20;

struct traffic_case {
    road on;
    int readers;
    bool early; ///< the only reader gives each block back while it reads
    const char* name;
};
void PrintTo(const traffic_case& c, std::ostream* os) { *os << c.name; }

class CheckTraffic : public CleanNamespace, public testing::WithParamInterface<traffic_case> {
  protected:
    const road on = GetParam().on;
    const int readers = GetParam().readers;
    latch made, ready{on.writers + readers + 2}, over, sent{on.writers}, read{readers}, leave;
    shared<std::atomic<int>> events_sent, calls, checks, finds;
    static inline std::function<void(void*, zrk4_client_sblock_data*)> handler;

    bm_check_request request(bool repair) const
    {
        bm_check_request wanted = quick(repair);
        wanted.records_2024 = on.form == generation::of_2024;
        // With more processes than processors a live one waits its turn between two steps; a look that shows it ends early.
        wanted.observe = std::chrono::seconds(2);
        return wanted;
    }

    void write(int writer)
    {
        BM bm;
        const int id = on.meet_as_writer(bm, writer, made, ready);
        // Every writer has a part in every event: they stop after the same one.
        int e = 0;
        for (; !over.is_open() && e < MOST_EVENTS; ++e) put_event(bm, id, e, writer);
        int last = *events_sent;
        while (last < e && !events_sent->compare_exchange_weak(last, e)) {}
        stopping.open();
        stopping.wait();
        for (; e < *events_sent; ++e) put_event(bm, id, e, writer);
        sent.open();
        leave.wait();
    }
    void put_event(BM& bm, int id, int event, int writer)
    {
        ASSERT_FALSE(on.send_all(bm, id, event, writer)) << "false: all were entered";
    }

    void take()
    {
        made.wait();
        BM bm;
        on.configure(bm);
        on.join(bm);
        handler = [&](void* head, zrk4_client_sblock_data* first) {
            const int entries = entries_in(head, on.form);
            const std::vector<zrk4_client_sblock_data> blocks(first, first + entries);
            for (size_t i = 1; GetParam().early && i < blocks.size(); ++i)
                EXPECT_FALSE(bm.return_buffer_in_pool_ext(ROAD_TYPE, blocks[i].bnum, blocks[i].shmid));
            ++*calls;
        };
        bm.set_ev_handler([](void* head, zrk4_client_sblock_data* first) { handler(head, first); });
        ASSERT_GT(on.subscribe(bm, CLI_T_READER, {}), 0);
        ready.open();
        sent.wait();
        EXPECT_TRUE(eventually([&] { return *calls == *events_sent * readers; })) << *calls << " of " << *events_sent;
        read.open();
        leave.wait();
    }

    /// Comes and goes, as a client of another event type.
    void visit()
    {
        made.wait();
        ready.open();
        ready.wait();
        while (!over.is_open()) {
            BM bm;
            on.configure(bm);
            on.join(bm);
            zrk4_client all{};
            ASSERT_GT(bm.subscribe(ZRK4_EV_BOR, CLI_T_READER, &all, nullptr), 0);
            ASSERT_GT(bm.subscribe(ZRK4_EV_BOR, CLI_T_WRITER, &all, nullptr), 0);
            bm.all_clean_up();
        }
    }

    void check()
    {
        made.wait();
        ready.open();
        ready.wait();
        while (!over.is_open()) {
            const bm_check_report report = bm_check(request(++*checks % 2 == 0));
            EXPECT_TRUE(report.complete());
            EXPECT_EQ(lines_of(report), lines{});
            *finds += static_cast<int>(report.findings.size());
        }
    }

    latch stopping{on.writers};
};

TEST_P(CheckTraffic, IsSoundAtEveryLook)
{
    const captured_output captured; // the children's too: an event that lost blocks early is reported
    std::vector<std::unique_ptr<child>> processes;
    for (int w = 0; w < on.writers; ++w) processes.push_back(std::make_unique<child>([this, w] { write(w); }));
    for (int r = 0; r < readers; ++r) processes.push_back(std::make_unique<child>([this] { take(); }));
    processes.push_back(std::make_unique<child>([this] { visit(); }));
    processes.push_back(std::make_unique<child>([this] { check(); }));
    BM master;
    on.configure(master);
    ASSERT_FALSE(master.set_master(true));
    on.join(master);
    for (int w = 0; w < on.writers; ++w)
        ASSERT_GE(master.add(road::data_name(w).c_str(), 8 * on.blocks, ROAD_LENGTH, false), 0);
    made.open();
    ready.wait();
    std::this_thread::sleep_for(AT_WORK);
    EXPECT_TRUE(eventually([&] { return *checks > 10; }, std::chrono::seconds(10)));
    over.open();
    sent.wait();
    read.wait();
    EXPECT_GT(*events_sent, 100);
    EXPECT_EQ(*finds, 0);
    for (int w = 0; w < on.writers; ++w) {
        C_shm_buffer& data = *master.find_by_name(road::data_name(w).c_str());
        EXPECT_TRUE(eventually([&] { return balance_of(data).all_back(); })) << balance_of(data);
    }
    EXPECT_EQ(lines_of(bm_check(request(false))), lines{});
    leave.open();
    for (const auto& one : processes) EXPECT_EQ(one->wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, CheckTraffic,
                         testing::Values(traffic_case{{generation::of_2010, BM_SYNCH_TIME, 2, 2}, 2, false, "Of2010"},
                                         traffic_case{{generation::of_2024, BM_SYNCH_EVID, 2, 2}, 2, false, "Of2024"},
                                         traffic_case{{generation::of_2010, BM_SYNCH_TIME, 1, 4}, 1, true, "Early2010"},
                                         traffic_case{
                                             {generation::of_2024, BM_SYNCH_TIME, 1, 4}, 1, true, "Early2024"}),
                         [](const auto& one) { return std::string(one.param.name); });

} // namespace
