// The datagram that tells a reader of its event.
#include <cerrno>
#include <climits>

#include "event_host.h"
#include "fault.h"
#include "udp_inbox.h"

using namespace zrk4::test;

namespace {

class BmNotification : public EventHost {
  protected:
    BmNotification() { used_slot({1700000000, 123456}); }

    /// A reader of another process that listens here, and takes part in the event. @return its client slot.
    int reader()
    {
        const int c = client({.pid = 0x12345, .port = inbox.port()});
        slot(1).add_client(c, WAIT);
        return c;
    }
    bool notify(int c, int cln = 0) { return bm.notification(1, c, cln); }
    template <class T> static std::string raw(T value) { return {reinterpret_cast<const char*>(&value), sizeof value}; }

    udp_inbox inbox;
};
IN_BOTH_GENERATIONS(BmNotification);

// ---- what is sent

TEST_P(BmNotification, HasExactlyTheBytesOfItsForm)
{
    slot(1).put_wide(&slot_layout::eventid, wide() ? -0x1234'5678'9ABC'DEF0 : -0x1234'5678);
    client({}); // so that no two of the numbers are equal
    slot(1).add_client(77, DONE);
    const int c = reader();
    EXPECT_EQ(said([&] { EXPECT_FALSE(notify(c, 1)) << "false is success"; }), "");
    const std::string common =
        raw<int64_t>(0x12345) + raw<int32_t>(1) + raw<int32_t>(c) + raw<int32_t>(1) + raw<uint32_t>(1700000000);
    const std::string padding(4, '\0');
    // In the 2010 form the id stands where the microseconds would be.
    EXPECT_EQ(inbox.next(), wide() ? common + raw<uint32_t>(123456) + padding + raw<int64_t>(-0x1234'5678'9ABC'DEF0)
                                   : common + raw<int32_t>(-0x1234'5678) + padding);
    EXPECT_TRUE(inbox.empty()) << "one datagram";
    EXPECT_EQ(slot(1).client_status(1), NTF);
}

TEST_P(BmNotification, CarriesTheReadersPidWithItsSign)
{
    const int c = reader();
    store<int32_t>(client_at(c), -2);
    EXPECT_FALSE(notify(c));
    EXPECT_EQ(inbox.next().substr(0, 8), raw<int64_t>(-2));
}

TEST_P(BmNotification, GoesToTheLow16BitsOfThePort)
{
    const int c = reader();
    store<int32_t>(client_at(c) + 40, inbox.port() | 0x7FFF0000);
    EXPECT_FALSE(notify(c));
    EXPECT_EQ(inbox.next().size(), wide() ? 40U : 32U);
}

TEST_P(BmNotification, ToAPortWhereNobodyListensIsSentAllTheSame)
{
    const int c = reader();
    {
        const udp_inbox closed;
        store<int32_t>(client_at(c) + 40, closed.port());
    }
    EXPECT_EQ(said([&] { EXPECT_FALSE(notify(c)); }), "");
    EXPECT_EQ(slot(1).client_status(0), NTF);
}

TEST_P(BmNotification, OfAReaderWithoutAPortGoesToPort65535)
{
    const int c = reader();
    store<int32_t>(client_at(c) + 40, -1);
    EXPECT_EQ(said([&] { EXPECT_FALSE(notify(c)); }), "");
}

TEST_P(BmNotification, IsSentToAWaitingClientOnly)
{
    const int c = reader();
    for (const int status : {NTF, PROC, DONE, static_cast<int>(CLI_S_INVAL), 0}) {
        slot(1).put_client_status(0, status);
        EXPECT_EQ(said([&] { EXPECT_FALSE(notify(c)) << "nothing was to be sent"; }), "");
        EXPECT_EQ(slot(1).client_status(0), status);
    }
    EXPECT_TRUE(inbox.empty());
}

TEST_P(BmNotification, UsesOneSocketThatIsMadeOnce)
{
    const int c = reader();
    EXPECT_EQ(bm.qid, -1);
    const long before = calls_of("socket");
    EXPECT_FALSE(notify(c));
    const int socket = bm.qid;
    EXPECT_GE(socket, 0);
    EXPECT_EQ(bm.port, -1) << "it only sends";
    slot(1).put_client_status(0, WAIT);
    EXPECT_FALSE(notify(c));
    EXPECT_EQ(calls_of("socket"), before + 1);
    EXPECT_EQ(bm.qid, socket);
    EXPECT_EQ(inbox.next(), inbox.next());
    close(socket);
    bm.qid = -1;
}

TEST_P(BmNotification, UsesTheSocketOfTheReaderThread)
{
    zrk4_client every{};
    ASSERT_GT(bm.subscribe(TYPE, CLI_T_READER, &every, nullptr), 0);
    const int c = reader();
    const long before = calls_of("socket");
    EXPECT_FALSE(notify(c));
    EXPECT_EQ(calls_of("socket"), before);
    EXPECT_EQ(inbox.next().size(), wide() ? 40U : 32U);
    bm.unsubscribe(TYPE, CLI_T_READER);
}

TEST_P(BmNotification, LooksUpLocalhostOncePerProcess)
{
    const int c = reader();
    const long before = calls_of("gethostbyname_r"); // the object has done it
    EXPECT_FALSE(notify(c));
    open_bm other;
    EXPECT_EQ(calls_of("gethostbyname_r"), before);
}

// ---- refusals

TEST_P(BmNotification, RefusesInvalidParameters)
{
    const int c = reader();
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.notification(1, 0, 0)) << "true is failure";
                  EXPECT_TRUE(bm.notification(1, -3, 0));
                  EXPECT_TRUE(bm.notification(-1, c, 0));
                  EXPECT_TRUE(bm.notification(1, c, -1));
              }),
              "DATE Invalid parameter 0 1 0\nDATE Invalid parameter -3 1 0\nDATE Invalid parameter " +
                  std::to_string(c) + " -1 0\nDATE Invalid parameter " + std::to_string(c) + " 1 -1\n");
    EXPECT_EQ(slot(1).client_status(0), WAIT);
}

