// When the run control's events are due, and how many of them a run has.
#include <gtest/gtest.h>

#include "run_plan.h"

using namespace demo;

TEST(RunPlan, CountsTheEventsThatAreDue)
{
    for (const int64_t begun : {0, 1, 49, 50, 51, 100, 101, 250, 251, 1000}) {
        for (const run_event_kind kind : {ENVIRONMENT, UPDATE}) {
            int64_t number = 0;
            for (int64_t tick = 0; tick <= begun; ++tick) number += due(kind, tick, begun) ? 1 : 0;
            EXPECT_EQ(number_due(kind, begun), number) << RUN_EVENTS[kind].name << " in " << begun;
        }
        EXPECT_EQ(number_due(BEGIN, begun), 1);
        EXPECT_EQ(number_due(END, begun), 1);
    }
    EXPECT_EQ(number_due(ENVIRONMENT, int64_t{10} * TICKS_PER_SECOND), 10) << "every second";
    EXPECT_EQ(number_due(UPDATE, int64_t{10} * TICKS_PER_SECOND), 5) << "every other second";
    EXPECT_EQ(number_due(UPDATE, TICKS_PER_SECOND), 1) << "in the shortest run as well";
}

TEST(RunPlan, BeginsAtTheFirstTickAndEndsBehindTheLast)
{
    EXPECT_TRUE(due(BEGIN, 0, 200));
    EXPECT_FALSE(due(BEGIN, 1, 200));
    EXPECT_TRUE(due(END, 200, 200));
    EXPECT_FALSE(due(END, 199, 200));
    EXPECT_FALSE(due(ENVIRONMENT, 200, 200)) << "no tick of the run";
}

TEST(RunPlan, KnowsItsEventsByTheirType)
{
    EXPECT_EQ(run_event_of(ZRK4_EV_BOR), BEGIN);
    EXPECT_EQ(run_event_of(ZRK4_EV_EOR), END);
    EXPECT_EQ(run_event_of(ZRK4_EV_ENV), ENVIRONMENT);
    EXPECT_EQ(run_event_of(ZRK4_EV_UPD), UPDATE);
    EXPECT_FALSE(run_event_of(EVENT_TYPE));
    EXPECT_FALSE(run_event_of(-1));
}
