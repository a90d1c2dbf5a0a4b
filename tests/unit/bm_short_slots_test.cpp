// Event slots that are too short for a head, as a foreign master may have made them: there is no event in them.
#include <string>

#include <gtest/gtest.h>

#include "event_host.h"
#include "eventually.h"

using namespace zrk4::test;

namespace {

class ShortSlots : public EventHost {
  protected:
    // Room for two entries of the control table, and for no head.
    ShortSlots() : EventHost({.event_slots = 2, .event_length = 50})
    {
        control(taken_slot()).put(EVT_C_USED, TYPE, {1000, 500}, 7);
    }
};
IN_BOTH_GENERATIONS(ShortSlots);

TEST_P(ShortSlots, EarlyReturnNamesTheBufferAndReturnsIt)
{
    put({.server = "ANOTHER"});
    const int bnum = put({.server = "A"});
    EXPECT_EQ(said([&] { EXPECT_FALSE(bm.return_buffer_in_pool_ext(TYPE, bnum, data_id)) << "false is success"; }),
              "DATE return_buffer_in_pool_ext(): Failed to find event slot: " + std::to_string(bnum) + " \n");
    EXPECT_TRUE(block_is_free(bnum));
    EXPECT_EQ(control(1).status(), EVT_C_USED);
}

TEST_P(ShortSlots, MonitorReportsThemInEveryCycle)
{
    open_bm watching;
    join(watching);
    watching.set_monitoring_period(1000);
    captured_output captured;
    ASSERT_FALSE(watching.start_monitor()) << "false is success";
    const std::string line = "DATE MONITOR: Failed to get address for buffer: 1\n";
    EXPECT_TRUE(eventually([&] { return captured.out().size() > 5 * line.size(); }));
    watching.stop_monitor();
    std::string text = dates_marked(captured.out());
    EXPECT_EQ(text.substr(0, 2 * line.size()), line + line);
    for (size_t at = 0; (at = text.find(line)) != std::string::npos;) text.erase(at, line.size());
    EXPECT_EQ(text, "") << "and nothing else";
    EXPECT_EQ(control(1).status(), EVT_C_USED);
}

} // namespace
