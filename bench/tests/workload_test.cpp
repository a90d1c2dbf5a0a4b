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
    put_stamp(payload.data(), {number, registered_ns, 0, now});
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
    for (int number = 0; number < 10; ++number) EXPECT_EQ(count.of(number), phase::counted) << "too few are measured";
    EXPECT_EQ(count.of(10), phase::last);
}

bool note(event_log& log, const std::string& payload, int64_t called_ns)
{
    const char* const only = payload.data();
    return log.note({&only, 1}, called_ns);
}

TEST(EventLog, CountsBehindTheWarmUpOnly)
{
    const plan p = plan_of(/*warm_up=*/1, /*events=*/3);
    event_log log(p);
    EXPECT_FALSE(note(log, payload_of(0, phase::warm_up, 0), 900'000));
    EXPECT_FALSE(note(log, payload_of(1, phase::counted, 1'000'000), 1'005'000));
    EXPECT_FALSE(note(log, payload_of(2, phase::counted, 2'000'000), 2'007'000));
    EXPECT_TRUE(note(log, payload_of(3, phase::last, 3'000'000), 3'005'000));
    const reader_report r = log.report();
    EXPECT_EQ(r.wrong, 0);
    EXPECT_EQ(r.seen, 4);
    EXPECT_EQ(r.intervals, 2);
    EXPECT_EQ(r.took_ns, 2'000'000);
    EXPECT_DOUBLE_EQ(r.p50, 5);
    EXPECT_DOUBLE_EQ(r.p99, 7);
}

TEST(EventLog, SeesAnEventThatComesOutOfOrder)
{
    const plan p = plan_of(0, 3);
    event_log log(p);
    note(log, payload_of(1), 1);
    EXPECT_EQ(log.report().wrong, 1);
}

TEST(EventLog, SeesWrongBytes)
{
    const plan p = plan_of(0, 3);
    event_log log(p);
    std::string payload = payload_of(0);
    payload.back() ^= 1;
    note(log, payload, 1);
    EXPECT_EQ(log.report().wrong, 1);
}

TEST(EventLog, DoesNotLookAtAPayloadThatNobodyFills)
{
    plan p = plan_of(0, 3);
    p.touched = false;
    event_log log(p);
    std::string payload = payload_of(0);
    payload.back() ^= 1;
    note(log, payload, 1);
    EXPECT_EQ(log.report().wrong, 0);
}

class EventsOfTwoWriters : public testing::Test {
  protected:
    EventsOfTwoWriters() { plan_.writers = 2; }
    std::string block(int64_t number, int index, phase now = phase::counted) const
    {
        std::string payload(BYTES, '\0');
        fill(payload.data(), BYTES, number, index);
        put_stamp(payload.data(), {number, 0, index, now});
        return payload;
    }
    static bool note(event_log& log, const std::string& a, const std::string& b)
    {
        const char* const both[] = {a.data(), b.data()};
        return log.note(both, 1);
    }
    plan plan_ = plan_of(/*warm_up=*/0, /*events=*/3);
};

TEST_F(EventsOfTwoWriters, MayComeInAnyOrder)
{
    event_log log(plan_);
    EXPECT_FALSE(note(log, block(1, 0), block(1, 1)));
    EXPECT_FALSE(note(log, block(0, 1), block(0, 0)));
    EXPECT_TRUE(note(log, block(2, 0, phase::last), block(2, 1, phase::last)));
    EXPECT_EQ(log.report().wrong, 0);
}

TEST_F(EventsOfTwoWriters, ComeOnce)
{
    event_log log(plan_);
    note(log, block(1, 0), block(1, 1));
    note(log, block(1, 0), block(1, 1));
    EXPECT_EQ(log.report().wrong, 1);
}

TEST_F(EventsOfTwoWriters, HaveEveryBlock)
{
    event_log log(plan_);
    note(log, block(0, 0), block(0, 0));
    note(log, block(1, 0), block(2, 1));
    const std::string alone = block(2, 0);
    const char* const only = alone.data();
    log.note({&only, 1}, 1);
    EXPECT_EQ(log.report().wrong, 3);
}

TEST(Combined, TheSlowestReaderTellsTheRate)
{
    const reader_report both[] = {{0, 12, 10, 1'000'000, 30'000, 5, 7}, {0, 12, 10, 2'000'000, 10'000, 50, 70}};
    const reading r = combined(both, 60'000);
    EXPECT_DOUBLE_EQ(r.events_per_second, 5000);
    EXPECT_DOUBLE_EQ(r.processor_time, 10);
    EXPECT_DOUBLE_EQ(r.p50, 5);
    EXPECT_DOUBLE_EQ(r.p99, 7);
}

TEST(Combined, WrongEventsAreRefused)
{
    const reader_report both[] = {{}, {1, 12, 10, 1, 1, 1, 1}};
    EXPECT_THROW(combined(both, 0), std::runtime_error);
}

} // namespace
} // namespace bench