TEST_P(BmNotification, RefusesAClientSlotWithoutAddress)
{
    const int count = clients_part.getBufferCount();
    open_bm alone;
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.notification(1, count, 0));
                  EXPECT_TRUE(bm.notification(1, INT_MAX, 0));
                  EXPECT_TRUE(alone.notification(1, 1, 0));
              }),
              "DATE Something wrong: header == NULL\nDATE Something wrong: header == NULL\n"
              "DATE Something wrong: header == NULL\n");
}

TEST_P(BmNotification, RefusesAClientThatDoesNotRead)
{
    const int writing = client({.cltype = CLI_T_WRITER, .pid = -2});
    const int nobody = client({.cltype = CLI_T_INVAL, .pid = 4711});
    slot(1).add_client(writing, WAIT);
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(notify(writing));
                  EXPECT_TRUE(notify(nobody));
              }),
              "DATE Something wrong: 4294967294  2 != 1\nDATE Something wrong: 4711  3 != 1\n");
    EXPECT_EQ(slot(1).client_status(0), WAIT);
}

TEST_P(BmNotification, RefusesNumbersThatAreNoSlots)
{
    const int c = reader();
    EXPECT_EQ(said([&] {
                  EXPECT_TRUE(bm.notification(0, c, 0)) << "buffer 0 is the control table";
                  EXPECT_TRUE(bm.notification(events_part.getBufferCount(), c, 0));
              }),
              "");
    EXPECT_TRUE(inbox.empty());
}

TEST_P(BmNotification, IsNotSentToAClientThatTheEventHasNot)
{
    const int c = reader();
    EXPECT_EQ(said([&] {
                  EXPECT_FALSE(bm.notification(1, c, 1)) << "nothing was to be sent: the event has one client";
                  EXPECT_FALSE(bm.notification(1, c, INT_MAX));
              }),
              "");
    EXPECT_TRUE(inbox.empty());
}

// ---- failures of the system

TEST_P(BmNotification, WithoutASocketLeavesTheClientNotified)
{
    const int c = reader();
    captured_output captured;
    {
        const fault none_left = fault::fails("socket", EMFILE);
        EXPECT_TRUE(notify(c));
    }
    EXPECT_EQ(captured.err(), "socket: Too many open files\n");
    EXPECT_EQ(captured.out(), of_form("Failed to create socket\n", "Failed to create socket (2024)\n"));
    EXPECT_EQ(slot(1).client_status(0), NTF);
    EXPECT_EQ(bm.qid, -1);
    slot(1).put_client_status(0, WAIT);
    EXPECT_FALSE(notify(c)) << "tried again with the next one";
    EXPECT_EQ(inbox.next().size(), wide() ? 40U : 32U);
}

TEST_P(BmNotification, ThatCannotBeSentLeavesTheClientNotified)
{
    const int c = reader();
    captured_output captured;
    const fault unreachable = fault::fails("sendto", ENETUNREACH);
    EXPECT_TRUE(notify(c));
    EXPECT_EQ(captured.err(), "sendto: Network is unreachable\n");
    EXPECT_EQ(captured.out(), of_form("sendto() failed\n", "sendto(2024) failed\n"));
    EXPECT_EQ(slot(1).client_status(0), NTF);
    EXPECT_TRUE(inbox.empty());
}

} // namespace
