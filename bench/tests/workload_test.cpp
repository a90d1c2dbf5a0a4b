// The payload, the pace and the reader's notes.
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "workload.h"

namespace bench {
namespace {

constexpr size_t BYTES = 3 * 4096 + 100;

std::string payload_of(int64_t number, phase now = phase::counted, int64_t registered_ns = 0)
{
    std::string payload(BYTES, '\0');
    fill(payload.data(), BYTES, number);
    put_stamp(payload.data(), {number, registered_ns, now});
    return payload;
}

plan plan_of(int64_t warm_up, int64_t events, double seconds = 60)
{
    plan p;
    p.payload = BYTES;
    p.one_at_a_time = true;
    p.warm_up = warm_up;
    p.events = events;
    p.seconds = seconds;
    return p;
}

TEST(Payload, IsKnownAsThatOfItsEvent) { EXPECT_TRUE(has_bytes_of(payload_of(7).data(), BYTES, 7)); }

TEST(Payload, OfAnotherEventIsNotTaken) { EXPECT_FALSE(has_bytes_of(payload_of(7).data(), BYTES, 8)); }

TEST(Payload, WithAWrongByteOnAnyPageIsNotTaken)
{
    for (size_t at = sizeof(stamp); at < BYTES; at += 4096) {
        std::string payload = payload_of(7);
        payload[at] ^= 1;
        EXPECT_FALSE(has_bytes_of(payload.data(), BYTES, 7)) << at;
    }
}

TEST(Payload, WithAWrongLastByteIsNotTaken)
{
    std::string payload = payload_of(7);
    payload.back() ^= 1;
    EXPECT_FALSE(has_bytes_of(payload.data(), BYTES, 7));
}

TEST(EventCount, EndsAfterSoManyCountedEvents)
{
    const plan p = plan_of(/*warm_up=*/2, /*events=*/3);
    event_count count(p);
    EXPECT_EQ(count.of(0), phase::warm_up);
    EXPECT_EQ(count.of(1), phase::warm_up);
    EXPECT_EQ(count.of(2), phase::counted);
    EXPECT_EQ(count.of(3), phase::counted);
    EXPECT_EQ(count.of(4), phase::last);
}

TEST(EventCount, EndsWhenTheTimeIsUp)
{
    const plan p = plan_of(/*warm_up=*/0, /*events=*/1000, /*seconds=*/0);
    event_count count(p);
    EXPECT_EQ(count.of(0), phase::counted) << "one interval at least is measured";
    EXPECT_EQ(count.of(1), phase::last);
}

TEST(EventLog, CountsBehindTheWarmUpOnly)
{
    const plan p = plan_of(/*warm_up=*/1, /*events=*/3);
    event_log log(p);
    EXPECT_FALSE(log.note(payload_of(0, phase::warm_up, 0).data(), 900'000));
    EXPECT_FALSE(log.note(payload_of(1, phase::counted, 1'000'000).data(), 1'005'000));
    EXPECT_FALSE(log.note(payload_of(2, phase::counted, 2'000'000).data(), 2'007'000));
    EXPECT_TRUE(log.note(payload_of(3, phase::last, 3'000'000).data(), 3'005'000));
    const reading r = log.result(0);
    EXPECT_DOUBLE_EQ(r.events_per_second, 1000);
    EXPECT_DOUBLE_EQ(r.p50, 5);
    EXPECT_DOUBLE_EQ(r.p99, 7);
}

TEST(EventLog, AddsTheWritersProcessorTimeToTheReaders)
{
    const plan p = plan_of(/*warm_up=*/0, /*events=*/2);
    event_log log(p);
    log.note(payload_of(0).data(), 1);
    log.note(payload_of(1, phase::last).data(), 2);
    EXPECT_GE(log.result(5'000'000).processor_time, 5000);
}

TEST(EventLog, RefusesAnEventThatComesOutOfOrder)
{
    const plan p = plan_of(0, 3);
    event_log log(p);
    log.note(payload_of(1).data(), 1);
    EXPECT_THROW(log.result(0), std::runtime_error);
}

TEST(EventLog, RefusesWrongBytes)
{
    const plan p = plan_of(0, 3);
    event_log log(p);
    std::string payload = payload_of(0);
    payload.back() ^= 1;
    log.note(payload.data(), 1);
    EXPECT_THROW(log.result(0), std::runtime_error);
}

TEST(EventLog, DoesNotLookAtAPayloadThatNobodyFills)
{
    plan p = plan_of(0, 3);
    p.touched = false;
    event_log log(p);
    std::string payload = payload_of(0);
    payload.back() ^= 1;
    log.note(payload.data(), 1);
    EXPECT_NO_THROW(log.result(0));
}

} // namespace
} // namespace bench
